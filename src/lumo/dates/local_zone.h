// All that the date code asks of the system.
#pragma once

#include <cstdint>

namespace TAVU::lumo {

// Seconds to add to local standard time to get UTC: negative east of Greenwich. Daylight saving is
// left out, in summer too, so that one zone always writes its dates with one offset. 0 when the
// system does not know. Follows a change of the system's zone from call to call.
[[nodiscard]] std::int32_t LocalZoneOffset() noexcept;

}  // namespace TAVU::lumo
