#include <ctime>

#include "lumo/dates/local_zone.h"

namespace TAVU::lumo {

std::int32_t LocalZoneOffset() noexcept {
  ::tzset();
  return static_cast<std::int32_t>(::timezone);
}

}  // namespace TAVU::lumo
