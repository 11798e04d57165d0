// IPv4 connections to the server, TCP and UDP, on WinSock.
//
// Nothing here throws. A failure is a result; the thread error then tells a time-out (258,
// kErrorWaitTimeout) from the code that the network gave. Each object is used by one thread at a
// time.
#pragma once

#include <winsock2.h>

#include <cstddef>
#include <cstdint>

#include "base/scoped.h"
#include "base/scoped_handle.h"
#include "net/client/endpoint.h"
#include "net/wire/protocol.h"
#include "net/wire/transport.h"

namespace TAVU::QTC {

// WinSock 2.0, started while this lives. It may fail to start: then every socket fails.
class WinSock {
 public:
  WinSock() noexcept;
  ~WinSock();
  WinSock(const WinSock&) = delete;
  WinSock& operator=(const WinSock&) = delete;

  [[nodiscard]] bool started() const noexcept { return started_; }

 private:
  bool started_;
};

struct SocketTraits {
  using Handle = SOCKET;
  static constexpr SOCKET kInvalid = INVALID_SOCKET;
  static void Close(SOCKET socket) noexcept { ::closesocket(socket); }
};
using ScopedSocket = base::Scoped<SocketTraits>;

// A connected TCP socket, or none. A time-out of 0 or more milliseconds bounds the connecting; a
// negative one leaves it to the system. No APC of the thread runs meanwhile. The name look-up in
// front of it is bounded by the system alone. `host` is a dotted address or a name; null fails.
[[nodiscard]] ScopedSocket OpenTcpSocket(const char* host, std::uint16_t port,
                                         std::int32_t timeout_ms) noexcept;

// A UDP socket whose sends go to the server, or none. Nothing is sent here.
[[nodiscard]] ScopedSocket OpenUdpSocket(const char* host, std::uint16_t port) noexcept;

// The connection of one client.
//
// Life: not open → Adopt → open → Close → not open, and again. A request is any number of Send and
// one EndSends. Between requests the socket is in blocking mode, except after a send that failed:
// that leaves it non-blocking until the next request or the next receive that times out.
class Socket final : public Transport {
 public:
  static constexpr std::uint32_t kNoLimit = 0xFFFFFFFF;

  // Takes over `socket`, which must be blocking and new. `receive_timeout_ms` bounds each receive
  // from then on; kNoLimit waits as long as it takes.
  void Adopt(ScopedSocket socket, Protocol protocol, std::uint32_t receive_timeout_ms) noexcept;

  [[nodiscard]] bool is_open() const noexcept { return static_cast<bool>(socket_); }
  // Still owned here; INVALID_SOCKET when not open.
  [[nodiscard]] SOCKET handle() const noexcept { return socket_.get(); }

  // How Close ends a TCP connection: with `on` and 0 seconds by a reset, at once.
  bool SetLinger(bool on, std::uint16_t seconds) noexcept;

  // Waits for room without a time limit: a peer that stops reading holds the caller, asleep, until
  // it reads or the connection ends. No APC of the thread runs meanwhile. 0 when there is no usable
  // socket, -1 when the network refused (whose code is the thread error).
  [[nodiscard]] std::ptrdiff_t Send(const std::byte* data, std::size_t size) noexcept override;
  void EndSends() noexcept;

  // Waits for the first byte within the time-out, which is split into seconds and microseconds.
  // APCs of the thread run in this wait.
  [[nodiscard]] std::ptrdiff_t Receive(std::byte* out, std::size_t capacity) noexcept override;

  // False, and nothing changes, when not open or when the system refuses.
  bool Close() noexcept;
  // Is not open from here on, without closing anything.
  void Forget() noexcept;

 private:
  [[nodiscard]] bool AwaitRoom() noexcept;
  [[nodiscard]] bool TakeRefusal(std::uint32_t error) noexcept;
  void Unselect() noexcept;
  void SetBlocking(bool blocking) noexcept;

  ScopedSocket socket_;
  base::ScopedHandle room_;  // the event of a peer that takes more; only while a request needs it
  Protocol protocol_ = Protocol::kTcp;
  std::uint32_t receive_timeout_ms_ = kNoLimit;
  std::uint64_t sends_ = 0;     // that went well
  std::uint64_t refusals_ = 0;  // of earlier datagrams
  bool blocking_ = true;
  bool send_failed_ = false;  // the last one
};

}  // namespace TAVU::QTC
