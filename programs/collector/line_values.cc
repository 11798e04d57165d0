#include "line_values.h"

#include <optional>
#include <set>
#include <utility>

#include "lumo/value/list.h"
#include "lumo/value/map.h"
#include "lumo/value/table.h"
#include "utc_time.h"
#include "utf8.h"

namespace TAVU::collector {
namespace {

using lumo::Value;
using lumo::ValueType;

// The brackets that one level of values puts around those in it, at the most: {"map": [[...]]}.
constexpr std::size_t kBracketsOfLevel = 3;

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

}  // namespace

template <typename Write>
bool LineValues::PutWithinRoom(Write write) {
  if (!full_) {
    const JsonText::Mark begin = line_.mark();
    write();
    if (line_.size() <= kMostInline) return true;
    line_.GoBack(begin);
    full_ = true;
  }
  Omit("size");
  return false;
}

bool LineValues::PutText(std::string_view text) {
  const bool was_incomplete = incomplete_;
  const bool put = PutWithinRoom([&] { line_.Text(text); });
  incomplete_ = was_incomplete;
  return put;
}

void LineValues::Put(const Value& value) {
  switch (value.type()) {
    case ValueType::kList:
      return PutList(value);
    case ValueType::kMap:
      return PutMap(value);
    case ValueType::kTable:
      return PutTable(value);
    default:
      break;
  }
  static_cast<void>(PutWithinRoom([&] {
    switch (value.type()) {
      case ValueType::kBool:
        return line_.Bool(value.byte() == 1);
      case ValueType::kChar:
        return line_.Number(std::int64_t{value.character()});
      case ValueType::kInt:
        return line_.Number(std::int64_t{value.int_value()});
      case ValueType::kLong:
        return line_.Number(value.long_value());
      case ValueType::kDouble:
        return line_.Number(value.double_value());
      case ValueType::kDate: {
        const auto text = FormatUtc(UtcTime(std::chrono::milliseconds(value.date_value())));
        return text ? line_.Text(*text) : line_.Number(value.date_value());
      }
      case ValueType::kString:
        if (value.text().size() > kLongestText) return PutLongText(value.text());
        return line_.Text(value.text());
      case ValueType::kBinary:
        return PutBinary(value.bytes().size());
      default:
        return line_.Null();  // null; the other types never come out of the decoder
    }
  }));
}

void LineValues::PutLongText(std::string_view text) {
  incomplete_ = true;
  line_.BeginObject();
  line_.Key("text");
  line_.Text(CutText(text, kLongestText));
  line_.Key("size");
  line_.Number(static_cast<std::int64_t>(text.size()));
  line_.EndObject();
}

void LineValues::PutBinary(std::size_t size) {
  incomplete_ = true;
  line_.BeginObject();
  line_.Key("binary");
  line_.BeginObject();
  line_.Key("size");
  line_.Number(static_cast<std::int64_t>(size));
  line_.EndObject();
  line_.EndObject();
}

template <typename Row>
void LineValues::PutElements(const Row& row) {
  line_.BeginArray();
  for (const Value& element : row) {
    Put(element);
    if (full_) break;
  }
  line_.EndArray();
}

void LineValues::PutList(const Value& value) {
  if (OmitContainer()) return;
  PutElements(value.list());
}

void LineValues::PutMap(const Value& value) {
  if (OmitContainer()) return;
  if (HasObjectKeys(value.map())) return PutObject(value);
  line_.BeginObject();
  line_.Key("map");
  line_.BeginArray();
  for (const lumo::Map::Node& entry : value.map()) {
    line_.BeginArray();
    Put(entry.key);
    Put(entry.value);
    line_.EndArray();
    if (full_) break;
  }
  line_.EndArray();
  line_.EndObject();
}

void LineValues::PutObject(const Value& value) {
  line_.BeginObject();
  for (const lumo::Map::Node& entry : value.map()) {
    line_.Key(*KeyName(entry.key));
    Put(entry.value);
    if (full_) break;
  }
  line_.EndObject();
}

void LineValues::PutTable(const Value& value) {
  if (OmitContainer()) return;
  const lumo::Table& table = value.table();
  line_.BeginObject();
  line_.Key("columns");
  line_.BeginArray();
  for (std::size_t i = 0; i < table.column_count() && !full_; ++i) {
    static_cast<void>(PutWithinRoom([&] {
      line_.BeginObject();
      line_.Key("name");
      line_.Text(table.column(i).name);
      line_.Key("type");
      line_.Text(lumo::TypeName(table.column(i).type));
      line_.EndObject();
    }));
  }
  line_.EndArray();
  line_.Key("rows");
  line_.BeginArray();
  for (std::size_t i = 0; i < table.row_count() && !full_; ++i) PutElements(table.row(i));
  line_.EndArray();
  line_.EndObject();
}

bool LineValues::OmitContainer() {
  full_ = full_ || line_.size() > kMostInline;
  const bool too_deep = line_.depth() + kBracketsOfLevel > kDeepestBrackets;
  if (full_ || too_deep) Omit(full_ ? "size" : "nesting");
  return full_ || too_deep;
}

void LineValues::Omit(std::string_view reason) {
  incomplete_ = true;
  line_.BeginObject();
  line_.Key("omitted");
  line_.Text(reason);
  line_.EndObject();
}

}  // namespace TAVU::collector
