// TAVU_SendLog_*.
#include <optional>
#include <string>

#include "api/exports/send_export.h"
#include "api/frame/host_text.h"
#include "delivery/log_sender.h"
#include "delivery/record_fields.h"
#include "tavu/tavu.h"

namespace TAVU::api {

namespace {

template <typename Char>
std::optional<std::string> OptionalUtf8(const Char* text) {
  if (text == nullptr) return std::nullopt;
  return ToUtf8(text, TextForm::kRaw);
}

template <typename Char>
bool SendLog(QTC::Protocol protocol, PinWithoutServer pin, TAVU_HANDLE handle, int32_t level,
             const Char* logType, const Char* extraData, const Char* message) noexcept {
  return RunExport(ErrorCode::kCallFailed, [&](const ApiLock::Guard& held) {
    if (IsNullOrEmpty(logType)) return Fail(ErrorCode::kInvalidArgument);
    if (IsNullOrEmpty(message)) return Fail(ErrorCode::kInvalidArgument);
    if (!delivery::IsLevel(level)) return Fail(ErrorCode::kInvalidArgument);
    return SendFor(held, handle, pin, [&](InstanceRecord& instance) {
      const delivery::LogLine line = {.level = level,
                                      .logType = ToUtf8(logType, TextForm::kPercentEncoded),
                                      .extraData = OptionalUtf8(extraData),
                                      .message = ToUtf8(message, TextForm::kPercentEncoded)};
      return delivery::SendLog(held, instance, line, protocol);
    });
  });
}

}  // namespace

}  // namespace TAVU::api

using TAVU::api::PinWithoutServer;
using TAVU::QTC::Protocol;

TAVU_BOOL TAVU_CALL TAVU_SendLog_TCPA(TAVU_HANDLE handle, int32_t level, const char* logType,
                                      const char* extraData, const char* message) {
  return TAVU::api::SendLog(Protocol::kTcp, PinWithoutServer::kRelease, handle, level, logType,
                            extraData, message);
}

TAVU_BOOL TAVU_CALL TAVU_SendLog_TCPW(TAVU_HANDLE handle, int32_t level, const wchar_t* logType,
                                      const wchar_t* extraData, const wchar_t* message) {
  // This one of the four leaves the pin when there is no server: a host that destroys the handle
  // right after this failure and goes on using it finds it valid until its second TAVU_Destroy.
  return TAVU::api::SendLog(Protocol::kTcp, PinWithoutServer::kKeep, handle, level, logType,
                            extraData, message);
}

TAVU_BOOL TAVU_CALL TAVU_SendLog_UDPA(TAVU_HANDLE handle, int32_t level, const char* logType,
                                      const char* extraData, const char* message) {
  return TAVU::api::SendLog(Protocol::kUdp, PinWithoutServer::kRelease, handle, level, logType,
                            extraData, message);
}

TAVU_BOOL TAVU_CALL TAVU_SendLog_UDPW(TAVU_HANDLE handle, int32_t level, const wchar_t* logType,
                                      const wchar_t* extraData, const wchar_t* message) {
  return TAVU::api::SendLog(Protocol::kUdp, PinWithoutServer::kRelease, handle, level, logType,
                            extraData, message);
}
