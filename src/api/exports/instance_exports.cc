// Creation and destruction of instances.
#include <memory>
#include <utility>

#include "api/frame/export_frame.h"
#include "api/frame/host_text.h"
#include "crash/crash_handler.h"

namespace TAVU::api {
namespace {

// A letter or digit, then letters, digits and full stops.
template <typename Char>
bool IsVersion(const Char* text) noexcept {
  if (text == nullptr || !IsAsciiLetterOrDigit(*text)) return false;
  while (*++text != 0) {
    if (!IsAsciiLetterOrDigit(*text) && *text != '.') return false;
  }
  return true;
}

TAVU_HANDLE FailWithoutInstance(ErrorCode code) noexcept {
  Fail(code);
  return nullptr;
}

template <typename Char>
TAVU_HANDLE Create(const Char* softwareId, const Char* softwareVer,
                   const Char* appShowName) noexcept {
  return RunExport([&](const ApiLock::Guard& held) {
    if (IsNullOrEmpty(softwareId)) return FailWithoutInstance(ErrorCode::kInvalidArgument);
    if (!IsVersion(softwareVer)) return FailWithoutInstance(ErrorCode::kBadVersion);
    if (IsNullOrEmpty(appShowName)) return FailWithoutInstance(ErrorCode::kInvalidArgument);

    auto record = std::make_unique<InstanceRecord>();
    record->softwareIdUtf8 = ToUtf8(softwareId, TextForm::kRaw);
    record->softwareId = ToWide(softwareId);
    record->softwareVerUtf8 = ToUtf8(softwareVer, TextForm::kRaw);
    record->softwareVer = ToWide(softwareVer);
    record->appShowName = ToWide(appShowName);
    const Handle handle = InstanceRegistry::Get().RegisterInstance(held, std::move(record));
    if (handle == 0) return FailWithoutInstance(ErrorCode::kInvalidArgument);
    return reinterpret_cast<TAVU_HANDLE>(handle);
  });
}

bool Destroy(TAVU_HANDLE handle) noexcept {
  return RunExport([&](const ApiLock::Guard& held) {
    const PinnedInstance instance(held, HandleOf(handle));
    if (!instance) return Fail(ErrorCode::kInvalidHandle);
    // Refused when this instance does not own the crash handler, which is then left alone.
    static_cast<void>(
        crash::CrashHandler::Get(held).installation.Uninstall(held, HandleOf(handle)));
    InstanceRegistry::Get().DropCreationReference(held, &*instance);
    return true;  // and the pin goes: the last one takes the record with it
  });
}

}  // namespace
}  // namespace TAVU::api

TAVU_HANDLE TAVU_CALL TAVU_CreateA(const char* softwareId, const char* softwareVer,
                                   const char* appShowName) {
  return TAVU::api::Create(softwareId, softwareVer, appShowName);
}

TAVU_HANDLE TAVU_CALL TAVU_CreateW(const wchar_t* softwareId, const wchar_t* softwareVer,
                                   const wchar_t* appShowName) {
  return TAVU::api::Create(softwareId, softwareVer, appShowName);
}

TAVU_BOOL TAVU_CALL TAVU_Destroy(TAVU_HANDLE handle) {
  return TAVU::api::Destroy(handle);
}
