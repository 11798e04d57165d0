// One call as the JSON object that stands in a line of its own.
#pragma once

#include <cstddef>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "attachment_store.h"
#include "lumo/value/value.h"
#include "utc_time.h"

namespace TAVU::collector {

// Where a call came from.
struct CallFacts {
  UtcTime time;
  std::string_view transport;  // "tcp" or "udp"
  std::string peer;            // ADDRESS:PORT
  std::string service;
};

// An attachment, and where in the line it is told of.
struct AttachmentSlot {
  std::size_t position;
  Attachment attachment;  // of a value that the caller of DescribeCall keeps
};

// A line whose attachments are still to be kept.
struct DescribedCall {
  std::string line;
  std::vector<AttachmentSlot> slots;  // in the order of their positions
  std::string_view kind;              // as in the line, static; "unknown" for what is no record
  std::string software;               // of a record that tells its software's identifier
};

// A record (a map with numbers as keys, a text under the one of the record's kind) by the names of
// its fields, free texts decoded; any other argument as it is, under "argument". README.md lists
// the names. Attachments are made of the fields that the records define, and of the whole argument,
// once, when something of it has no place in the line.
[[nodiscard]] DescribedCall DescribeCall(const CallFacts& facts, const lumo::Value& argument);

// The line with what has become of its attachments, one for each slot.
[[nodiscard]] std::string FinishLine(const DescribedCall& described,
                                     std::span<const KeptAttachment> kept);

// Undoes %XX. A percent sign without two hexadecimal digits after it stays.
[[nodiscard]] std::string PercentDecode(std::string_view text);

}  // namespace TAVU::collector
