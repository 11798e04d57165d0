// The memory dump: what debuggers open.
#pragma once

#include <string>

#include <windows.h>

namespace TAVU::crash {

// Replaces the file `path` with a dump of this process: thread stacks and module list, no heap, and
// the given exception on the calling thread (null: none). False when DBGHELP.DLL or its function is
// missing, true otherwise, whether or not the dump could be written.
bool WriteMiniDump(EXCEPTION_POINTERS* exceptionPointers, const std::wstring& path) noexcept;

}  // namespace TAVU::crash
