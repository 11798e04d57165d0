// What happens when the host crashes: two files, the crash reporter, the restart.
#pragma once

#include <windows.h>

namespace TAVU::crash {

// The top-level exception filter. Runs on the failing thread of a broken process, on what is left
// of its stack, and holds the ApiLock from beginning to end, the wait for the reporter included: a
// crash while another thread is inside an export waits until that export returns, and one on a
// thread that is inside an export itself never gets through.
//
// Nothing throws past this point, no result is tested, nothing is reported or retried, and each
// step stands alone: one that fails, runs out of memory or faults costs its own piece only. A
// host's callback that crashes is such a step too.
//
// Stack: large buffers are static (the lock makes them one thread's own), so that the filter's own
// frames stay below two kilobytes. What the system's functions need counts: under Wine a crash gets
// through with 37 KiB left above the three pages that the system keeps for itself at a stack's end;
// nearly all of it goes to MiniDumpWriteDump.
//
// Always EXCEPTION_EXECUTE_HANDLER: the system then ends the process. The earlier filter is not
// called.
LONG WINAPI CrashFilter(EXCEPTION_POINTERS* exceptionPointers) noexcept;

}  // namespace TAVU::crash
