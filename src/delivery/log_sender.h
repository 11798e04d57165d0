// Sends one log line.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "delivery/send_record.h"

namespace TAVU::delivery {

struct LogLine {
  std::int32_t level;                    // 0 to 7
  std::string logType;                   // UTF-8, percent-encoded
  std::optional<std::string> extraData;  // UTF-8 as it is; an empty text counts as given
  std::string message;                   // UTF-8, percent-encoded
};

// One connection for each line, on purpose: the library is meant for occasional lines, not for
// streams. Throws as SendRecord.
[[nodiscard]] SendResult SendLog(const api::ApiLock::Guard& held, api::InstanceRecord& instance,
                                 const LogLine& line, QTC::Protocol protocol);

}  // namespace TAVU::delivery
