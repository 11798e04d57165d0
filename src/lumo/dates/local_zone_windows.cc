#include <windows.h>

#include "lumo/dates/local_zone.h"

namespace TAVU::lumo {

std::int32_t LocalZoneOffset() noexcept {
  TIME_ZONE_INFORMATION zone = {};
  if (::GetTimeZoneInformation(&zone) == TIME_ZONE_ID_INVALID) return 0;
  return std::int32_t{zone.Bias} * 60;
}

}  // namespace TAVU::lumo
