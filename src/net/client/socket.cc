#include "net/client/socket.h"

#include <algorithm>
#include <climits>
#include <cstring>
#include <optional>
#include <utility>

#include "base/slim_lock.h"
#include "base/thread_error.h"

namespace TAVU::QTC {

namespace {

constexpr WORD kWinSockVersion = MAKEWORD(2, 0);

constexpr std::uint32_t kConnected = 0;

// The code of the call that has just failed; not 0.
std::uint32_t NetworkError() noexcept {
  const int error = ::WSAGetLastError();
  return error != 0 ? static_cast<std::uint32_t>(error) : WSASYSCALLFAILURE;
}

bool SetBlockingMode(SOCKET socket, bool blocking) noexcept {
  u_long non_blocking = blocking ? 0 : 1;
  return ::ioctlsocket(socket, static_cast<long>(FIONBIO), &non_blocking) == 0;
}

// Not inherited by the programs that the host starts meanwhile: they would keep the connection
// open. Systems older than the flag for that get an ordinary socket.
ScopedSocket NewSocket(int type) noexcept {
  ScopedSocket made(
      ::WSASocketW(AF_INET, type, 0, nullptr, 0, WSA_FLAG_OVERLAPPED | WSA_FLAG_NO_HANDLE_INHERIT));
  if (!made && ::WSAGetLastError() == WSAEINVAL) made = ScopedSocket(::socket(AF_INET, type, 0));
  return made;
}

fd_set OnlyThis(SOCKET socket) noexcept {
  fd_set set = {};
  set.fd_count = 1;
  set.fd_array[0] = socket;
  return set;
}

timeval TimevalOf(std::uint32_t milliseconds) noexcept {
  return {.tv_sec = static_cast<long>(milliseconds / 1000),
          .tv_usec = static_cast<long>(milliseconds % 1000 * 1000)};
}

// The address of a dotted address or a name. On failure the network error tells why.
std::optional<in_addr> Resolve(const char* host) noexcept {
  in_addr address = {};
  // The value for "no address" is also that of 255.255.255.255, which is therefore looked up as if
  // it were a name.
  address.s_addr = ::inet_addr(host);
  if (address.s_addr != INADDR_NONE) return address;
  const hostent* entry = ::gethostbyname(host);
  if (entry == nullptr) return std::nullopt;
  if (entry->h_addr_list == nullptr || entry->h_addr_list[0] == nullptr) {
    ::WSASetLastError(WSANO_DATA);
    return std::nullopt;
  }
  const auto length = static_cast<std::size_t>(std::max<short>(entry->h_length, 0));
  std::memcpy(&address, entry->h_addr_list[0], std::min(length, sizeof address));
  return address;
}

// This and the following: kConnected, or the code that tells why not.
std::uint32_t Connect(SOCKET socket, const sockaddr_in& address) noexcept {
  const auto* generic = reinterpret_cast<const sockaddr*>(&address);
  return ::connect(socket, generic, sizeof address) == 0 ? kConnected : NetworkError();
}

// Waits for the end of a connect that is under way.
std::uint32_t AwaitConnection(SOCKET socket, std::uint32_t timeout_ms) noexcept {
  fd_set connected = OnlyThis(socket);
  fd_set failed = OnlyThis(socket);
  timeval timeout = TimevalOf(timeout_ms);
  const int ready = ::select(0, nullptr, &connected, &failed, &timeout);
  if (ready == SOCKET_ERROR) return NetworkError();
  if (ready == 0) return base::kErrorWaitTimeout;
  if (failed.fd_count == 0) return kConnected;
  int error = 0;
  int size = sizeof error;
  if (::getsockopt(socket, SOL_SOCKET, SO_ERROR, reinterpret_cast<char*>(&error), &size) != 0) {
    return NetworkError();
  }
  return error != 0 ? static_cast<std::uint32_t>(error) : WSAENOTCONN;
}

std::uint32_t ConnectWithin(SOCKET socket, const sockaddr_in& address,
                            std::uint32_t timeout_ms) noexcept {
  if (!SetBlockingMode(socket, false)) return NetworkError();
  std::uint32_t result = Connect(socket, address);
  if (result == WSAEWOULDBLOCK) result = AwaitConnection(socket, timeout_ms);
  if (result == kConnected && !SetBlockingMode(socket, true)) result = NetworkError();
  return result;
}

template <typename Connector>
std::uint32_t ConnectTo(SOCKET socket, const char* host, std::uint16_t port,
                        Connector connect) noexcept {
  if (host == nullptr) return WSAHOST_NOT_FOUND;
  const std::optional<in_addr> resolved = Resolve(host);
  if (!resolved) return NetworkError();
  sockaddr_in address = {};
  address.sin_family = AF_INET;
  address.sin_port = ::htons(port);
  address.sin_addr = *resolved;
  return connect(socket, address);
}

// A socket of `type`, connected; or none, and the thread error tells why.
template <typename Connector>
ScopedSocket Open(int type, const char* host, std::uint16_t port, Connector connect) noexcept {
  ScopedSocket socket = NewSocket(type);
  if (!socket) return socket;
  const std::uint32_t result = ConnectTo(socket.get(), host, port, connect);
  if (result == kConnected) return socket;
  socket.Reset();
  base::SetThreadError(result);  // last: the closing must not hide it
  return socket;
}

// Start-up and clean-up one at a time. Windows counts them safely by itself, but under Wine a
// clean-up that is the last one forgets the sockets that another thread makes meanwhile.
constinit base::SlimLock startup_lock;

// What is left of the pieces of a send.
class UnsentPieces {
 public:
  explicit UnsentPieces(std::span<const std::span<const std::byte>> pieces) noexcept
      : pieces_(pieces) {
    SkipEmpty();
  }

  [[nodiscard]] bool empty() const noexcept { return pieces_.empty(); }

  // As much of the rest as one send takes. Valid until the next call.
  [[nodiscard]] std::span<WSABUF> Buffers() noexcept {
    const std::size_t count = std::min(pieces_.size(), std::size(buffers_));
    for (std::size_t i = 0; i < count; ++i) {
      const std::span<const std::byte> piece = pieces_[i].subspan(i == 0 ? offset_ : 0);
      // The system's type is not const, though a send changes nothing.
      auto* data = reinterpret_cast<char*>(const_cast<std::byte*>(piece.data()));
      buffers_[i] = {static_cast<ULONG>(std::min(piece.size(), kLongestBuffer)), data};
      // What is cut off must go out before the next piece.
      if (piece.size() > kLongestBuffer) return {buffers_, i + 1};
    }
    return {buffers_, count};
  }

  void Advance(std::size_t sent) noexcept {
    offset_ += sent;
    SkipEmpty();
  }

 private:
  static constexpr std::size_t kLongestBuffer = 1 << 30;

  void SkipEmpty() noexcept {
    while (!pieces_.empty() && offset_ >= pieces_[0].size()) {
      offset_ -= pieces_[0].size();
      pieces_ = pieces_.subspan(1);
    }
  }

  std::span<const std::span<const std::byte>> pieces_;
  std::size_t offset_ = 0;  // bytes of the first piece that are sent
  WSABUF buffers_[1024];
};

// These say that there is no socket to work on at all.
bool MeansNoSocket(std::uint32_t error) noexcept {
  return error == WSAENOTSOCK || error == WSANOTINITIALISED;
}

}  // namespace

WinSock::WinSock() noexcept {
  const base::SlimLock::Guard guard(startup_lock);
  WSADATA data = {};
  started_ = ::WSAStartup(kWinSockVersion, &data) == 0;
  if (started_ && data.wVersion != kWinSockVersion) {
    ::WSACleanup();
    started_ = false;
  }
}

WinSock::~WinSock() {
  const base::SlimLock::Guard guard(startup_lock);
  // Only what was started: the clean-ups are counted, and one too many would be the host's.
  if (started_) ::WSACleanup();
}

ScopedSocket OpenTcpSocket(const char* host, std::uint16_t port, std::int32_t timeout_ms) noexcept {
  return Open(SOCK_STREAM, host, port, [timeout_ms](SOCKET socket, const sockaddr_in& address) {
    if (timeout_ms < 0) return Connect(socket, address);
    return ConnectWithin(socket, address, static_cast<std::uint32_t>(timeout_ms));
  });
}

ScopedSocket OpenUdpSocket(const char* host, std::uint16_t port) noexcept {
  return Open(SOCK_DGRAM, host, port, Connect);
}

void Socket::Adopt(ScopedSocket socket, std::uint32_t receive_timeout_ms) noexcept {
  socket_ = std::move(socket);
  receive_timeout_ms_ = receive_timeout_ms;
  blocking_ = true;
}

bool Socket::SetLinger(bool on, std::uint16_t seconds) noexcept {
  const linger option = {.l_onoff = static_cast<u_short>(on ? 1 : 0), .l_linger = seconds};
  return ::setsockopt(socket_.get(), SOL_SOCKET, SO_LINGER, reinterpret_cast<const char*>(&option),
                      sizeof option) == 0;
}

std::ptrdiff_t Socket::SendAll(const std::byte* data, std::size_t size) noexcept {
  const std::span<const std::byte> piece(data, size);
  return SendPieces({&piece, 1});
}

std::ptrdiff_t Socket::SendPieces(std::span<const std::span<const std::byte>> pieces) noexcept {
  if (!is_open()) return 0;
  // A blocking send waits in the system for what the peer takes.
  SetBlocking(true);
  std::size_t sent = 0;
  for (UnsentPieces rest(pieces); !rest.empty();) {
    const std::span<WSABUF> buffers = rest.Buffers();
    DWORD count = 0;
    if (::WSASend(socket_.get(), buffers.data(), static_cast<DWORD>(buffers.size()), &count, 0,
                  nullptr, nullptr) == 0) {
      rest.Advance(count);
      sent += count;
      continue;
    }
    const std::uint32_t error = NetworkError();
    if (error == WSAEWOULDBLOCK) {
      // Somebody else changed the mode of the socket: tried again until it goes.
      SetBlockingMode(socket_.get(), true);
      continue;
    }
    if (sent == 0 && MeansNoSocket(error)) return 0;
    SetBlocking(false);  // kept: this is the mode that a failed send leaves behind
    base::SetThreadError(error);
    return -1;
  }
  return static_cast<std::ptrdiff_t>(sent);
}

std::ptrdiff_t Socket::Receive(std::byte* out, std::size_t capacity) noexcept {
  fd_set readable = OnlyThis(socket_.get());
  timeval timeout = TimevalOf(receive_timeout_ms_);
  const bool limited = receive_timeout_ms_ != kNoLimit;
  const int ready = ::select(0, &readable, nullptr, nullptr, limited ? &timeout : nullptr);
  if (ready == SOCKET_ERROR) return -1;
  if (ready == 0) {
    SetBlocking(true);
    base::SetThreadError(base::kErrorWaitTimeout);
    return -1;
  }
  const auto room = static_cast<int>(std::min<std::size_t>(capacity, INT_MAX));
  return ::recv(socket_.get(), reinterpret_cast<char*>(out), room, 0);
}

bool Socket::Close() noexcept {
  if (!is_open() || ::closesocket(socket_.get()) != 0) return false;
  static_cast<void>(socket_.Release());
  return true;
}

void Socket::SetBlocking(bool blocking) noexcept {
  if (blocking_ != blocking && SetBlockingMode(socket_.get(), blocking)) blocking_ = blocking;
}

}  // namespace TAVU::QTC
