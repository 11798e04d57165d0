// The memory dump: what debuggers open.
#pragma once

#include <string>

#include <windows.h>

namespace TAVU::crash {

enum class DumpResult {
  kNoLibrary,   // DBGHELP.DLL or its function is missing
  kNotCreated,  // the file could not be made
  kAttempted,   // whether the dump is whole is not looked at: half of one is better than none
};

// Replaces the file `path` with a dump of this process: thread stacks and module list, no heap, and
// the given exception on the calling thread (null: none). The file is closed in any case, so that
// the reporter can open what is in it.
DumpResult WriteMiniDump(EXCEPTION_POINTERS* exceptionPointers, const std::wstring& path);

}  // namespace TAVU::crash
