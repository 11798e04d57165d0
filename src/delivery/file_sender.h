// Sends a block of the host's memory as a file.
#pragma once

#include <cstddef>
#include <span>
#include <string>

#include "delivery/send_record.h"

namespace TAVU::delivery {

struct FileUpload {
  std::span<const std::byte> content;  // the host's block, sent from where it lies
  std::string description;             // UTF-8 as it is
  std::string message;                 // UTF-8, percent-encoded; an empty one travels as "-"
};

// Throws as SendRecord.
[[nodiscard]] SendResult SendFile(const api::ApiLock::Guard& held, api::InstanceRecord& instance,
                                  const FileUpload& upload);

}  // namespace TAVU::delivery
