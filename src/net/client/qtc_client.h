// A client for remote calls: one connection, one call at a time.
#pragma once

#include <winsock2.h>

#include <cstdint>
#include <memory>

#include "lumo/value/value.h"
#include "net/client/endpoint.h"
#include "net/wire/protocol.h"
#include "net/wire/result_code.h"

namespace TAVU::QTC {

// Life: not open → open (TCP or UDP) → closed. Used by one thread at a time; never throws.
// Texts are narrow and zero-terminated; time-outs are milliseconds. One with the top bit set
// connects without limit, and still bounds every receive; only all-ones bounds no receive either.
class IQtcClient {
 public:
  // Connects within `timeout_ms`, which then bounds every receive. kConnectFailed when that fails,
  // kAlreadyOpen when the client is open (the open connection stays).
  [[nodiscard]] virtual ResultCode OpenTcp(const char* host, std::uint16_t port,
                                           std::uint32_t timeout_ms) noexcept = 0;
  // Makes ready for datagrams to the server; sends none. Codes as OpenTcp.
  [[nodiscard]] virtual ResultCode OpenUdp(const char* host, std::uint16_t port,
                                           std::uint32_t timeout_ms) noexcept = 0;
  // Sends one call; over TCP also reads its reply. kStreamFault: sending failed, or no readable
  // reply came in time. kServerError: the reply is a fault, or no reply at all but another message.
  // Over UDP nothing is read, and kSuccess means that the request was written.
  [[nodiscard]] virtual ResultCode Call(const char* method,
                                        const lumo::Value& argument) noexcept = 0;
  // Ends the connection (over TCP with a reset). Always kSuccess.
  virtual ResultCode Close() noexcept = 0;
  // The open socket, still owned by the client; INVALID_SOCKET when not open.
  [[nodiscard]] virtual SOCKET GetSocket() const noexcept = 0;
  // Destroys the client, and with it the connection.
  virtual void Release() noexcept = 0;

 protected:
  ~IQtcClient() = default;
};

// OpenTcp or OpenUdp, as `protocol` says.
[[nodiscard]] inline ResultCode Open(IQtcClient& client, const Endpoint& server,
                                     Protocol protocol) noexcept {
  return protocol == Protocol::kTcp ? client.OpenTcp(server.host, server.port, server.timeout_ms)
                                    : client.OpenUdp(server.host, server.port, server.timeout_ms);
}

struct ClientRelease {
  void operator()(IQtcClient* client) const noexcept { client->Release(); }
};
using QtcClientPtr = std::unique_ptr<IQtcClient, ClientRelease>;

// Null when memory is exhausted.
[[nodiscard]] QtcClientPtr CreateQtcClient() noexcept;

}  // namespace TAVU::QTC
