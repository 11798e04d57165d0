// Names of exception codes, as the crash document gives them.
#pragma once

#include <windows.h>

namespace TAVU::crash {

// "UNKNOWN_EXCEPTION" for a code that has no name.
[[nodiscard]] const wchar_t* GetExceptionName(DWORD code) noexcept;

}  // namespace TAVU::crash
