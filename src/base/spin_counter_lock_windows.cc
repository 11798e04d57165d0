#include <windows.h>

#include "base/spin_counter_lock.h"

namespace TAVU::base {

void YieldThread() noexcept {
  ::SleepEx(0, FALSE);
}

}  // namespace TAVU::base
