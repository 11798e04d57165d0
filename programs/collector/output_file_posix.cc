#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <asio/posix/stream_descriptor.hpp>
#include <cerrno>
#include <climits>
#include <filesystem>
#include <optional>
#include <utility>

#include "output_file.h"
#include "platform.h"

namespace TAVU::collector {
namespace {

// Closes once.
class Descriptor {
 public:
  explicit Descriptor(int number = -1) noexcept : number_(number) {}
  Descriptor(Descriptor&& other) noexcept : number_(std::exchange(other.number_, -1)) {}
  Descriptor& operator=(Descriptor&& other) noexcept {
    std::swap(number_, other.number_);
    return *this;
  }
  ~Descriptor() {
    if (number_ >= 0) ::close(number_);
  }
  [[nodiscard]] int get() const noexcept { return number_; }

 private:
  int number_;
};

// What every line of ours begins with, so that no more than the rest of one is ever cut off.
constexpr std::string_view kLineBegin = "{\"time\":";

std::error_code CutUnfinishedLine(int file) {
  const off_t size = ::lseek(file, 0, SEEK_END);
  if (size < 0) return LastError();
  // Back to the last line feed.
  char piece[4096];
  off_t line_begin = size;
  while (line_begin > 0) {
    const auto count = static_cast<std::size_t>(std::min<off_t>(line_begin, sizeof piece));
    const off_t from = line_begin - static_cast<off_t>(count);
    if (::pread(file, piece, count, from) != static_cast<ssize_t>(count)) return LastError();
    const std::string_view text(piece, count);
    const std::size_t feed = text.rfind('\n');
    if (feed != std::string_view::npos) {
      line_begin = from + static_cast<off_t>(feed) + 1;
      break;
    }
    line_begin = from;
  }
  if (line_begin == size) return {};
  const ssize_t count = ::pread(file, piece, kLineBegin.size(), line_begin);
  if (count < 0) return LastError();
  if (!kLineBegin.starts_with(std::string_view(piece, static_cast<std::size_t>(count)))) {
    return ::write(file, "\n", 1) == 1 ? std::error_code() : LastError();  // somebody else's
  }
  return ::ftruncate(file, line_begin) == 0 ? std::error_code() : LastError();
}

}  // namespace

struct OutputFile::State {
  explicit State(asio::io_context& io) : context(io) {}

  void Use(Descriptor descriptor) {
    output = std::move(descriptor);
    struct stat facts {};
    // Only these can make a writer wait.
    can_wait = ::fstat(output.get(), &facts) == 0 &&
               (S_ISFIFO(facts.st_mode) || S_ISSOCK(facts.st_mode) || S_ISCHR(facts.st_mode));
    is_file = S_ISREG(facts.st_mode);
  }

  asio::io_context& context;
  Descriptor output;
  std::optional<asio::posix::stream_descriptor> waiting;
  bool can_wait = false;
  bool is_file = false;
};

OutputFile::OutputFile(asio::io_context& context, std::string path)
    : path_(std::move(path)), state_(std::make_unique<State>(context)) {
  if (path_.empty()) state_->Use(Descriptor(::fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 3)));
}

OutputFile::~OutputFile() = default;

std::error_code OutputFile::Open() {
  if (path_.empty()) return {};
  Descriptor file(::open(path_.c_str(), O_RDWR | O_CREAT | O_APPEND | O_CLOEXEC, 0600));
  if (file.get() < 0) return LastError();
  struct stat facts {};
  if (::fstat(file.get(), &facts) == 0 && S_ISREG(facts.st_mode)) {
    if (const std::error_code error = CutUnfinishedLine(file.get())) return error;
    const std::filesystem::path folder = std::filesystem::absolute(path_).parent_path();
    if (const std::error_code error = SyncFolder(folder)) return error;  // its name, too
  }
  state_->Use(std::move(file));
  return {};
}

std::error_code OutputFile::Write(std::string_view text, std::size_t& written) {
  const int output = state_->output.get();
  written = 0;
  while (written < text.size()) {
    std::size_t size = text.size() - written;
    if (state_->can_wait) {
      // A pipe that polls writable takes this much without waiting. Making it non-blocking instead
      // would do so to all who share it.
      size = std::min<std::size_t>(size, PIPE_BUF);
      pollfd room{output, POLLOUT, 0};
      if (::poll(&room, 1, 0) == 0) return {};
    }
    const ssize_t count = ::write(output, text.data() + written, size);
    if (count >= 0) {
      written += static_cast<std::size_t>(count);
    } else if (errno == EAGAIN) {
      return {};
    } else if (errno != EINTR) {
      return LastError();
    }
  }
  return {};
}

bool OutputFile::TakeBack(std::size_t count) noexcept {
  if (count == 0) return true;
  if (!state_->is_file) return false;
  const off_t end = ::lseek(state_->output.get(), 0, SEEK_END);
  return end >= static_cast<off_t>(count) &&
         ::ftruncate(state_->output.get(), end - static_cast<off_t>(count)) == 0;
}

std::error_code OutputFile::Sync() {
  // Pipes and terminals have nothing to sync, and say so.
  return ::fdatasync(state_->output.get()) == 0 || errno == EINVAL || errno == EROFS
             ? std::error_code()
             : LastError();
}

void OutputFile::WaitForRoom(std::function<void()> ready) {
  if (!state_->waiting) {
    state_->waiting.emplace(state_->context, ::fcntl(state_->output.get(), F_DUPFD_CLOEXEC, 3));
  }
  state_->waiting->async_wait(asio::posix::stream_descriptor::wait_write,
                              [ready = std::move(ready)](const std::error_code& error) {
                                if (error != std::errc::operation_canceled) ready();
                              });
}

void OutputFile::CancelWait() {
  state_->waiting.reset();
}

}  // namespace TAVU::collector
