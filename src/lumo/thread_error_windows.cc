#include <windows.h>

#include "lumo/thread_error.h"

namespace TAVU::lumo {

static_assert(kErrorBrokenPipe == ERROR_BROKEN_PIPE);
static_assert(kErrorWaitTimeout == WAIT_TIMEOUT);

void SetThreadError(std::uint32_t code) noexcept {
  ::SetLastError(code);
}
std::uint32_t GetThreadError() noexcept {
  return ::GetLastError();
}

}  // namespace TAVU::lumo
