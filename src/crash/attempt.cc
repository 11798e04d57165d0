#include "crash/attempt.h"

#include <windows.h>

namespace TAVU::crash {

namespace {

// Throws of this compiler's end here, after the destructors on their way have run. A fault, and a
// throw of another compiler's, passes.
[[gnu::noinline]] void CatchThrows(void (*run)(void*), void* step) {
  try {
    run(step);
  } catch (...) {  // NOLINT(bugprone-empty-catch): nobody is left to hear of it
  }
}

}  // namespace

// Not noexcept, though nothing leaves it: where both stand, this compiler lets a fault run into
// std::terminate before the guard sees it.
void RunInBoundary(void (*run)(void* step), void* step) {
  __try {
    CatchThrows(run, step);
  } __except (EXCEPTION_EXECUTE_HANDLER) {
  }
}

}  // namespace TAVU::crash
