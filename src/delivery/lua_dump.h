// Dumps of a script's state: the record, and the sender that queues it for delivery.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "lumo/value/value.h"
#include "net/client/async_sender.h"

namespace TAVU::delivery {

struct LuaDump {
  std::uint32_t dumpNumber;
  std::int64_t softwareIdNumber;
  std::uint32_t softwareVerNumber;
  std::string message;              // UTF-8, percent-encoded, as user and extra are
  std::string dump;                 // UTF-8 as it is
  std::optional<std::string> user;  // nothing: the host gave none
  std::string extra;
};

// The record as a value that stands alone: it owns all that does not live as long as the library.
// Throws base::BadAllocation.
[[nodiscard]] lumo::Value BuildLuaDumpRecord(const LuaDump& dump);

// One server, one queue, one worker. It knows nothing of instances, the ApiLock and error codes.
// Life: from Create to its destruction, which stops the worker and blocks until the call in
// progress has ended, with PendingOnStop::kDeliver until all that is queued has been delivered or
// has failed. Threads: Post from any.
class LuaDumpSender {
 public:
  // Null when memory or a thread could not be had.
  [[nodiscard]] static std::unique_ptr<LuaDumpSender> Create(const char* host, std::uint16_t port,
                                                             QTC::PendingOnStop pending) noexcept;

  // Queues the record for delivery and returns at once. False when the sender is stopping. Throws
  // base::BadAllocation.
  [[nodiscard]] bool Post(const LuaDump& dump);

 private:
  explicit LuaDumpSender(std::unique_ptr<QTC::AsyncSender> sender) noexcept
      : sender_(std::move(sender)) {}

  std::unique_ptr<QTC::AsyncSender> sender_;
};

}  // namespace TAVU::delivery
