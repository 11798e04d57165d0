#include <windows.h>

#include "base/thread_error.h"

namespace TAVU::base {

static_assert(kErrorBrokenPipe == ERROR_BROKEN_PIPE);
static_assert(kErrorWaitTimeout == WAIT_TIMEOUT);

void SetThreadError(std::uint32_t code) noexcept {
  ::SetLastError(code);
}
std::uint32_t GetThreadError() noexcept {
  return ::GetLastError();
}

}  // namespace TAVU::base
