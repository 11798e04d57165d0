#include "net/wire/transport_header.h"

#include <cstring>
#include <span>
#include <vector>

#include "lumo/codec/codec.h"
#include "lumo/codec/memory_reader.h"
#include "lumo/codec/memory_writer.h"

namespace TAVU::QTC {

namespace {

constexpr std::size_t kLongestField = 255;

std::uint32_t MaskOf(const TransportHeader::FieldList& fields) noexcept {
  std::uint32_t mask = 0;
  for (std::size_t i = 0; i < fields.size(); ++i) {
    if (fields[i]) mask |= TransportHeader::BitOf(i);
  }
  return mask;
}

// A mask and its fields. False for a field that is too long.
bool WriteFields(lumo::ByteSink& sink, const TransportHeader::FieldList& fields) {
  if (!lumo::WriteUint32(sink, MaskOf(fields))) return false;
  for (const std::optional<std::string>& field : fields) {
    if (!field) continue;
    if (field->size() > kLongestField) return false;
    if (!sink.WriteByte(static_cast<std::uint8_t>(field->size()))) return false;
    if (!sink.Write(field->data(), field->size())) return false;
  }
  return true;
}

bool ReadFields(lumo::MemoryReader& source, TransportHeader::FieldList& fields) {
  std::uint32_t mask = 0;
  if (!lumo::ReadUint32(source, mask)) return false;
  for (std::size_t i = 0; i < fields.size(); ++i) {
    if ((mask & TransportHeader::BitOf(i)) == 0) continue;
    std::uint8_t size = 0;
    if (!source.ReadByte(size) || size > source.remaining()) return false;
    if (!source.Read(fields[i].emplace(size, '\0').data(), size)) return false;
  }
  return true;
}

// Reads `size` more bytes; memory is taken for those only that have come.
bool ReadBytes(lumo::ByteSource& source, std::size_t size, std::vector<std::byte>& out) {
  out.clear();
  while (out.size() < size) {
    const std::span<const std::byte> piece = source.Take(size - out.size());
    if (piece.empty()) return false;
    out.insert(out.end(), piece.begin(), piece.end());
  }
  return true;
}

}  // namespace

void TransportHeader::Reset() noexcept {
  *this = TransportHeader();
}

bool TransportHeader::Write(lumo::ByteSink& sink) const {
  lumo::MemoryWriter fields;
  const bool has_second = MaskOf(second) != 0;
  if (has_second || MaskOf(first) != 0) {
    if (!WriteFields(fields, first)) return false;
    if (has_second && !WriteFields(fields, second)) return false;
  }
  // 62 fields of 255 bytes: never near the 64 KiB that the length can express.
  const auto version = static_cast<std::uint8_t>(major << 4 | (minor & 0xF));
  return sink.WriteByte(kFirstByte) && sink.WriteByte(version) &&
         lumo::WriteUint16(sink, static_cast<std::uint16_t>(kFixedSize + fields.size())) &&
         sink.Write(fields.bytes());
}

bool TransportHeader::Read(lumo::ByteSource& source) {
  Reset();
  std::uint8_t first_byte = 0;
  std::uint8_t version = 0;
  std::uint16_t length = 0;
  if (!source.ReadByte(first_byte) || first_byte != kFirstByte) return false;
  if (!source.ReadByte(version) || !lumo::ReadUint16(source, length)) return false;
  major = version >> 4;
  minor = version & 0xF;
  if (length < kFixedSize) return false;
  if (length == kFixedSize) return true;
  std::vector<std::byte> bytes;
  if (!ReadBytes(source, length - kFixedSize, bytes)) return false;
  lumo::MemoryReader fields(bytes);
  if (!ReadFields(fields, first)) return false;
  // This version knows no bytes after the second list; they are skipped.
  return fields.remaining() == 0 || ReadFields(fields, second);
}

}  // namespace TAVU::QTC
