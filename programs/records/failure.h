// What ends the program: no server, no stream, a full disk.
#pragma once

#include <stdexcept>
#include <string>

#include "nats_handles.h"
#include "platform.h"

namespace TAVU::records {

class Failure : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

inline void Require(natsStatus status, const std::string& what) {
  if (status != NATS_OK) throw Failure(what + ": " + collector::NatsReason(status));
}

// Of the system's last call.
[[noreturn]] inline void FailBySystem(const std::string& what) {
  throw Failure(what + ": " + collector::LastError().message());
}

}  // namespace TAVU::records
