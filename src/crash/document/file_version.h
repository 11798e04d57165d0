// Version numbers of files.
#pragma once

#include <string>

#include <windows.h>

namespace TAVU::crash {

// Copies the fixed version block of the file `path`, through the functions of the version library
// that the CrashHandler keeps while a crash document is built. False when they are not there, for a
// file without such a block, and for a null `out`. May throw std::bad_alloc.
[[nodiscard]] bool GetFixedFileVersion(const wchar_t* path, VS_FIXEDFILEINFO* out);

// The two words of a version as "1.2.3.4".
[[nodiscard]] std::wstring FileVersionText(DWORD ms, DWORD ls);

}  // namespace TAVU::crash
