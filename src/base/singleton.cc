#include "base/singleton.h"

#include <stdexcept>

namespace TAVU::base {

void ThrowDeadReference() {
  throw std::logic_error("[Corvane::KTL::Singleton] Dead reference detected.");
}

}  // namespace TAVU::base
