// Sends what a crash left: its document and its memory dump.
#pragma once

#include <string>

#include "delivery/send_record.h"

namespace TAVU::delivery {

struct CrashUpload {
  std::string message;      // UTF-8, percent-encoded
  std::string description;  // UTF-8 as it is
  std::wstring documentPath;
  std::wstring dumpPath;
};

// Both files are read, each into memory once, before a connection is tried: a missing one costs no
// network traffic. Throws as SendRecord.
[[nodiscard]] SendResult SendCrashInfo(const api::ApiLock::Guard& held,
                                       api::InstanceRecord& instance, const CrashUpload& upload);

}  // namespace TAVU::delivery
