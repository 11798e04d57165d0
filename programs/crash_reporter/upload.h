// One report on its way to the server, through TAVU.dll.
#pragma once

#include "report.h"

namespace crash_reporter {

enum class UploadResult {
  kDelivered,
  kNoServer,     // the report names none
  kUnreachable,  // no connection: other reports to the same server need not be tried
  kFailed,       // connected, but not confirmed; or an identity or a file that was refused
};

// At least one of the two files is there.
[[nodiscard]] bool HasEvidence(const CrashReport& report) noexcept;

// Sends both files under the report's identity, the comment as the message. For a file that is
// missing (the library could not write it) a stand-in is sent, so that the other one arrives: an
// empty dump, or a document that holds the exception's address alone.
// Blocks: up to the time-outs of connection and reply, and while the server takes the data.
[[nodiscard]] UploadResult Upload(const CrashReport& report);

}  // namespace crash_reporter
