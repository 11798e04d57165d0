// Starting the crash reporter.
#pragma once

#include <string>

#include <windows.h>

namespace TAVU::crash {

// Each starts `commandLine` in `currentFolder`, inheriting no handles, and returns what
// CreateProcessW returned. The first waits, without limit, until the process ends. When it could
// not be started, both return at once.
BOOL StartProcessAndWait(const std::wstring& currentFolder, std::wstring commandLine) noexcept;
BOOL StartProcess(const std::wstring& currentFolder, std::wstring commandLine) noexcept;

}  // namespace TAVU::crash
