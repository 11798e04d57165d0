// Values as JSON in a line, within bounds: a line must not break what reads it, however little a
// peer's values have to do with records.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "json_text.h"
#include "lumo/value/value.h"

namespace TAVU::collector {

// Texts up to this many bytes stand in a line whole; of a longer one only the beginning does.
inline constexpr std::size_t kLongestText = std::size_t{64} * 1024;

// Brackets in brackets, counted from the line's own. Common readers of JSON give up between 100 and
// 500.
inline constexpr std::size_t kDeepestBrackets = 64;

// Bytes of a line up to which values have room in it.
inline constexpr std::size_t kMostInline = std::size_t{1} << 20;

// Null, booleans, numbers, texts and lists are what they are in JSON. The rest:
//   double      not finite: "nan", "inf", "-inf"
//   date        ISO 8601 text in UTC; the number of milliseconds outside the years 0 to 9999
//   binary      {"binary": {"size": bytes}}
//   long text   {"text": its beginning, "size": bytes}
//   map         an object when all its keys are texts or integers, and different as texts; else
//               {"map": [[key, value], ...]}
//   table       {"columns": [{"name": ..., "type": ...}, ...], "rows": [[...], ...]}
// In the place of what is nested too deeply or has no room any more: {"omitted": "nesting"} or
// {"omitted": "size"}; a container ends with the first element that has no room.
class LineValues {
 public:
  explicit LineValues(JsonText& line) noexcept : line_(line) {}

  void Put(const lumo::Value& value);
  // As a text, if there is room for it. False when there is not, and a marker stands in its place;
  // the caller keeps the text elsewhere then.
  [[nodiscard]] bool PutText(std::string_view text);

  // Whether something is not in the line: a marker, a binary or the rest of a long text.
  [[nodiscard]] bool incomplete() const noexcept { return incomplete_; }

 private:
  // Takes the item back, and puts a marker, when the line is too long with it.
  template <typename Write>
  bool PutWithinRoom(Write write);

  // Whether a container has no place here and a marker stands for it.
  [[nodiscard]] bool OmitContainer();
  void Omit(std::string_view reason);
  void PutLongText(std::string_view text);
  void PutBinary(std::size_t size);
  void PutList(const lumo::Value& value);
  void PutMap(const lumo::Value& value);
  void PutObject(const lumo::Value& value);
  void PutTable(const lumo::Value& value);
  template <typename Row>
  void PutElements(const Row& row);

  JsonText& line_;
  bool full_ = false;
  bool incomplete_ = false;
};

}  // namespace TAVU::collector
