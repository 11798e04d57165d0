#include <poll.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>

#include "platform.h"

namespace TAVU::collector {

void PrepareProcess() noexcept {
  std::signal(SIGPIPE, SIG_IGN);
  std::signal(SIGXFSZ, SIG_IGN);
}

void RaiseConnectionLimit() noexcept {
  rlimit limit{};
  if (::getrlimit(RLIMIT_NOFILE, &limit) != 0) return;
  limit.rlim_cur = limit.rlim_max;
  // A refusal leaves the limit as it was, which is what there is to work with then.
  static_cast<void>(::setrlimit(RLIMIT_NOFILE, &limit));
}

std::vector<std::string> ArgumentsInUtf8(int argc, char** argv) {
  return {argv + (argc > 0 ? 1 : 0), argv + argc};
}

std::error_code WriteStandardOutput(std::string_view text, std::size_t& written) {
  written = 0;
  while (written < text.size()) {
    const ssize_t count = ::write(STDOUT_FILENO, text.data() + written, text.size() - written);
    if (count >= 0) {
      written += static_cast<std::size_t>(count);
    } else if (errno == EAGAIN) {
      // Whoever shares the descriptor made it non-blocking: wait here instead.
      pollfd output{STDOUT_FILENO, POLLOUT, 0};
      if (::poll(&output, 1, -1) < 0 && errno != EINTR) return LastError();
    } else if (errno != EINTR) {
      return LastError();
    }
  }
  return {};
}

std::FILE* CreateNewFile(const std::filesystem::path& path, std::error_code& error) {
  std::FILE* file = std::fopen(path.c_str(), "wbxe");
  if (file == nullptr) error = LastError();
  return file;
}

bool AddressReuseIsSafe() noexcept {
  return true;
}

}  // namespace TAVU::collector
