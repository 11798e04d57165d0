#include <windows.h>

#include "lumo/spin_counter_lock.h"

namespace TAVU::lumo {

void YieldThread() noexcept {
  ::SleepEx(0, FALSE);
}

}  // namespace TAVU::lumo
