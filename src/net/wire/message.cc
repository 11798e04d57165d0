#include "net/wire/message.h"

#include <cstring>
#include <span>
#include <utility>

#include "lumo/codec/codec.h"

namespace TAVU::QTC {

using lumo::Value;
using lumo::ValueType;

namespace {

constexpr std::uint8_t kVersion[2] = {0x01, 0x00};
constexpr std::uint8_t kMethodTag = 'm';
constexpr std::uint8_t kFaultTag = 'f';

constexpr char kCodeKey[] = "code";
constexpr char kMessageKey[] = "message";
constexpr char kDetailKey[] = "detail";

struct KindTag {
  MessageKind kind;
  std::uint8_t tag;
};
constexpr KindTag kKindTags[] = {
    {MessageKind::kMessage, 'm'},
    {MessageKind::kCall, 'c'},
    {MessageKind::kReply, 'r'},
};

bool WriteKind(lumo::ByteSink& sink, MessageKind kind) {
  for (const KindTag& entry : kKindTags) {
    if (entry.kind == kind) return sink.WriteByte(entry.tag);
  }
  return false;
}

bool ReadKind(lumo::ByteSource& source, MessageKind& out) {
  std::uint8_t tag = 0;
  if (!source.ReadByte(tag)) return false;
  for (const KindTag& entry : kKindTags) {
    if (entry.tag != tag) continue;
    out = entry.kind;
    return true;
  }
  return false;
}

bool ReadVersion(lumo::ByteSource& source) {
  std::uint8_t version[sizeof kVersion];
  return source.Read(version, sizeof version) &&
         std::memcmp(version, kVersion, sizeof version) == 0;
}

// Memory is taken for those bytes of the name only that have come.
bool ReadMethod(lumo::ByteSource& source, std::string& out) {
  std::uint8_t tag = 0;
  std::uint16_t size = 0;
  if (!source.ReadByte(tag) || tag != kMethodTag || !lumo::ReadUint16(source, size)) return false;
  while (out.size() < size) {
    const std::span<const std::byte> piece = source.Take(size - out.size());
    if (piece.empty()) return false;
    out.append(reinterpret_cast<const char*>(piece.data()), piece.size());
  }
  return true;
}

bool WriteEntry(lumo::ByteSink& sink, std::string_view key, const Value& value) {
  return lumo::WriteValue(sink, Value::BorrowString(key)) && lumo::WriteValue(sink, value);
}

bool WriteFault(lumo::ByteSink& sink, const Fault& fault) {
  // Readers require a string, so an absent message goes out as an empty one.
  const Value no_message = Value::BorrowString("");
  return sink.WriteByte(kFaultTag) && WriteEntry(sink, kCodeKey, Value::Int(fault.code)) &&
         WriteEntry(sink, kMessageKey, fault.message.IsNull() ? no_message : fault.message) &&
         WriteEntry(sink, kDetailKey, fault.detail);
}

// Puts `value` where `key` says. The types are required as they are: nothing is converted.
bool StoreEntry(std::string_view key, Value value, Fault& fault) {
  if (value.type() == ValueType::kEnd) return false;  // a key without a value
  key = key.substr(0, key.find('\0'));                // keys are compared as C texts
  if (key == kCodeKey) {
    if (value.type() != ValueType::kInt) return false;
    fault.code = value.int_value();
  } else if (key == kMessageKey) {
    if (value.type() != ValueType::kString) return false;
    fault.message = std::move(value);
  } else if (key == kDetailKey) {
    fault.detail = std::move(value);
  }
  return true;
}

bool ReadFault(lumo::ByteSource& source, Fault& fault) {
  for (;;) {
    Value key;
    Value value;
    if (!lumo::ReadValue(source, key)) return false;
    if (key.type() == ValueType::kEnd) return true;
    if (key.type() != ValueType::kString || !lumo::ReadValue(source, value)) return false;
    if (!StoreEntry(key.text(), std::move(value), fault)) return false;
  }
}

}  // namespace

void Message::Reset() {
  *this = Message();
}

bool Message::WriteHead(lumo::ByteSink& sink) const {
  if (!WriteKind(sink, kind) || !sink.Write(kVersion, sizeof kVersion)) return false;
  if (kind == MessageKind::kCall) return lumo::WriteChunk(sink, kMethodTag, method);
  return kind != MessageKind::kReply || !is_fault || WriteFault(sink, fault);
}

bool Message::ReadHead(lumo::ByteSource& source) {
  Reset();
  if (!ReadKind(source, kind) || !ReadVersion(source)) return false;
  if (kind == MessageKind::kCall) return ReadMethod(source, method);
  if (kind != MessageKind::kReply) return true;
  std::uint8_t next = 0;
  if (!source.PeekByte(next)) return false;
  if (next != kFaultTag) return true;
  is_fault = true;
  return source.ReadByte(next) && ReadFault(source, fault);
}

}  // namespace TAVU::QTC
