#include <fcntl.h>
#include <malloc.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <csignal>
#include <cstddef>
#include <cstdlib>
#include <cstring>

#include "platform.h"

namespace TAVU::collector {

namespace {

// A large request is received into blocks and decoded into another as large. Memory given back to
// the system in between costs more, when its pages are touched anew, than all that is done with the
// request; so as much as one of usual size needs stays with the process.
constexpr int kKeptMemory = 256 << 20;

}  // namespace

void PrepareProcess() noexcept {
#ifdef __GLIBC__
  mallopt(M_ARENA_MAX, 1);  // what one thread has freed serves the other
  mallopt(M_MMAP_MAX, 0);   // what is mapped for itself is given back at once
  mallopt(M_TRIM_THRESHOLD, kKeptMemory);
#endif
  std::signal(SIGPIPE, SIG_IGN);
  std::signal(SIGXFSZ, SIG_IGN);
  ::umask(077);
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

bool WriteStandardError(std::string_view line) noexcept {
  // As much as a pipe that polls writable takes without waiting.
  line = line.substr(0, PIPE_BUF);
  pollfd room{STDERR_FILENO, POLLOUT, 0};
  if (::poll(&room, 1, 0) != 1 || (room.revents & POLLOUT) == 0) return false;
  return ::write(STDERR_FILENO, line.data(), line.size()) == static_cast<ssize_t>(line.size());
}

std::error_code SyncFile(std::FILE* file) noexcept {
  return ::fsync(::fileno(file)) == 0 ? std::error_code() : LastError();
}

std::error_code SyncFolder(const std::filesystem::path& folder) noexcept {
  const int descriptor = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (descriptor < 0) return LastError();
  const std::error_code error = ::fsync(descriptor) == 0 ? std::error_code() : LastError();
  ::close(descriptor);
  return error;
}

void NotifyServiceManager(std::string_view state) noexcept {
  const char* name = std::getenv("NOTIFY_SOCKET");
  if (name == nullptr) return;
  sockaddr_un manager{};
  manager.sun_family = AF_UNIX;
  const std::size_t size = std::strlen(name);
  if (size == 0 || size >= sizeof manager.sun_path) return;
  std::memcpy(manager.sun_path, name, size);
  if (name[0] == '@') manager.sun_path[0] = '\0';  // in the abstract name space
  const int socket = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  if (socket < 0) return;
  const auto length = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + size);
  // A manager that does not listen ends the service by its own time-out.
  static_cast<void>(::sendto(socket, state.data(), state.size(), MSG_NOSIGNAL,
                             reinterpret_cast<const sockaddr*>(&manager), length));
  ::close(socket);
}

std::size_t ConnectionLimit() noexcept {
  rlimit limit{};
  if (::getrlimit(RLIMIT_NOFILE, &limit) != 0) return 1024;
  return static_cast<std::size_t>(limit.rlim_cur);
}

ScopedFile CreateNewFile(const std::filesystem::path& path, std::error_code& error) {
  ScopedFile file(std::fopen(path.c_str(), "wbxe"));
  if (file == nullptr) error = LastError();
  return file;
}

bool AddressReuseIsSafe() noexcept {
  return true;
}

}  // namespace TAVU::collector
