#include "crash/filter/filter_installation.h"

#include "api/frame/export_frame.h"
#include "crash/filter/crash_handler.h"
#include "crash/filter/filter_guard.h"

namespace TAVU::crash {

bool InstallCrashFilter(api::Handle handle, LPTOP_LEVEL_EXCEPTION_FILTER filter) {
  CrashHandler& handler = CrashHandler::Get();
  if (handler.ownerHandle != 0 || handler.previousFilter != nullptr) {
    return api::Fail(api::ErrorCode::kCrashHandler);
  }
  handler.previousFilter = ::SetUnhandledExceptionFilter(filter);
  static_cast<void>(PatchSetUnhandledExceptionFilter());  // unguarded is better than not at all
  // Where no filter was before, this one stays, guarded, but no instance owns it: the start fails,
  // and the public header tells hosts what stays. A second attempt comes here too, because its call
  // above already lands in the guard; the bytes that it has saved as the entry's are then those of
  // the patch itself.
  if (handler.previousFilter == nullptr) return false;
  handler.ownerHandle = handle;
  return true;
}

bool UninstallCrashFilter(api::Handle handle) {
  CrashHandler& handler = CrashHandler::Get();
  if (handle != handler.ownerHandle) return false;
  if (handler.previousFilter == nullptr || handler.ownerHandle == 0) return false;
  // First the entry, so that the next call reaches the real function again.
  static_cast<void>(RestoreSetUnhandledExceptionFilter());
  ::SetUnhandledExceptionFilter(handler.previousFilter);
  handler.previousFilter = nullptr;
  handler.ownerHandle = 0;
  return true;
}

}  // namespace TAVU::crash
