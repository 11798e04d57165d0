#include <windows.h>
// The others need it in front of them.
#include <fcntl.h>
#include <io.h>
#include <sys/stat.h>

#include <algorithm>
#include <asio/post.hpp>
#include <filesystem>
#include <utility>

#include "output_file.h"
#include "platform.h"

namespace TAVU::collector {
namespace {

constexpr int kStandardOutput = 1;
constexpr std::size_t kLargestWrite = 1 << 20;

}  // namespace

struct OutputFile::State {
  explicit State(asio::io_context& io) : context(io) {}
  State(const State&) = delete;
  State& operator=(const State&) = delete;
  ~State() { Use(kStandardOutput); }

  void Use(int descriptor) {
    if (output != kStandardOutput) _close(output);
    output = descriptor;
  }

  asio::io_context& context;
  int output = kStandardOutput;
};

OutputFile::OutputFile(asio::io_context& context, std::string path)
    : path_(std::move(path)), state_(std::make_unique<State>(context)) {}

OutputFile::~OutputFile() = default;

std::error_code OutputFile::Open() {
  if (path_.empty()) return {};
  const std::filesystem::path path(std::u8string(path_.begin(), path_.end()));
  const int file = _wopen(path.c_str(), _O_WRONLY | _O_CREAT | _O_APPEND | _O_BINARY | _O_NOINHERIT,
                          _S_IREAD | _S_IWRITE);
  if (file < 0) return LastError();
  state_->Use(file);
  return {};
}

std::error_code OutputFile::Write(std::string_view text, std::size_t& written) {
  written = 0;
  while (written < text.size()) {
    const auto size = static_cast<unsigned>(std::min(text.size() - written, kLargestWrite));
    const int count = _write(state_->output, text.data() + written, size);
    if (count < 0) return LastError();
    if (count == 0) return std::make_error_code(std::errc::no_space_on_device);
    written += static_cast<std::size_t>(count);
  }
  return {};
}

bool OutputFile::TakeBack(std::size_t count) noexcept {
  return count == 0;
}

std::error_code OutputFile::Sync() {
  if (_commit(state_->output) == 0 || errno == EBADF) return {};  // pipes cannot
  return LastError();
}

void OutputFile::WaitForRoom(std::function<void()> ready) {
  asio::post(state_->context, std::move(ready));
}

void OutputFile::CancelWait() {}

}  // namespace TAVU::collector
