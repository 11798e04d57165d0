// TAVU_LUADUMP_*. They take no ApiLock, know no instance and leave no code: their results are all
// that they report.
#include <memory>
#include <optional>
#include <string>

#include "api/frame/host_text.h"
#include "delivery/lua_dump.h"
#include "tavu/tavu.h"

namespace TAVU::api {

namespace {

using delivery::LuaDump;
using delivery::LuaDumpSender;

LuaDumpSender* SenderOf(TAVU_LUADUMP_SENDER sender) noexcept {
  return reinterpret_cast<LuaDumpSender*>(sender);
}

template <typename Char>
bool SendLuaDump(TAVU_LUADUMP_SENDER sender, uint32_t dumpNumber, int64_t softwareIdNumber,
                 uint32_t softwareVerNumber, const Char* message, const Char* dump,
                 const Char* user, const Char* extra) noexcept {
  if (sender == nullptr || message == nullptr || dump == nullptr || extra == nullptr) return false;
  try {
    LuaDump record = {.dumpNumber = dumpNumber,
                      .softwareIdNumber = softwareIdNumber,
                      .softwareVerNumber = softwareVerNumber,
                      .message = ToUtf8(message, TextForm::kPercentEncoded),
                      .dump = ToUtf8(dump, TextForm::kRaw),
                      .user = std::nullopt,
                      .extra = ToUtf8(extra, TextForm::kPercentEncoded)};
    if (user != nullptr) record.user = ToUtf8(user, TextForm::kPercentEncoded);
    return SenderOf(sender)->Post(record);
  } catch (...) {
    return false;  // memory is exhausted
  }
}

}  // namespace

}  // namespace TAVU::api

TAVU_LUADUMP_SENDER TAVU_CALL TAVU_LUADUMP_Create(const char* host, uint16_t port,
                                                  TAVU_FLAG discardPendingOnStop) {
  if (host == nullptr || port == 0) return nullptr;
  const auto pending = discardPendingOnStop != 0 ? TAVU::QTC::PendingOnStop::kDiscard
                                                 : TAVU::QTC::PendingOnStop::kDeliver;
  return reinterpret_cast<TAVU_LUADUMP_SENDER>(
      TAVU::delivery::LuaDumpSender::Create(host, port, pending).release());
}

TAVU_BOOL TAVU_CALL TAVU_LUADUMP_Destroy(TAVU_LUADUMP_SENDER sender) {
  delete TAVU::api::SenderOf(sender);
  return true;
}

TAVU_BOOL TAVU_CALL TAVU_LUADUMP_SendLuaDumpA(TAVU_LUADUMP_SENDER sender, uint32_t dumpNumber,
                                              int64_t softwareIdNumber, uint32_t softwareVerNumber,
                                              const char* message, const char* dump,
                                              const char* user, const char* extra) {
  return TAVU::api::SendLuaDump(sender, dumpNumber, softwareIdNumber, softwareVerNumber, message,
                                dump, user, extra);
}

TAVU_BOOL TAVU_CALL TAVU_LUADUMP_SendLuaDumpW(TAVU_LUADUMP_SENDER sender, uint32_t dumpNumber,
                                              int64_t softwareIdNumber, uint32_t softwareVerNumber,
                                              const wchar_t* message, const wchar_t* dump,
                                              const wchar_t* user, const wchar_t* extra) {
  return TAVU::api::SendLuaDump(sender, dumpNumber, softwareIdNumber, softwareVerNumber, message,
                                dump, user, extra);
}
