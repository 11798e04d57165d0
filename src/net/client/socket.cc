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

base::ScopedHandle NewEvent() noexcept {
  return base::ScopedHandle(::CreateEventW(nullptr, TRUE, FALSE, nullptr));
}

// The socket stays non-blocking.
bool UndoSelection(SOCKET socket) noexcept {
  return ::WSAEventSelect(socket, nullptr, 0) == 0;
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

// Waits for the end of a connect that is under way, in a wait that runs no APC of the host's.
std::uint32_t AwaitConnection(SOCKET socket, HANDLE ended, DWORD timeout_ms) noexcept {
  const DWORD wait = ::WaitForSingleObject(ended, timeout_ms);
  if (wait == WAIT_TIMEOUT) return base::kErrorWaitTimeout;
  WSANETWORKEVENTS events = {};
  if (wait != WAIT_OBJECT_0 || ::WSAEnumNetworkEvents(socket, ended, &events) != 0) {
    return NetworkError();
  }
  if ((events.lNetworkEvents & FD_CONNECT) == 0) return WSAENOTCONN;
  return static_cast<std::uint32_t>(events.iErrorCode[FD_CONNECT_BIT]);
}

// Leaves the socket non-blocking when it fails.
std::uint32_t ConnectWithin(SOCKET socket, const sockaddr_in& address, DWORD timeout_ms) noexcept {
  const base::ScopedHandle ended = NewEvent();
  // The selection makes the socket non-blocking.
  if (!ended || ::WSAEventSelect(socket, ended.get(), FD_CONNECT) != 0) return NetworkError();
  std::uint32_t result = Connect(socket, address);
  if (result == WSAEWOULDBLOCK) result = AwaitConnection(socket, ended.get(), timeout_ms);
  if (result == kConnected && !(UndoSelection(socket) && SetBlockingMode(socket, true))) {
    result = NetworkError();
  }
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

// Any system takes as much at once while it holds nothing of a connection yet.
constexpr std::size_t kAlwaysTaken = 4096;

// These tell of an earlier datagram, to a port where nobody listened.
bool IsRefusal(std::uint32_t error) noexcept {
  return error == WSAECONNRESET || error == WSAECONNREFUSED;
}

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
    return ConnectWithin(socket, address, timeout_ms < 0 ? INFINITE : DWORD(timeout_ms));
  });
}

ScopedSocket OpenUdpSocket(const char* host, std::uint16_t port) noexcept {
  return Open(SOCK_DGRAM, host, port, Connect);
}

void Socket::Adopt(ScopedSocket socket, Protocol protocol,
                   std::uint32_t receive_timeout_ms) noexcept {
  *this = Socket();
  socket_ = std::move(socket);
  protocol_ = protocol;
  receive_timeout_ms_ = receive_timeout_ms;
}

bool Socket::SetLinger(bool on, std::uint16_t seconds) noexcept {
  const linger option = {.l_onoff = static_cast<u_short>(on ? 1 : 0), .l_linger = seconds};
  return ::setsockopt(socket_.get(), SOL_SOCKET, SO_LINGER, reinterpret_cast<const char*>(&option),
                      sizeof option) == 0;
}

std::ptrdiff_t Socket::Send(const std::byte* data, std::size_t size) noexcept {
  if (!is_open()) return 0;
  // A blocking send would wait where the host's APCs run and, under Wine, for ever once the peer is
  // gone. The first one finds room, so that a log record is spared two changes of the mode.
  const bool finds_room = sends_ == 0 && size <= kAlwaysTaken;
  if (!finds_room) SetBlocking(false);
  send_failed_ = false;
  for (;;) {
    const auto length = static_cast<int>(std::min<std::size_t>(size, INT_MAX));
    const int sent = ::send(socket_.get(), reinterpret_cast<const char*>(data), length, 0);
    if (sent != SOCKET_ERROR) {
      ++sends_;
      return sent;
    }
    const std::uint32_t error = NetworkError();
    if (TakeRefusal(error) || (error == WSAEWOULDBLOCK && AwaitRoom())) continue;
    if (error == WSAEWOULDBLOCK || MeansNoSocket(error)) return 0;
    Unselect();
    SetBlocking(false);
    send_failed_ = true;
    base::SetThreadError(error);
    return -1;
  }
}

// Waits as long as the peer takes nothing, asleep. The first call only selects: the event tells of
// room that comes after a send was refused under the selection.
bool Socket::AwaitRoom() noexcept {
  if (!room_) {
    room_ = NewEvent();
    blocking_ = false;  // by the selection
    return room_ && ::WSAEventSelect(socket_.get(), room_.get(), FD_WRITE | FD_CLOSE) == 0;
  }
  WSANETWORKEVENTS events = {};
  return ::WaitForSingleObject(room_.get(), INFINITE) == WAIT_OBJECT_0 &&
         ::WSAEnumNetworkEvents(socket_.get(), room_.get(), &events) == 0;
}

// True when the error belongs to an earlier datagram, each of which can be refused once.
bool Socket::TakeRefusal(std::uint32_t error) noexcept {
  if (protocol_ != Protocol::kUdp || !IsRefusal(error) || refusals_ == sends_) return false;
  ++refusals_;
  return true;
}

void Socket::EndSends() noexcept {
  if (!send_failed_) SetBlocking(true);
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
  Forget();
  return true;
}

void Socket::Forget() noexcept {
  static_cast<void>(socket_.Release());
  *this = Socket();
}

void Socket::Unselect() noexcept {
  if (room_) UndoSelection(socket_.get());
  room_.Reset();
}

void Socket::SetBlocking(bool blocking) noexcept {
  if (blocking) Unselect();
  if (blocking_ != blocking && SetBlockingMode(socket_.get(), blocking)) blocking_ = blocking;
}

}  // namespace TAVU::QTC
