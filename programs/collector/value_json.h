// Values as JSON, whatever their type.
#pragma once

#include <cstddef>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>

#include "attachment_store.h"
#include "lumo/value/value.h"

namespace TAVU::collector {

using Json = nlohmann::ordered_json;

// Texts up to this many bytes stand in a line whole; of a longer one only the beginning does, and
// the whole is kept as an attachment.
inline constexpr std::size_t kLongestText = std::size_t{64} * 1024;

// What becomes of contents that do not stand in a line.
class AttachmentSink {
 public:
  virtual ~AttachmentSink() = default;
  // Takes the attachment; returns what stands in the line for it.
  [[nodiscard]] virtual Json Take(Attachment attachment) = 0;
};

// Null, booleans, numbers, texts and lists are what they are in JSON. The rest:
//   double      not finite: "nan", "inf", "-inf"
//   date        ISO 8601 text in UTC; the number of milliseconds outside the years 0 to 9999
//   binary      {"binary": attachment}
//   long text   {"text": its beginning, "whole": attachment}
//   map         an object when all its keys are texts or integers, and different as texts; else
//               {"map": [[key, value], ...]}
//   table       {"columns": [{"name": ..., "type": ...}, ...], "rows": [[...], ...]}
[[nodiscard]] Json ToJson(const lumo::Value& value, AttachmentSink& attachments);

// The text in as many whole UTF-8 characters as fit into `size` bytes.
[[nodiscard]] std::string_view CutText(std::string_view text, std::size_t size) noexcept;

[[nodiscard]] bool IsUtf8(std::string_view text) noexcept;

}  // namespace TAVU::collector
