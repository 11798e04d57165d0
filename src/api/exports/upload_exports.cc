// TAVU_SendFile* and TAVU_SendCrashInfo*.
//
// No argument but the handle is checked, so that no failure gets another code than the network's or
// the files'. A null text counts as an empty one and a null path as one that names no file, which
// is kinder than a fault under the ApiLock.
#include <string>

#include "api/exports/send_export.h"
#include "api/frame/host_text.h"
#include "delivery/crash_info_sender.h"
#include "delivery/file_sender.h"
#include "tavu/tavu.h"

namespace TAVU::api {

namespace {

template <typename Char>
bool SendFile(TAVU_HANDLE handle, uint64_t length, const void* data, const Char* description,
              const Char* message) noexcept {
  return RunExport(ErrorCode::kCallFailed, [&](const ApiLock::Guard& held) {
    return SendFor(held, handle, PinWithoutServer::kRelease, [&](InstanceRecord& instance) {
      const delivery::FileUpload upload = {
          .content = {static_cast<const std::byte*>(data), length},
          .description = Utf8OrEmpty(description, TextForm::kRaw),
          .message = Utf8OrEmpty(message, TextForm::kPercentEncoded)};
      return delivery::SendFile(held, instance, upload);
    });
  });
}

template <typename Char>
bool SendCrashInfo(TAVU_HANDLE handle, const Char* message, const Char* description,
                   const Char* documentPath, const Char* dumpPath) noexcept {
  return RunExport(ErrorCode::kCallFailed, [&](const ApiLock::Guard& held) {
    // Without a server the pin stays: a host that destroys the handle right after this failure and
    // goes on using it finds it valid until its second TAVU_Destroy.
    return SendFor(held, handle, PinWithoutServer::kKeep, [&](InstanceRecord& instance) {
      const delivery::CrashUpload upload = {
          .message = Utf8OrEmpty(message, TextForm::kPercentEncoded),
          .description = Utf8OrEmpty(description, TextForm::kRaw),
          .documentPath = WideOrEmpty(documentPath),
          .dumpPath = WideOrEmpty(dumpPath)};
      return delivery::SendCrashInfo(held, instance, upload);
    });
  });
}

}  // namespace

}  // namespace TAVU::api

TAVU_BOOL TAVU_CALL TAVU_SendFileA(TAVU_HANDLE handle, uint64_t length, const void* data,
                                   const char* description, const char* message) {
  return TAVU::api::SendFile(handle, length, data, description, message);
}

TAVU_BOOL TAVU_CALL TAVU_SendFileW(TAVU_HANDLE handle, uint64_t length, const void* data,
                                   const wchar_t* description, const wchar_t* message) {
  return TAVU::api::SendFile(handle, length, data, description, message);
}

TAVU_BOOL TAVU_CALL TAVU_SendCrashInfo(TAVU_HANDLE handle, const char* message,
                                       const char* description, const char* documentPath,
                                       const char* dumpPath) {
  return TAVU::api::SendCrashInfo(handle, message, description, documentPath, dumpPath);
}

TAVU_BOOL TAVU_CALL TAVU_SendCrashInfoW(TAVU_HANDLE handle, const wchar_t* message,
                                        const wchar_t* description, const wchar_t* documentPath,
                                        const wchar_t* dumpPath) {
  return TAVU::api::SendCrashInfo(handle, message, description, documentPath, dumpPath);
}
