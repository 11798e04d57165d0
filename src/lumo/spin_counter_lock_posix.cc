#include <sched.h>

#include "lumo/spin_counter_lock.h"

namespace TAVU::lumo {

void YieldThread() noexcept {
  ::sched_yield();
}

}  // namespace TAVU::lumo
