// The client over a socket of its own: the one implementation of IQtcClient.
#pragma once

#include "net/client/qtc_client.h"
#include "net/client/socket.h"

namespace TAVU::QTC {

// NOLINTNEXTLINE(cppcoreguidelines-virtual-class-destructor): destroyed by Release only
class VobQtcClientImpl final : public IQtcClient {
 public:
  VobQtcClientImpl() noexcept = default;
  VobQtcClientImpl(const VobQtcClientImpl&) = delete;
  VobQtcClientImpl& operator=(const VobQtcClientImpl&) = delete;

  ResultCode OpenTcp(const char* host, std::uint16_t port,
                     std::uint32_t timeout_ms) noexcept override;
  ResultCode OpenUdp(const char* host, std::uint16_t port,
                     std::uint32_t timeout_ms) noexcept override;
  ResultCode Call(const char* method, const lumo::Value& argument) noexcept override;
  ResultCode Close() noexcept override;
  SOCKET GetSocket() const noexcept override { return socket_.handle(); }
  void Release() noexcept override { delete this; }

 private:
  ~VobQtcClientImpl() = default;

  // Throws std::bad_alloc.
  [[nodiscard]] ResultCode Exchange(const char* method, const lumo::Value& argument);

  WinSock winsock_;  // outlives the socket; whether it started shows when a socket is opened
  Socket socket_;
  Protocol protocol_ = Protocol::kUdp;  // of the last successful open
};

}  // namespace TAVU::QTC
