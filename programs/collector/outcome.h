// What became of a request.
#pragma once

#include <cstdint>

namespace TAVU::collector {

enum class Outcome : std::uint8_t {
  kKept,            // printed, attachments stored
  kNotKept,         // a part of it could not be; explained
  kUnacknowledged,  // the stream did not say that it has it, and may have it all the same;
                    // explained
  kRefused,         // no call after all; explained
  kEnded,           // not looked at: the collector has all the records that it was asked for
};
inline constexpr int kOutcomes = 5;

}  // namespace TAVU::collector
