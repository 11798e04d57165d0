// What became of a request.
#pragma once

#include <cstdint>

namespace TAVU::collector {

enum class Outcome : std::uint8_t {
  kKept,     // printed, attachments stored
  kNotKept,  // a part of it could not be; explained
  kRefused,  // no call after all; explained
  kEnded,    // not looked at: the collector has all the records that it was asked for
};

}  // namespace TAVU::collector
