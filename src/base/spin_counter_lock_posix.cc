#include <sched.h>

#include "base/spin_counter_lock.h"

namespace TAVU::base {

void YieldThread() noexcept {
  ::sched_yield();
}

}  // namespace TAVU::base
