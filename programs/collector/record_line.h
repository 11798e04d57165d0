// One call as the JSON object that stands in a line of its own.
#pragma once

#include <string>
#include <string_view>

#include "lumo/value/value.h"
#include "utc_time.h"
#include "value_json.h"

namespace TAVU::collector {

// Where a call came from.
struct CallFacts {
  UtcTime time;
  std::string_view transport;  // "tcp" or "udp"
  std::string peer;            // ADDRESS:PORT
  std::string service;
};

// A record (a map with numbers as keys, a text under the one of the record's kind) by the names of
// its fields, free texts decoded; any other argument as it is, under "argument". README.md lists
// the names.
[[nodiscard]] Json DescribeCall(const CallFacts& facts, const lumo::Value& argument,
                                AttachmentSink& attachments);

// Undoes %XX; what is no such form stays as it is.
[[nodiscard]] std::string PercentDecode(std::string_view text);

}  // namespace TAVU::collector
