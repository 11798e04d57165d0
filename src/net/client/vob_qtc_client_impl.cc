#include "net/client/vob_qtc_client_impl.h"

#include <new>
#include <optional>
#include <string_view>
#include <utility>

#include "net/wire/exchange.h"

namespace TAVU::QTC {

QtcClientPtr CreateQtcClient() noexcept {
  return QtcClientPtr(new (std::nothrow) VobQtcClientImpl);
}

ResultCode VobQtcClientImpl::OpenTcp(const char* host, std::uint16_t port,
                                     std::uint32_t timeout_ms) noexcept {
  if (socket_.is_open()) return ResultCode::kAlreadyOpen;
  ScopedSocket socket = OpenTcpSocket(host, port, static_cast<std::int32_t>(timeout_ms));
  if (!socket) return ResultCode::kConnectFailed;
  socket_.Adopt(std::move(socket), Protocol::kTcp, timeout_ms);
  socket_.SetLinger(true, 0);
  protocol_ = Protocol::kTcp;
  return ResultCode::kSuccess;
}

ResultCode VobQtcClientImpl::OpenUdp(const char* host, std::uint16_t port,
                                     std::uint32_t timeout_ms) noexcept {
  if (socket_.is_open()) return ResultCode::kAlreadyOpen;
  ScopedSocket socket = OpenUdpSocket(host, port);
  if (!socket) return ResultCode::kConnectFailed;
  socket_.Adopt(std::move(socket), Protocol::kUdp, timeout_ms);
  protocol_ = Protocol::kUdp;
  return ResultCode::kSuccess;
}

ResultCode VobQtcClientImpl::Call(const char* method, const lumo::Value& argument) noexcept {
  try {
    return Exchange(method, argument);
  } catch (...) {
    return ResultCode::kStreamFault;  // memory is exhausted: nothing else throws here
  }
}

ResultCode VobQtcClientImpl::Exchange(const char* method, const lumo::Value& argument) {
  const std::string_view name = method == nullptr ? "" : method;
  const bool written = WriteRequest(socket_, name, argument, protocol_);
  socket_.EndSends();
  if (!written) return ResultCode::kStreamFault;
  if (protocol_ == Protocol::kUdp) return ResultCode::kSuccess;
  const std::optional<Answer> answer = ReadReply(socket_);
  if (!answer) return ResultCode::kStreamFault;
  return *answer == Answer::kResult ? ResultCode::kSuccess : ResultCode::kServerError;
}

ResultCode VobQtcClientImpl::Close() noexcept {
  // Should the system refuse to close it, the handle is forgotten all the same.
  if (!socket_.Close()) socket_.Forget();
  return ResultCode::kSuccess;
}

}  // namespace TAVU::QTC
