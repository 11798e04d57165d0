// Start and stop of the crash handler, and what the whole process shares of it.
#include <windows.h>

#include <cstddef>
#include <cstdlib>
#include <string>
#include <utility>

#include "api/frame/export_frame.h"
#include "api/frame/host_text.h"
#include "crash/crash_handler.h"
#include "crash/filter/crash_filter.h"

namespace TAVU::api {
namespace {

using crash::CrashHandler;

struct HostPaths {
  std::wstring executable;  // base name, without folder and extension
  std::wstring folder;      // of the executable, drive included; ends in a backslash
  crash::CrashFiles files;  // in the temporary folder
};

// False when the system cannot tell. May throw std::bad_alloc.
bool FindHostPaths(HostPaths& paths) {
  constexpr std::size_t kCapacity = MAX_PATH + 1;
  wchar_t path[kCapacity] = {};
  if (::GetModuleFileNameW(nullptr, path, kCapacity) == 0) return false;
  wchar_t drive[kCapacity] = {};
  wchar_t folder[kCapacity] = {};
  wchar_t name[kCapacity] = {};
  if (::_wsplitpath_s(path, drive, kCapacity, folder, kCapacity, name, kCapacity, nullptr, 0) !=
      0) {
    return false;
  }
  wchar_t temporary[kCapacity] = {};
  if (::GetTempPathW(kCapacity, temporary) == 0) return false;
  paths.executable = name;
  paths.folder.append(drive).append(folder);
  paths.files = crash::CrashFiles(temporary, name);
  return true;
}

// For what any instance may set for the whole process: runs body(the crash handler) if the handle
// is valid.
template <typename Body>
bool ChangeCrashHandler(TAVU_HANDLE handle, Body&& body) noexcept {
  return RunExport([&](const ApiLock::Guard& held) {
    const PinnedInstance instance(held, HandleOf(handle));
    if (!instance) return Fail(ErrorCode::kInvalidHandle);
    body(CrashHandler::Get(held));
    return true;
  });
}

template <typename Char>
bool SetReporterPath(TAVU_HANDLE handle, const Char* folder) noexcept {
  return ChangeCrashHandler(
      handle, [&](CrashHandler& handler) { handler.reporterPath = WideOrEmpty(folder); });
}

// At most one of the two is not null.
bool SetInfoCallbacks(TAVU_HANDLE handle, TAVU_CustumInfoCallbackW wide,
                      TAVU_CustumInfoCallbackA narrow) noexcept {
  return ChangeCrashHandler(handle, [&](CrashHandler& handler) {
    handler.customInfo.SetWideCallback(wide);
    if (narrow != nullptr) handler.customInfo.SetNarrowCallback(narrow);
  });
}

template <typename Char>
bool UpdateAdditionalInfo(TAVU_HANDLE handle, const Char* text) noexcept {
  return ChangeCrashHandler(handle,
                            [&](CrashHandler& handler) { handler.customInfo.SetText(text); });
}

bool StartCrashHandler(TAVU_HANDLE handle) noexcept {
  return RunExport([&](const ApiLock::Guard& held) {
    PinnedInstance instance(held, HandleOf(handle));
    if (!instance) return Fail(ErrorCode::kInvalidHandle);
    HostPaths paths;
    if (!FindHostPaths(paths)) {
      // Hosts that give the handle up after this failure go on using it, which works once more.
      instance.KeepPinned();
      return Fail(ErrorCode::kModulePath);
    }
    CrashHandler& handler = CrashHandler::Get(held);
    switch (handler.installation.Install(held, HandleOf(handle), &crash::CrashFilter)) {
      case crash::InstallResult::kOccupied:
        return Fail(ErrorCode::kCrashHandler);
      case crash::InstallResult::kOrphaned:
        return false;  // without a code: hosts tell this failure from the others by that
      case crash::InstallResult::kInstalled:
        break;
    }
    handler.appExeFile = std::move(paths.executable);
    // A folder that the host chose before gives way, so that a start always finds the reporter that
    // was shipped beside the executable; one chosen from now on counts.
    handler.reporterPath = std::move(paths.folder);
    handler.files = std::move(paths.files);
    return true;
  });
}

bool StopCrashHandler(TAVU_HANDLE handle) noexcept {
  return RunExport([&](const ApiLock::Guard& held) {
    const PinnedInstance instance(held, HandleOf(handle));
    if (!instance) return Fail(ErrorCode::kInvalidHandle);
    // A refusal sets no code: the code of an earlier failure stays for the host to read.
    return CrashHandler::Get(held).installation.Uninstall(held, HandleOf(handle));
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
