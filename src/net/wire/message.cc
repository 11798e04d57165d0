#include "net/wire/message.h"

#include <algorithm>
#include <cstring>
#include <span>

#include "lumo/codec/codec.h"
#include "lumo/codec/value_skipper.h"

namespace TAVU::QTC {

using lumo::Value;
using lumo::ValueType;

namespace {

constexpr char kCodeKey[] = "code";
constexpr char kMessageKey[] = "message";
constexpr char kDetailKey[] = "detail";

struct KindTag {
  MessageKind kind;
  std::uint8_t tag;
};
constexpr KindTag kKindTags[] = {
    {MessageKind::kMessage, envelope::kMessage},
    {MessageKind::kCall, envelope::kCall},
    {MessageKind::kReply, envelope::kReply},
};

bool WriteKind(lumo::ByteSink& sink, MessageKind kind) {
  for (const KindTag& entry : kKindTags) {
    if (entry.kind == kind) return sink.WriteByte(entry.tag);
  }
  return false;
}

bool ReadVersion(lumo::ByteSource& source) {
  std::uint8_t version[sizeof envelope::kVersion];
  return source.Read(version, sizeof version) &&
         std::memcmp(version, envelope::kVersion, sizeof version) == 0;
}

// The kind's tag and the version.
bool ReadKind(lumo::ByteSource& source, MessageKind& out) {
  std::uint8_t tag = 0;
  if (!source.ReadByte(tag)) return false;
  for (const KindTag& entry : kKindTags) {
    if (entry.tag != tag) continue;
    out = entry.kind;
    return ReadVersion(source);
  }
  return false;
}

bool ReadMethodSize(lumo::ByteSource& source, std::uint16_t& out) {
  std::uint8_t tag = 0;
  return source.ReadByte(tag) && tag == envelope::kMethod && lumo::ReadUint16(source, out);
}

// Memory is taken for those bytes of the name only that have come.
bool ReadMethod(lumo::ByteSource& source, std::string& out) {
  std::uint16_t size = 0;
  if (!ReadMethodSize(source, size)) return false;
  while (out.size() < size) {
    const std::span<const std::byte> piece = source.Take(size - out.size());
    if (piece.empty()) return false;
    out.append(reinterpret_cast<const char*>(piece.data()), piece.size());
  }
  return true;
}

bool SkipMethod(lumo::ByteSource& source) {
  std::uint16_t size = 0;
  return ReadMethodSize(source, size) && source.Skip(size);
}

bool WriteEntry(lumo::ByteSink& sink, std::string_view key, const Value& value) {
  return lumo::WriteValue(sink, Value::BorrowString(key)) && lumo::WriteValue(sink, value);
}

bool WriteFault(lumo::ByteSink& sink, const Fault& fault) {
  // Readers require a string, so an absent message goes out as an empty one.
  const Value no_message = Value::BorrowString("");
  return sink.WriteByte(envelope::kFault) && WriteEntry(sink, kCodeKey, Value::Int(fault.code)) &&
         WriteEntry(sink, kMessageKey, fault.message.IsNull() ? no_message : fault.message) &&
         WriteEntry(sink, kDetailKey, fault.detail);
}

// --- Reading past a fault ------------------------------------------------------------------------

// The beginning of a string that is read past, as much of it as tells the keys apart.
class KeyObserver final : public lumo::SkipObserver {
 public:
  void OnContent(std::span<const std::byte> piece) override {
    const std::size_t size = std::min(piece.size(), sizeof beginning_ - size_);
    std::memcpy(beginning_ + size_, piece.data(), size);
    size_ += size;
  }
  // Keys are compared as C texts: what follows a zero byte does not count.
  [[nodiscard]] bool Is(std::string_view key) const {
    const std::string_view beginning(beginning_, size_);
    return beginning.substr(0, beginning.find('\0')) == key;
  }

 private:
  char beginning_[sizeof kMessageKey] = {};  // a byte more than the longest key has
  std::size_t size_ = 0;
};

// The types are demanded as they are: nothing is converted.
bool SkipEntryValue(lumo::ByteSource& source, const KeyObserver& key) {
  ValueType type = ValueType::kNull;
  if (!lumo::SkipValue(source, type) || type == ValueType::kEnd) return false;
  if (key.Is(kCodeKey)) return type == ValueType::kInt;
  if (key.Is(kMessageKey)) return type == ValueType::kString;
  return true;  // the detail and what is not known may be of any type
}

bool SkipFault(lumo::ByteSource& source) {
  for (;;) {
    KeyObserver key;
    ValueType type = ValueType::kNull;
    if (!lumo::SkipValue(source, type, &key)) return false;
    if (type == ValueType::kEnd) return true;
    if (type != ValueType::kString || !SkipEntryValue(source, key)) return false;
  }
}

bool SkipResult(lumo::ByteSource& source) {
  ValueType type = ValueType::kNull;
  return lumo::SkipValue(source, type) && type != ValueType::kEnd;  // an end tag is no result
}

}  // namespace

void Message::Reset() {
  *this = Message();
}

bool Message::WriteHead(lumo::ByteSink& sink) const {
  if (!WriteKind(sink, kind) || !sink.Write(envelope::kVersion, sizeof envelope::kVersion))
    return false;
  if (kind == MessageKind::kCall) return lumo::WriteChunk(sink, envelope::kMethod, method);
  return kind != MessageKind::kReply || !is_fault || WriteFault(sink, fault);
}

bool Message::ReadCallHead(lumo::ByteSource& source) {
  Reset();
  return ReadKind(source, kind) && kind == MessageKind::kCall && ReadMethod(source, method);
}

std::optional<Answer> ReadAnswer(lumo::ByteSource& body) {
  const auto when = [](bool read, Answer answer) {
    return read ? std::optional(answer) : std::nullopt;
  };
  MessageKind kind{};
  if (!ReadKind(body, kind)) return std::nullopt;
  if (kind == MessageKind::kCall) return when(SkipMethod(body), Answer::kNoReply);
  if (kind != MessageKind::kReply) return Answer::kNoReply;
  std::uint8_t next = 0;
  if (!body.PeekByte(next)) return std::nullopt;
  if (next == envelope::kFault) return when(body.Skip(1) && SkipFault(body), Answer::kFault);
  // Only a reply without a fault has a result.
  return when(SkipResult(body), Answer::kResult);
}

}  // namespace TAVU::QTC
