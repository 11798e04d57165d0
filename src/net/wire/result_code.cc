#include "net/wire/result_code.h"

namespace TAVU::QTC {

namespace {

struct CodeText {
  ResultCode code;
  const char* text;
};

// Servers' logs and hosts know these texts, spelling included.
constexpr CodeText kCodeTexts[] = {
    {ResultCode::kSuccess, ""},
    {ResultCode::kConnectFailed, "QTC_ERROR_CONNECT_FAIL: Cannot connet server. (maybe timeout?)."},
    {ResultCode::kServerError, "QTC_ERROR_SERVER_REPLY: recieved reply, but ERROR."},
    {ResultCode::kReplyTimeout,
     "QTC_ERROR_REPLY_TIMEOUT: Cannot recevie reply from server in timeout."},
    {ResultCode::kStreamFault, "QTC_ERROR_STREAM_FAULT: send/recv failed. or broken message."},
    {ResultCode::kAlreadyOpen, "QTC_ERROR_ALREADY_OPENED: send/recv on going..."},
};

}  // namespace

const char* ResultText(ResultCode code) noexcept {
  for (const CodeText& entry : kCodeTexts) {
    if (entry.code == code) return entry.text;
  }
  return nullptr;
}

}  // namespace TAVU::QTC
