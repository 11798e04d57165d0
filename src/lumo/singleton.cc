#include "lumo/singleton.h"

#include <stdexcept>

namespace TAVU::lumo {

void ThrowDeadReference() {
  throw std::logic_error("[Corvane::KTL::Singleton] Dead reference detected.");
}

}  // namespace TAVU::lumo
