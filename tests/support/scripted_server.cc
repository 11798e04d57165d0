#include "support/scripted_server.h"

#include <ws2tcpip.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <utility>

#include "support/threads.h"

namespace TAVU::test {

namespace {

constexpr DWORD kPatience = 60'000;  // milliseconds

[[noreturn]] void Die(const char* what) {
  std::fprintf(stderr, "scripted server: %s failed with %d\n", what, ::WSAGetLastError());
  std::exit(2);
}

// Once and for good. Under Wine the end of the last use and a new beginning on another thread do not
// go together: sockets made in between get lost.
void StartWinSock() {
  static const int result = [] {
    WSADATA data;
    return ::WSAStartup(MAKEWORD(2, 2), &data);
  }();
  if (result != 0) Die("WSAStartup");
}

SOCKET NewSocket(int type) {
  const SOCKET made = ::WSASocketW(AF_INET, type, 0, nullptr, 0, WSA_FLAG_OVERLAPPED);
  if (made == INVALID_SOCKET) Die("WSASocket");
  return made;
}

void SetMode(SOCKET socket, bool non_blocking) {
  u_long mode = non_blocking ? 1 : 0;
  ::ioctlsocket(socket, static_cast<long>(FIONBIO), &mode);
}

sockaddr_in Loopback(std::uint16_t port) {
  sockaddr_in address = {};
  address.sin_family = AF_INET;
  address.sin_port = ::htons(port);
  address.sin_addr.s_addr = ::htonl(INADDR_LOOPBACK);
  return address;
}

std::uint16_t Bind(SOCKET socket, std::uint16_t port) {
  sockaddr_in address = Loopback(port);
  int size = sizeof address;
  if (::bind(socket, reinterpret_cast<sockaddr*>(&address), size) != 0) Die("bind");
  if (::getsockname(socket, reinterpret_cast<sockaddr*>(&address), &size) != 0) Die("getsockname");
  return ::ntohs(address.sin_port);
}

// True when `wanted` was set first, false when `stop` was.
bool WaitUnlessStopped(HANDLE stop, HANDLE wanted) {
  const HANDLE both[] = {stop, wanted};
  return ::WaitForMultipleObjects(2, both, FALSE, INFINITE) == WAIT_OBJECT_0 + 1;
}

// What the server's threads and the test share, and the wait for it.
class Monitor {
 public:
  class Guard {
   public:
    explicit Guard(Monitor& monitor) : monitor_(monitor) {
      ::AcquireSRWLockExclusive(&monitor.lock_);
    }
    ~Guard() {
      ::ReleaseSRWLockExclusive(&monitor_.lock_);
      ::WakeAllConditionVariable(&monitor_.changed_);
    }
    Guard(const Guard&) = delete;
    Guard& operator=(const Guard&) = delete;

   private:
    Monitor& monitor_;
  };

  // With the guard held: waits until `condition` holds or the patience is over.
  template <typename Condition>
  void Wait(const Guard&, Condition condition) {
    const ULONGLONG end = ::GetTickCount64() + kPatience;
    while (!condition()) {
      const ULONGLONG now = ::GetTickCount64();
      if (now >= end) return;
      ::SleepConditionVariableSRW(&changed_, &lock_, static_cast<DWORD>(end - now), 0);
    }
  }

 private:
  SRWLOCK lock_ = SRWLOCK_INIT;
  CONDITION_VARIABLE changed_ = CONDITION_VARIABLE_INIT;
};

// Receives and sends so that an event can end the wait.
class Channel {
 public:
  static constexpr int kStopped = -2;

  Channel(SOCKET socket, HANDLE stop) : socket_(socket), stop_(stop) {
    // Makes the socket non-blocking, too.
    if (::WSAEventSelect(socket_, event_.get(), FD_READ | FD_WRITE | FD_CLOSE) != 0) {
      Die("WSAEventSelect");
    }
  }

  // Bytes received, 0 at an orderly end, -1 on an error, kStopped.
  int Receive(std::byte* out, std::size_t capacity) {
    return Try([&] {
      return ::recv(socket_, reinterpret_cast<char*>(out), static_cast<int>(capacity), 0);
    });
  }

  // All or nothing; false on an error and when stopped.
  bool Send(const std::byte* data, std::size_t size) {
    while (size != 0) {
      const int sent = Try([&] {
        return ::send(socket_, reinterpret_cast<const char*>(data), static_cast<int>(size), 0);
      });
      if (sent < 0) return false;
      data += sent;
      size -= static_cast<std::size_t>(sent);
    }
    return true;
  }

 private:
  template <typename Operation>
  int Try(Operation operation) {
    for (;;) {
      const int count = operation();
      if (count >= 0 || ::WSAGetLastError() != WSAEWOULDBLOCK) return count;
      if (!WaitUnlessStopped(stop_, event_.get())) return kStopped;
      WSANETWORKEVENTS seen;  // the event alone matters: the operation is tried again
      ::WSAEnumNetworkEvents(socket_, event_.get(), &seen);
    }
  }

  SOCKET socket_;
  HANDLE stop_;
  Event event_;
};

// Finds the end of a request while it comes in.
class RequestScanner {
 public:
  // True when `bytes`, all that came so far, hold a whole request.
  bool Scan(const Bytes& bytes) {
    const auto number = [&](std::size_t at) {
      return std::to_integer<std::size_t>(bytes[at]) << 8 |
             std::to_integer<std::size_t>(bytes[at + 1]);
    };
    if (next_ == 0 && bytes.size() >= 4) next_ = std::max<std::size_t>(number(2), 4);
    while (next_ != 0 && !complete_ && bytes.size() >= next_ + 2) {
      const std::size_t packet = number(next_);
      complete_ = packet == 0;
      next_ += 2 + packet;
    }
    return complete_;
  }

 private:
  std::size_t next_ = 0;  // where the next packet's length is; 0 while the header's is not known
  bool complete_ = false;
};

void SetResetOnClose(SOCKET socket) {
  const linger at_once = {.l_onoff = 1, .l_linger = 0};
  ::setsockopt(socket, SOL_SOCKET, SO_LINGER, reinterpret_cast<const char*>(&at_once),
               sizeof at_once);
}

Bytes FromText(const char* digits) {
  Bytes bytes;
  for (; *digits != 0; digits += 2) {
    const char pair[] = {digits[0], digits[1], 0};
    bytes.push_back(static_cast<std::byte>(std::strtoul(pair, nullptr, 16)));
  }
  return bytes;
}

}  // namespace

Bytes SuccessReply() {
  return FromText("cf10000400057201004e7a0000");
}
Bytes FaultReply() {
  return FromText("cf1000040007720100667a4e7a0000");
}

class ScriptedServer::Impl {
 public:
  Impl(Script script, std::uint16_t port) : script_(std::move(script)) {
    StartWinSock();
    listener_ = NewSocket(SOCK_STREAM);
    // Closed connections of a server before it on the same port must not keep the port from this one.
    const int reuse = 1;
    ::setsockopt(listener_, SOL_SOCKET, SO_REUSEADDR, reinterpret_cast<const char*>(&reuse),
                 sizeof reuse);
    port_ = Bind(listener_, port);
    if (::listen(listener_, SOMAXCONN) != 0) Die("listen");
    ::WSAEventSelect(listener_, arrival_.get(), FD_ACCEPT);
    accepting_ = std::make_unique<Thread>([this] { AcceptAll(); });
  }

  ~Impl() {
    stop_.Set();
    accepting_.reset();
    ::closesocket(listener_);
    ResetAll();
    serving_.clear();
  }

  void ResetAll() {
    const Monitor::Guard held(monitor_);
    for (Served& served : served_) served.reset.Set();
    monitor_.Wait(held, [this] {
      return std::all_of(served_.begin(), served_.end(), [](const Served& served) {
        return served.connection.end != ConnectionEnd::kOpen;
      });
    });
  }

  std::uint16_t port_ = 0;
  Event released_{true};
  Monitor monitor_;
  Script script_;            // this and the following: under the monitor
  std::deque<Script> next_;  // for one connection each
  struct Served {
    Connection connection;
    Event reset;
  };
  std::deque<Served> served_;  // elements never move
  std::vector<Bytes> requests_;

 private:
  void AcceptAll() {
    while (WaitUnlessStopped(stop_.get(), arrival_.get())) {
      arrival_.Reset();
      const SOCKET socket = ::accept(listener_, nullptr, nullptr);
      if (socket == INVALID_SOCKET) continue;
      const Monitor::Guard held(monitor_);
      Served& served = served_.emplace_back();
      Script script = script_;
      if (!next_.empty()) {
        script = std::move(next_.front());
        next_.pop_front();
      }
      serving_.push_back(std::make_unique<Thread>(
          [this, socket, &served, script] { Serve(socket, served, script); }));
    }
  }

  void Serve(SOCKET socket, Served& served, const Script& script) {
    Channel channel(socket, served.reset.get());
    const ConnectionEnd end = Play(socket, channel, served, script);
    if (end == ConnectionEnd::kByServer) SetResetOnClose(socket);
    ::closesocket(socket);
    const Monitor::Guard held(monitor_);
    served.connection.end = end;
  }

  ConnectionEnd Play(SOCKET socket, Channel& channel, Served& served, const Script& script) {
    const Act act = script.act;
    if (act == Act::kStopReading) {
      ::WaitForSingleObject(served.reset.get(), INFINITE);
      return ConnectionEnd::kByServer;
    }
    if (act != Act::kAnswerEarly && act != Act::kResetAtOnce) {
      const ConnectionEnd end = Read(channel, served, true);
      if (end != ConnectionEnd::kOpen) return Told(end, channel);
    }
    if (!WaitUnlessStopped(served.reset.get(), released_.get())) return ConnectionEnd::kByServer;
    if (act == Act::kReset || act == Act::kResetAtOnce) return ConnectionEnd::kByServer;
    // A client that is gone while the server sends shows when the server reads.
    if (act == Act::kAnswerByByte) {
      SendByByte(socket, channel, script.reply);
    } else if (act == Act::kAnswerHalf) {
      static_cast<void>(channel.Send(script.reply.data(), script.reply.size() / 2));
    } else if (act != Act::kSilence && act != Act::kClose) {
      static_cast<void>(channel.Send(script.reply.data(), script.reply.size()));
    }
    const bool closes = act == Act::kClose || act == Act::kAnswerThenClose;
    if (closes) ::shutdown(socket, SD_SEND);
    const ConnectionEnd end = Read(channel, served, false);
    return closes && end != ConnectionEnd::kByServer ? ConnectionEnd::kByBoth : Told(end, channel);
  }

  // Under Wine a reset reads as an orderly end when Wine's own server saw it first. A byte sent tells
  // the two apart: a connection that was reset takes none.
  static ConnectionEnd Told(ConnectionEnd end, Channel& channel) {
    const std::byte probe = {};
    if (end != ConnectionEnd::kOrderly || channel.Send(&probe, 1)) return end;
    return ConnectionEnd::kReset;
  }

  // Reads up to the end of a request, or of the connection.
  ConnectionEnd Read(Channel& channel, Served& served, bool to_request) {
    RequestScanner scanner;
    std::vector<std::byte> buffer(256 * 1024);
    for (;;) {
      const int count = channel.Receive(buffer.data(), buffer.size());
      if (count == Channel::kStopped) return ConnectionEnd::kByServer;
      if (count < 0) return ConnectionEnd::kReset;
      if (count == 0) return ConnectionEnd::kOrderly;
      const Monitor::Guard held(monitor_);
      Connection& connection = served.connection;
      connection.received.insert(connection.received.end(), buffer.begin(), buffer.begin() + count);
      if (!connection.complete && scanner.Scan(connection.received)) {
        connection.complete = true;
        requests_.push_back(connection.received);
        if (to_request) return ConnectionEnd::kOpen;
      }
    }
  }

  static void SendByByte(SOCKET socket, Channel& channel, const Bytes& reply) {
    const int at_once = 1;
    ::setsockopt(socket, IPPROTO_TCP, TCP_NODELAY, reinterpret_cast<const char*>(&at_once),
                 sizeof at_once);
    for (const std::byte& byte : reply) {
      if (!channel.Send(&byte, 1)) return;
      ::Sleep(1);  // or the system would hand several over in one receive
    }
  }

  SOCKET listener_ = INVALID_SOCKET;
  Event stop_;
  Event arrival_;
  std::unique_ptr<Thread> accepting_;
  std::vector<std::unique_ptr<Thread>> serving_;  // under the monitor until accepting_ has ended
};

ScriptedServer::ScriptedServer(Script script, std::uint16_t port)
    : impl_(std::make_unique<Impl>(std::move(script), port)) {}
ScriptedServer::~ScriptedServer() = default;

std::uint16_t ScriptedServer::port() const {
  return impl_->port_;
}

void ScriptedServer::SetScript(Script script) {
  const Monitor::Guard held(impl_->monitor_);
  impl_->script_ = std::move(script);
}

void ScriptedServer::Next(Script script) {
  const Monitor::Guard held(impl_->monitor_);
  impl_->next_.push_back(std::move(script));
}

void ScriptedServer::Hold() {
  impl_->released_.Reset();
}
void ScriptedServer::Release() {
  impl_->released_.Set();
}
void ScriptedServer::ResetAll() {
  impl_->ResetAll();
}

std::vector<Bytes> ScriptedServer::WaitForRequests(std::size_t count) {
  const Monitor::Guard held(impl_->monitor_);
  impl_->monitor_.Wait(held, [&] { return impl_->requests_.size() >= count; });
  return impl_->requests_;
}

std::size_t ScriptedServer::WaitForConnections(std::size_t count) {
  const Monitor::Guard held(impl_->monitor_);
  impl_->monitor_.Wait(held, [&] { return impl_->served_.size() >= count; });
  return impl_->served_.size();
}

Connection ScriptedServer::WaitForEnd(std::size_t index) {
  const Monitor::Guard held(impl_->monitor_);
  const auto& served = impl_->served_;
  impl_->monitor_.Wait(held, [&] {
    return served.size() > index && served[index].connection.end != ConnectionEnd::kOpen;
  });
  return served.size() > index ? served[index].connection : Connection{};
}

std::vector<Connection> ScriptedServer::Connections() {
  const Monitor::Guard held(impl_->monitor_);
  std::vector<Connection> all;
  for (const auto& served : impl_->served_) all.push_back(served.connection);
  return all;
}

class DatagramServer::Impl {
 public:
  Impl() {
    StartWinSock();
    socket_ = NewSocket(SOCK_DGRAM);
    const int room = 8 * 1024 * 1024;  // nothing is lost while the reader sleeps
    ::setsockopt(socket_, SOL_SOCKET, SO_RCVBUF, reinterpret_cast<const char*>(&room), sizeof room);
    port_ = Bind(socket_, 0);
    reading_ = std::make_unique<Thread>([this] { Read(); });
  }
  ~Impl() {
    stop_.Set();
    reading_.reset();
    ::closesocket(socket_);
  }

  std::uint16_t port_ = 0;
  Monitor monitor_;
  std::vector<Bytes> datagrams_;  // under the monitor

 private:
  void Read() {
    Channel channel(socket_, stop_.get());
    std::vector<std::byte> buffer(65'536);
    for (;;) {
      const int count = channel.Receive(buffer.data(), buffer.size());
      if (count == Channel::kStopped) return;
      if (count < 0) continue;
      const Monitor::Guard held(monitor_);
      datagrams_.emplace_back(buffer.begin(), buffer.begin() + count);
    }
  }

  SOCKET socket_ = INVALID_SOCKET;
  Event stop_;
  std::unique_ptr<Thread> reading_;
};

DatagramServer::DatagramServer() : impl_(std::make_unique<Impl>()) {}
DatagramServer::~DatagramServer() = default;

std::uint16_t DatagramServer::port() const {
  return impl_->port_;
}

std::vector<Bytes> DatagramServer::WaitForDatagrams(std::size_t count) {
  const Monitor::Guard held(impl_->monitor_);
  impl_->monitor_.Wait(held, [&] { return impl_->datagrams_.size() >= count; });
  return impl_->datagrams_;
}

RefusingPort::RefusingPort() {
  StartWinSock();
  socket_ = NewSocket(SOCK_STREAM);
  port_ = Bind(socket_, 0);
}

RefusingPort::~RefusingPort() {
  ::closesocket(socket_);
}

HangingPort::HangingPort() {
  StartWinSock();
  listener_ = NewSocket(SOCK_STREAM);
  port_ = Bind(listener_, 0);
  if (::listen(listener_, 1) != 0) Die("listen");
  // Connects until one is not taken within a moment.
  while (!hangs_ && waiting_.size() < 64) {
    const SOCKET socket = waiting_.emplace_back(NewSocket(SOCK_STREAM));
    SetMode(socket, true);
    const sockaddr_in address = Loopback(port_);
    ::connect(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address);
    fd_set done;
    fd_set failed;
    FD_ZERO(&done);
    FD_SET(socket, &done);
    failed = done;
    timeval moment = {.tv_sec = 0, .tv_usec = 200'000};
    hangs_ = ::select(0, nullptr, &done, &failed, &moment) == 0;
    if (FD_ISSET(socket, &failed)) return;
  }
}

HangingPort::~HangingPort() {
  for (const SOCKET socket : waiting_) ::closesocket(socket);
  ::closesocket(listener_);
}

}  // namespace TAVU::test
