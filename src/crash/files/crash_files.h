// The names of the two files that a crash leaves.
#pragma once

#include <string>
#include <string_view>

#include <windows.h>

namespace TAVU::crash {

struct CrashFiles {
  std::wstring dumpPath;
  std::wstring infoPath;
};

// In the folder `tempPath`, after the host executable's base name and the local time of the crash,
// to the second.
[[nodiscard]] CrashFiles NameCrashFiles(std::wstring_view tempPath, std::wstring_view appExeFile,
                                        const SYSTEMTIME& localTime);

}  // namespace TAVU::crash
