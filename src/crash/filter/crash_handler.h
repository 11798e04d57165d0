// The one crash handler of the process: who installed it, and what all instances share of it.
#pragma once

#include <array>
#include <cstddef>
#include <string>

#include <windows.h>

#include "api/frame/instance_registry.h"
#include "base/singleton.h"
#include "tavu/tavu.h"

namespace TAVU::crash {

inline constexpr std::size_t kAdditionalInfoCapacity = 4096;  // units, terminator included

// Host functions that fill a buffer with the text of "custom_info", by their names in here.
using CustomInfoCallbackW = TAVU_CustumInfoCallbackW;
using CustomInfoCallbackA = TAVU_CustumInfoCallbackA;

// Every field is read and written under the ApiLock, the crash sequence included. Made on first
// use; at process exit only its memory goes: neither the filter nor the guarded entry is undone.
struct CrashHandler {
  [[nodiscard]] static CrashHandler& Get() { return base::Singleton<CrashHandler>::Get(); }

  std::wstring appExeFile;    // base name of the host's executable; set by a successful start
  std::wstring reporterPath;  // folder of the crash reporter; a start sets it to the host's folder
  std::wstring tempPath;      // ends in a backslash
  LPTOP_LEVEL_EXCEPTION_FILTER previousFilter = nullptr;  // null while not installed
  api::Handle ownerHandle = 0;                            // 0: no instance owns the handler

  HMODULE versionLibrary = nullptr;  // loaded only while a crash document is built
  FARPROC getFileVersionInfoSizeW = nullptr;
  FARPROC getFileVersionInfoW = nullptr;
  FARPROC verQueryValueW = nullptr;

  CustomInfoCallbackW customInfoCallbackW = nullptr;  // at most one of the two is set
  CustomInfoCallbackA customInfoCallbackA = nullptr;
  std::array<wchar_t, kAdditionalInfoCapacity> additionalInfo = {};  // terminated; "" for none

  // The first 9 bytes of SetUnhandledExceptionFilter; there is room for 100.
  std::array<std::byte, 100> savedEntryBytes = {};
  bool entryPatched = false;
};

}  // namespace TAVU::crash
