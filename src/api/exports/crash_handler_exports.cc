// Start and stop of the crash handler, and what the whole process shares of it.
#include <windows.h>

#include <cstdlib>
#include <cwchar>
#include <optional>
#include <string>
#include <utility>

#include "api/frame/export_frame.h"
#include "api/frame/host_text.h"
#include "crash/filter/crash_filter.h"
#include "crash/filter/crash_handler.h"
#include "crash/filter/filter_installation.h"

namespace TAVU::api {
namespace {

using crash::CrashHandler;

struct HostPaths {
  std::wstring executable;  // base name, without folder and extension
  std::wstring folder;      // of the executable, drive included; ends in a backslash
  std::wstring temporary;   // ends in a backslash
};

// Nothing when the system cannot tell. May throw std::bad_alloc.
std::optional<HostPaths> FindHostPaths() {
  constexpr std::size_t kCapacity = MAX_PATH + 1;
  wchar_t path[kCapacity] = {};
  if (::GetModuleFileNameW(nullptr, path, kCapacity) == 0) return std::nullopt;
  wchar_t drive[kCapacity] = {};
  wchar_t folder[kCapacity] = {};
  wchar_t name[kCapacity] = {};
  if (::_wsplitpath_s(path, drive, kCapacity, folder, kCapacity, name, kCapacity, nullptr, 0) !=
      0) {
    return std::nullopt;
  }
  wchar_t temporary[kCapacity] = {};
  if (::GetTempPathW(kCapacity, temporary) == 0) return std::nullopt;
  return HostPaths{name, std::wstring(drive) + folder, temporary};
}

// For what any instance may set for the whole process: runs body(the crash handler) if the handle
// is valid.
template <typename Body>
bool ChangeCrashHandler(TAVU_HANDLE handle, Body&& body) noexcept {
  return RunExport([&](const ApiLock::Guard& held) {
    const PinnedInstance instance(held, HandleOf(handle));
    if (!instance) return Fail(ErrorCode::kInvalidHandle);
    body(CrashHandler::Get());
    return true;
  });
}

template <typename Char>
bool SetReporterPath(TAVU_HANDLE handle, const Char* folder) noexcept {
  return ChangeCrashHandler(
      handle, [&](CrashHandler& handler) { handler.reporterPath = WideOrEmpty(folder); });
}

bool SetInfoCallbacks(TAVU_HANDLE handle, TAVU_CustumInfoCallbackW wide,
                      TAVU_CustumInfoCallbackA narrow) noexcept {
  return ChangeCrashHandler(handle, [&](CrashHandler& handler) {
    handler.customInfoCallbackW = wide;
    handler.customInfoCallbackA = narrow;
  });
}

// The array is zeros by now and `text` not null. Nothing is written behind the last but one unit: a
// copy that stops there, or at a byte that the locale refuses, is terminated all the same.
void CopyInfo(const char* text, wchar_t* info) noexcept {
  static_cast<void>(std::mbstowcs(info, text, crash::kAdditionalInfoCapacity - 1));
}

void CopyInfo(const wchar_t* text, wchar_t* info) noexcept {
  static_cast<void>(std::wcsncpy(info, text, crash::kAdditionalInfoCapacity - 1));
}

template <typename Char>
bool UpdateAdditionalInfo(TAVU_HANDLE handle, const Char* text) noexcept {
  return ChangeCrashHandler(handle, [&](CrashHandler& handler) {
    handler.additionalInfo.fill(0);
    if (text != nullptr) CopyInfo(text, handler.additionalInfo.data());
  });
}

bool StartCrashHandler(TAVU_HANDLE handle) noexcept {
  return RunExport([&](const ApiLock::Guard& held) {
    PinnedInstance instance(held, HandleOf(handle));
    if (!instance) return Fail(ErrorCode::kInvalidHandle);
    std::optional<HostPaths> paths = FindHostPaths();
    if (!paths) {
      instance.KeepPinned();  // required: after this failure the handle outlives its destruction
      return Fail(ErrorCode::kModulePath);
    }
    // A refusal leaves the code that the installation has set, or none.
    if (!crash::InstallCrashFilter(HandleOf(handle), &crash::CrashFilter)) return false;
    CrashHandler& handler = CrashHandler::Get();
    handler.appExeFile = std::move(paths->executable);
    // Required: a folder that the host chose before gives way; one chosen from now on counts.
    handler.reporterPath = std::move(paths->folder);
    handler.tempPath = std::move(paths->temporary);
    return true;
  });
}

bool StopCrashHandler(TAVU_HANDLE handle) noexcept {
  return RunExport([&](const ApiLock::Guard& held) {
    const PinnedInstance instance(held, HandleOf(handle));
    if (!instance) return Fail(ErrorCode::kInvalidHandle);
    return crash::UninstallCrashFilter(HandleOf(handle));  // required: a refusal sets no code
  });
}

}  // namespace
}  // namespace TAVU::api

TAVU_BOOL TAVU_CALL TAVU_StartCrashHandler(TAVU_HANDLE handle) {
  return TAVU::api::StartCrashHandler(handle);
}

TAVU_BOOL TAVU_CALL TAVU_StopCrashHandler(TAVU_HANDLE handle) {
  return TAVU::api::StopCrashHandler(handle);
}

TAVU_BOOL TAVU_CALL TAVU_SetCustumCrashReporterPathA(TAVU_HANDLE handle, const char* folder) {
  return TAVU::api::SetReporterPath(handle, folder);
}

TAVU_BOOL TAVU_CALL TAVU_SetCustumCrashReporterPathW(TAVU_HANDLE handle, const wchar_t* folder) {
  return TAVU::api::SetReporterPath(handle, folder);
}

TAVU_BOOL TAVU_CALL TAVU_SetCustumInfoCallbackA(TAVU_HANDLE handle,
                                                TAVU_CustumInfoCallbackA callback) {
  return TAVU::api::SetInfoCallbacks(handle, nullptr, callback);
}

TAVU_BOOL TAVU_CALL TAVU_SetCustumInfoCallbackW(TAVU_HANDLE handle,
                                                TAVU_CustumInfoCallbackW callback) {
  return TAVU::api::SetInfoCallbacks(handle, callback, nullptr);
}

TAVU_BOOL TAVU_CALL TAVU_UpdateAdditionalCrashInfoA(TAVU_HANDLE handle, const char* text) {
  return TAVU::api::UpdateAdditionalInfo(handle, text);
}

TAVU_BOOL TAVU_CALL TAVU_UpdateAdditionalCrashInfoW(TAVU_HANDLE handle, const wchar_t* text) {
  return TAVU::api::UpdateAdditionalInfo(handle, text);
}
