#include "record_line.h"

#include <algorithm>
#include <charconv>
#include <iterator>
#include <optional>
#include <utility>

#include "delivery/record/record_keys.h"
#include "line_values.h"
#include "lumo/value/map.h"
#include "utf8.h"

namespace TAVU::collector {
namespace {

using delivery::NumberOf;
using delivery::RecordKey;
using lumo::Value;
using lumo::ValueType;

enum class RecordKind : std::uint8_t { kLog, kFile, kCrash, kLuaDump, kUnknown };

constexpr struct {
  std::string_view code;
  RecordKind kind;
} kKindCodes[] = {
    {delivery::record_kind::kLog, RecordKind::kLog},
    {delivery::record_kind::kLogWithExtraData, RecordKind::kLog},
    {delivery::record_kind::kUpload, RecordKind::kFile},
    {delivery::record_kind::kLuaDump, RecordKind::kLuaDump},
};
constexpr std::string_view kKindNames[] = {"log", "file", "crash", "luadump", "unknown"};

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
  RecordKey key;
  Form form;
  std::optional<RecordKind> only_in;
  const char* name;
  const char* file_suffix = "";
} kFields[] = {
    {RecordKey::kRecordKind, Form::kText, kAnyKind, "kind_code"},
    {RecordKey::kLevel, Form::kNumber, kAnyKind, "level"},
    {RecordKey::kLogType, Form::kEncodedText, kAnyKind, "log_type"},
    {RecordKey::kMessage, Form::kEncodedText, kAnyKind, "message"},
    {RecordKey::kUserId, Form::kEncodedText, kAnyKind, "user_id"},
    {RecordKey::kSoftwareId, Form::kText, kAnyKind, "software_id"},
    {RecordKey::kSoftwareVer, Form::kText, kAnyKind, "software_version"},
    {RecordKey::kLocalAddress, Form::kText, kAnyKind, "local_address"},
    {RecordKey::kExtraData, Form::kText, kAnyKind, "extra_data"},
    {RecordKey::kDescription, Form::kText, kAnyKind, "description"},
    {RecordKey::kDocument, Form::kFile, RecordKind::kCrash, "document", "crash.xml"},
    {RecordKey::kDocument, Form::kText, kAnyKind, "document"},
    {RecordKey::kContent, Form::kFile, RecordKind::kCrash, "dump", "crash.dmp"},
    {RecordKey::kContent, Form::kFile, kAnyKind, "content", "file.bin"},
    {RecordKey::kLuaDumpNumber, Form::kNumber, kAnyKind, "dump_number"},
    {RecordKey::kLuaExtra, Form::kEncodedText, kAnyKind, "extra"},
    {RecordKey::kLuaDump, Form::kReadableFile, kAnyKind, "dump", "luadump.txt"},
    {RecordKey::kConstantZero, Form::kText, kAnyKind, "reserved"},
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
  const lumo::Map::Node* kind = map.Find(NumberOf(RecordKey::kRecordKind));
  return kind != nullptr && kind->value.type() == ValueType::kString;
}

RecordKind KindOf(const lumo::Map& record) {
  const std::string_view code = record.Find(NumberOf(RecordKey::kRecordKind))->value.text();
  const auto* found = std::find_if(std::begin(kKindCodes), std::end(kKindCodes),
                                   [code](const auto& entry) { return entry.code == code; });
  if (found == std::end(kKindCodes)) return RecordKind::kUnknown;
  // Files and crashes are sent as one kind; the log type tells them apart.
  const lumo::Map::Node* type = record.Find(NumberOf(RecordKey::kLogType));
  const bool crash =
      type != nullptr && IsBytes(type->value) && type->value.text() == delivery::log_type::kCrash;
  return found->kind == RecordKind::kFile && crash ? RecordKind::kCrash : found->kind;
}

// Whether the text is a number that, printed, gives the same text again.
bool IsPlainNumber(std::string_view text) {
  std::int64_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  return error == std::errc() && end == text.data() + text.size() && std::to_string(number) == text;
}

// Puts the fields of one record into its line.
class RecordWriter {
 public:
  RecordWriter(JsonText& line, LineValues& values, std::vector<AttachmentSlot>& slots)
      : line_(line), values_(values), slots_(slots) {}

  void Put(const Field& field, const Value& value) {
    if (!IsBytes(value)) {
      line_.Key(field.name);
      return values_.Put(value);
    }
    switch (field.form) {
      case Form::kNumber:
        line_.Key(field.name);
        if (IsPlainNumber(value.text())) return line_.Word(value.text());
        return PutText(field, value, value.text());
      case Form::kText:
        line_.Key(field.name);
        return PutText(field, value, value.text());
      case Form::kEncodedText:
        line_.Key(field.name);
        return PutText(field, value, PercentDecode(value.text()));
      case Form::kReadableFile:
        if (IsUtf8(value.text())) {
          line_.Key(field.name);
          static_cast<void>(values_.PutText(CutText(value.text(), kLongestText)));
        }
        return PutFile(field, value, field.file_suffix);
      case Form::kFile:
        return PutFile(field, value, field.file_suffix);
    }
  }

  // The key stands in the line already. `shown` is the text of `value` in readable form; what is
  // kept, when not all of it is in the line, is the text as it was sent.
  void PutText(const Field& field, const Value& value, std::string_view shown) {
    const bool whole = values_.PutText(CutText(shown, kLongestText));
    if (whole && shown.size() <= kLongestText) return;
    PutFile(field, value, "field-" + std::to_string(NumberOf(field.key)) + ".txt");
  }

  // What a field that no table knows has to tell stands in the line under its number, and nowhere
  // else: a peer cannot make files by making up fields.
  void PutUnknown(std::int32_t key, const Value& value) {
    line_.Key(std::to_string(key));
    values_.Put(value);
  }

 private:
  void PutFile(const Field& field, const Value& value, std::string suffix) {
    line_.Key(std::string(field.name) + "_file");
    slots_.push_back({line_.size(), {&value, AttachmentForm::kContent, std::move(suffix)}});
    line_.Null();
  }

  JsonText& line_;
  LineValues& values_;
  std::vector<AttachmentSlot>& slots_;
};

std::string_view NameOf(RecordKind kind) {
  return kKindNames[static_cast<std::size_t>(kind)];
}

void PutRecord(JsonText& line, LineValues& values, const lumo::Map& record,
               DescribedCall& described) {
  const RecordKind kind = KindOf(record);
  described.kind = NameOf(kind);
  line.Key("kind");
  line.Text(described.kind);
  const lumo::Map::Node* software = record.Find(NumberOf(RecordKey::kSoftwareId));
  if (software != nullptr && IsBytes(software->value)) described.software = software->value.text();

  RecordWriter writer(line, values, described.slots);
  const auto applies = [kind](const Field& field) {
    return !field.only_in || field.only_in == kind;
  };
  const Field* previous = nullptr;
  for (const Field& field : kFields) {
    if (!applies(field) || (previous != nullptr && previous->key == field.key)) continue;
    previous = &field;
    const lumo::Map::Node* entry = record.Find(NumberOf(field.key));
    if (entry != nullptr) writer.Put(field, entry->value);
  }
  for (const lumo::Map::Node& entry : record) {
    const std::int32_t number = entry.key.int_value();
    const bool known =
        std::any_of(std::begin(kFields), std::end(kFields),
                    [number](const Field& field) { return NumberOf(field.key) == number; });
    if (!known) writer.PutUnknown(number, entry.value);
  }
}

std::string DescribeAttachment(const KeptAttachment& kept) {
  JsonText object;
  object.BeginObject();
  if (kept.name) {
    object.Key("name");
    object.Text(*kept.name);
  }
  object.Key("size");
  object.Number(static_cast<std::int64_t>(kept.size));
  object.Key("sha256");
  object.Text(kept.sha256);
  if (!kept.error.empty()) {
    object.Key("error");
    object.Text(kept.error);
  }
  object.EndObject();
  return object.Take();
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

DescribedCall DescribeCall(const CallFacts& facts, const Value& argument) {
  DescribedCall described;
  JsonText line;
  LineValues values(line);
  line.BeginObject();
  line.Key("time");
  line.Text(*FormatUtc(facts.time));
  line.Key("transport");
  line.Text(facts.transport);
  line.Key("peer");
  line.Text(facts.peer);
  line.Key("service");
  line.Text(CutText(facts.service, kLongestText));
  if (IsRecord(argument)) {
    PutRecord(line, values, argument.map(), described);
  } else {
    described.kind = NameOf(RecordKind::kUnknown);
    line.Key("argument");
    values.Put(argument);
  }
  if (values.incomplete()) {
    line.Key("argument_file");
    described.slots.push_back({line.size(), {&argument, AttachmentForm::kEncoded, "argument.bin"}});
    line.Null();
  }
  line.EndObject();
  described.line = line.Take();
  return described;
}

std::string FinishLine(const DescribedCall& described, std::span<const KeptAttachment> kept) {
  constexpr std::string_view kPlaceholder = "null";
  std::string line;
  std::size_t position = 0;
  for (std::size_t i = 0; i < kept.size(); ++i) {
    line.append(described.line, position, described.slots[i].position - position);
    line += DescribeAttachment(kept[i]);
    position = described.slots[i].position + kPlaceholder.size();
  }
  line.append(described.line, position);
  return line;
}

}  // namespace TAVU::collector
