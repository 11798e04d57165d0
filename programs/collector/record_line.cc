#include "record_line.h"

#include <algorithm>
#include <charconv>
#include <iterator>
#include <optional>

#include "lumo/value/map.h"

namespace TAVU::collector {
namespace {

using lumo::Value;
using lumo::ValueType;

enum class RecordKind : std::uint8_t { kLog, kFile, kCrash, kLuaDump, kUnknown };

constexpr std::int32_t kKindKey = 5;
constexpr std::int32_t kLogTypeKey = 4;

constexpr struct {
  std::string_view code;
  RecordKind kind;
} kKindCodes[] = {
    {"0", RecordKind::kLog},
    {"3", RecordKind::kLog},  // with extra data
    {"1", RecordKind::kFile},
    {"4", RecordKind::kLuaDump},
};
constexpr std::string_view kKindNames[] = {"log", "file", "crash", "luadump", "unknown"};
constexpr std::string_view kCrashLogType = "crash";

enum class Form : std::uint8_t {
  kText,
  kEncodedText,   // percent-encoded on the wire
  kNumber,        // as decimal text on the wire
  kFile,          // kept as an attachment
  kReadableFile,  // likewise, and shown when it is a text
};

constexpr std::optional<RecordKind> kAnyKind;

// The fields in the order in which they stand in a line. One that means something else in one kind
// of record has a row for that kind in front.
constexpr struct Field {
  std::int32_t key;
  Form form;
  std::optional<RecordKind> only_in;
  const char* name;
  const char* file_suffix = "";
} kFields[] = {
    {3, Form::kNumber, kAnyKind, "level"},
    {kLogTypeKey, Form::kEncodedText, kAnyKind, "log_type"},
    {8, Form::kEncodedText, kAnyKind, "message"},
    {6, Form::kEncodedText, kAnyKind, "user_id"},
    {1, Form::kText, kAnyKind, "software_id"},
    {2, Form::kText, kAnyKind, "software_version"},
    {7, Form::kText, kAnyKind, "local_address"},
    {301, Form::kText, kAnyKind, "extra_data"},
    {101, Form::kText, kAnyKind, "description"},
    {102, Form::kFile, RecordKind::kCrash, "document", "crash.xml"},
    {102, Form::kText, kAnyKind, "document"},
    {103, Form::kFile, RecordKind::kCrash, "dump", "crash.dmp"},
    {103, Form::kFile, kAnyKind, "content", "file.bin"},
    {402, Form::kNumber, kAnyKind, "dump_number"},
    {401, Form::kEncodedText, kAnyKind, "extra"},
    {403, Form::kReadableFile, kAnyKind, "dump", "luadump.txt"},
    {0, Form::kText, kAnyKind, "reserved"},
};

bool IsBytes(const Value& value) {
  return value.type() == ValueType::kString || value.type() == ValueType::kBinary;
}

bool IsRecord(const Value& argument) {
  if (argument.type() != ValueType::kMap) return false;
  const lumo::Map& map = argument.map();
  for (const lumo::Map::Node& entry : map) {
    if (entry.key.type() != ValueType::kInt) return false;
  }
  const lumo::Map::Node* kind = map.Find(kKindKey);
  return kind != nullptr && kind->value.type() == ValueType::kString;
}

RecordKind KindOf(const lumo::Map& record) {
  const std::string_view code = record.Find(kKindKey)->value.text();
  const auto* found = std::find_if(std::begin(kKindCodes), std::end(kKindCodes),
                                   [code](const auto& entry) { return entry.code == code; });
  if (found == std::end(kKindCodes)) return RecordKind::kUnknown;
  // Files and crashes are sent as one kind; the log type tells them apart.
  const lumo::Map::Node* type = record.Find(kLogTypeKey);
  const bool crash = type != nullptr && IsBytes(type->value) && type->value.text() == kCrashLogType;
  return found->kind == RecordKind::kFile && crash ? RecordKind::kCrash : found->kind;
}

// A number, if that is what the text is: printed, it gives the same text again.
Json NumberOrText(std::string_view text) {
  std::int64_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error == std::errc() && end == text.data() + text.size() && std::to_string(number) == text) {
    return number;
  }
  return text;
}

// Puts the fields of one record into its line.
class RecordWriter {
 public:
  RecordWriter(Json& line, AttachmentSink& attachments) : line_(line), attachments_(attachments) {}

  void Put(const Field& field, const Value& value) {
    if (!IsBytes(value)) {
      line_[field.name] = ToJson(value, attachments_);
      return;
    }
    switch (field.form) {
      case Form::kNumber:
        line_[field.name] = NumberOrText(CutText(value.text(), kLongestText));
        return;
      case Form::kText:
        return PutText(field.name, value, value.text());
      case Form::kEncodedText:
        return PutText(field.name, value, PercentDecode(value.text()));
      case Form::kReadableFile:
        if (IsUtf8(value.text())) line_[field.name] = CutText(value.text(), kLongestText);
        return PutFile(field.name, value, field.file_suffix);
      case Form::kFile:
        return PutFile(field.name, value, field.file_suffix);
    }
  }

  // A field that no table knows keeps its number.
  void PutUnknown(std::int32_t key, const Value& value) {
    const std::string name = std::to_string(key);
    if (value.type() == ValueType::kString) return PutText(name, value, value.text());
    if (value.type() == ValueType::kBinary) return PutFile(name, value, "field-" + name + ".bin");
    line_[name] = ToJson(value, attachments_);
  }

 private:
  // `shown` is the text of `value` in readable form; what is kept is the text as it was sent.
  void PutText(const std::string& name, const Value& value, std::string_view shown) {
    line_[name] = CutText(shown, kLongestText);
    if (shown.size() > kLongestText) PutFile(name, value, "field-" + name + ".txt");
  }

  void PutFile(const std::string& name, const Value& value, const std::string& suffix) {
    line_[name + "_file"] = attachments_.Take({value.bytes(), suffix});
  }

  Json& line_;
  AttachmentSink& attachments_;
};

void PutRecord(Json& line, const lumo::Map& record, AttachmentSink& attachments) {
  const RecordKind kind = KindOf(record);
  line["kind"] = kKindNames[static_cast<std::size_t>(kind)];
  line["kind_code"] = CutText(record.Find(kKindKey)->value.text(), kLongestText);

  RecordWriter writer(line, attachments);
  const auto applies = [kind](const Field& field) {
    return !field.only_in || field.only_in == kind;
  };
  const Field* previous = nullptr;
  for (const Field& field : kFields) {
    if (!applies(field) || (previous != nullptr && previous->key == field.key)) continue;
    previous = &field;
    const lumo::Map::Node* entry = record.Find(field.key);
    if (entry != nullptr) writer.Put(field, entry->value);
  }
  for (const lumo::Map::Node& entry : record) {
    const std::int32_t number = entry.key.int_value();
    const bool known = number == kKindKey ||
                       std::any_of(std::begin(kFields), std::end(kFields),
                                   [number](const Field& field) { return field.key == number; });
    if (!known) writer.PutUnknown(number, entry.value);
  }
}

int HexDigit(char character) noexcept {
  if (character >= '0' && character <= '9') return character - '0';
  if (character >= 'A' && character <= 'F') return character - 'A' + 10;
  if (character >= 'a' && character <= 'f') return character - 'a' + 10;
  return -1;
}

}  // namespace

std::string PercentDecode(std::string_view text) {
  std::string decoded;
  decoded.reserve(text.size());
  for (std::size_t i = 0; i < text.size(); ++i) {
    const bool form = text[i] == '%' && text.size() - i > 2;
    const int high = form ? HexDigit(text[i + 1]) : -1;
    const int low = form ? HexDigit(text[i + 2]) : -1;
    if (high < 0 || low < 0) {
      decoded += text[i];
      continue;
    }
    decoded += static_cast<char>(high * 16 + low);
    i += 2;
  }
  return decoded;
}

Json DescribeCall(const CallFacts& facts, const Value& argument, AttachmentSink& attachments) {
  Json line;
  line["time"] = *FormatUtc(facts.time);
  line["transport"] = facts.transport;
  line["peer"] = facts.peer;
  line["service"] = facts.service;
  if (IsRecord(argument)) {
    PutRecord(line, argument.map(), attachments);
  } else {
    line["argument"] = ToJson(argument, attachments);
  }
  return line;
}

}  // namespace TAVU::collector
