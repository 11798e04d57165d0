// The guard that keeps the crash filter in place: the entry of kernel32's
// SetUnhandledExceptionFilter is overwritten with a jump to a function that does nothing, so that
// no later caller in the process (the C runtime, another library, the host) replaces the filter.
#pragma once

#include <windows.h>

namespace TAVU::crash {

// Where the jump leads: ignores its argument and returns null.
LPTOP_LEVEL_EXCEPTION_FILTER WINAPI
DummySetUnhandledExceptionFilter(LPTOP_LEVEL_EXCEPTION_FILTER ignored) noexcept;

// Overwrites the entry, keeping its bytes in the CrashHandler, and writes them back. Both need the
// ApiLock and return what WriteProcessMemory returned (nonzero for success), or 0 when they could
// not start. Other threads are not suspended: one that calls the function in the moment of the
// write is not guarded against. May throw what CrashHandler::Get() throws.
[[nodiscard]] BOOL PatchSetUnhandledExceptionFilter();
[[nodiscard]] BOOL RestoreSetUnhandledExceptionFilter();

}  // namespace TAVU::crash
