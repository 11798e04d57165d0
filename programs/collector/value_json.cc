#include "value_json.h"

#include <cmath>
#include <optional>
#include <set>
#include <utility>

#include "lumo/value/list.h"
#include "lumo/value/map.h"
#include "lumo/value/table.h"
#include "utc_time.h"

namespace TAVU::collector {
namespace {

using lumo::Value;
using lumo::ValueType;

Json DoubleToJson(double value) {
  if (std::isnan(value)) return "nan";
  if (std::isinf(value)) return value < 0 ? "-inf" : "inf";
  return value;
}

Json DateToJson(std::int64_t milliseconds) {
  const auto text = FormatUtc(UtcTime(std::chrono::milliseconds(milliseconds)));
  return text ? Json(*text) : Json(milliseconds);
}

Json TextToJson(const Value& value, AttachmentSink& attachments) {
  const std::string_view text = value.text();
  if (text.size() <= kLongestText) return text;
  Json cut;
  cut["text"] = CutText(text, kLongestText);
  cut["whole"] = attachments.Take({value.bytes(), "text.txt"});
  return cut;
}

Json ListToJson(const lumo::List& list, AttachmentSink& attachments) {
  Json array = Json::array();
  for (const Value& element : list) array.push_back(ToJson(element, attachments));
  return array;
}

// The name that a key can have in an object; nothing for keys of other types.
std::optional<std::string> KeyName(const Value& key) {
  switch (key.type()) {
    case ValueType::kString:
      if (key.text().size() > kLongestText) return std::nullopt;
      return std::string(key.text());
    case ValueType::kInt:
      return std::to_string(key.int_value());
    case ValueType::kLong:
      return std::to_string(key.long_value());
    default:
      return std::nullopt;
  }
}

bool HasObjectKeys(const lumo::Map& map) {
  std::set<std::string> names;
  for (const lumo::Map::Node& entry : map) {
    std::optional<std::string> name = KeyName(entry.key);
    if (!name || !names.insert(std::move(*name)).second) return false;
  }
  return true;
}

Json MapToJson(const lumo::Map& map, AttachmentSink& attachments) {
  if (HasObjectKeys(map)) {
    Json::object_t object;
    for (const lumo::Map::Node& entry : map) {
      // Not through operator[], which searches: the keys are known to differ.
      object.Container::emplace_back(*KeyName(entry.key), ToJson(entry.value, attachments));
    }
    return object;
  }
  Json pairs = Json::array();
  for (const lumo::Map::Node& entry : map) {
    Json pair = Json::array();
    pair.push_back(ToJson(entry.key, attachments));
    pair.push_back(ToJson(entry.value, attachments));
    pairs.push_back(std::move(pair));
  }
  Json wrapped;
  wrapped["map"] = std::move(pairs);
  return wrapped;
}

Json TableToJson(const lumo::Table& table, AttachmentSink& attachments) {
  Json columns = Json::array();
  for (std::size_t i = 0; i < table.column_count(); ++i) {
    Json column;
    column["name"] = table.column(i).name;
    column["type"] = lumo::TypeName(table.column(i).type);
    columns.push_back(std::move(column));
  }
  Json rows = Json::array();
  for (std::size_t i = 0; i < table.row_count(); ++i) {
    rows.push_back(ListToJson(table.row(i), attachments));
  }
  Json object;
  object["columns"] = std::move(columns);
  object["rows"] = std::move(rows);
  return object;
}

// The length of the UTF-8 character that `text` begins with; 0 when it begins with none.
std::size_t CharacterLength(std::string_view text) noexcept {
  struct Form {
    unsigned char first_low, first_high, second_low, second_high;
    std::size_t length;
  };
  // Without overlong forms, surrogates and what lies above U+10FFFF.
  constexpr Form kForms[] = {
      {0x00, 0x7F, 0x00, 0x00, 1}, {0xC2, 0xDF, 0x80, 0xBF, 2}, {0xE0, 0xE0, 0xA0, 0xBF, 3},
      {0xE1, 0xEC, 0x80, 0xBF, 3}, {0xED, 0xED, 0x80, 0x9F, 3}, {0xEE, 0xEF, 0x80, 0xBF, 3},
      {0xF0, 0xF0, 0x90, 0xBF, 4}, {0xF1, 0xF3, 0x80, 0xBF, 4}, {0xF4, 0xF4, 0x80, 0x8F, 4},
  };
  const auto at = [text](std::size_t i) { return static_cast<unsigned char>(text[i]); };
  for (const Form& form : kForms) {
    if (at(0) < form.first_low || at(0) > form.first_high) continue;
    if (text.size() < form.length) return 0;
    if (form.length > 1 && (at(1) < form.second_low || at(1) > form.second_high)) return 0;
    for (std::size_t i = 2; i < form.length; ++i) {
      if ((at(i) & 0xC0) != 0x80) return 0;
    }
    return form.length;
  }
  return 0;
}

}  // namespace

Json ToJson(const Value& value, AttachmentSink& attachments) {
  switch (value.type()) {
    case ValueType::kBool:
      return value.byte() == 1;
    case ValueType::kChar:
      return int{value.character()};
    case ValueType::kInt:
      return value.int_value();
    case ValueType::kLong:
      return value.long_value();
    case ValueType::kDouble:
      return DoubleToJson(value.double_value());
    case ValueType::kDate:
      return DateToJson(value.date_value());
    case ValueType::kString:
      return TextToJson(value, attachments);
    case ValueType::kBinary: {
      Json wrapped;
      wrapped["binary"] = attachments.Take({value.bytes(), "binary.bin"});
      return wrapped;
    }
    case ValueType::kList:
      return ListToJson(value.list(), attachments);
    case ValueType::kMap:
      return MapToJson(value.map(), attachments);
    case ValueType::kTable:
      return TableToJson(value.table(), attachments);
    default:
      return nullptr;  // null; the other types never come out of the decoder
  }
}

std::string_view CutText(std::string_view text, std::size_t size) noexcept {
  if (text.size() <= size) return text;
  // Back over the bytes that continue a character, at most three of which can belong to it.
  std::size_t cut = size;
  while (cut > 0 && size - cut < 3 && (static_cast<unsigned char>(text[cut]) & 0xC0) == 0x80) --cut;
  return text.substr(0, cut);
}

bool IsUtf8(std::string_view text) noexcept {
  while (!text.empty()) {
    const std::size_t length = CharacterLength(text);
    if (length == 0) return false;
    text.remove_prefix(length);
  }
  return true;
}

}  // namespace TAVU::collector
