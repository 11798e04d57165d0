#include "lumo/codec/text_reader.h"

#include <algorithm>
#include <span>
#include <utility>

#include "base/allocator.h"
#include "lumo/codec/big_endian.h"
#include "lumo/codec/codec.h"

namespace TAVU::lumo {

namespace {

struct TextKind {
  ValueType type;
  std::uint8_t chunk_tag;
  std::uint8_t final_tag;
};
constexpr TextKind kStringKind = {ValueType::kString, tag::kStringChunk, tag::kString};
constexpr TextKind kBinaryKind = {ValueType::kBinary, tag::kBinaryChunk, tag::kBinary};

// A block that is filled piece by piece and becomes a value's content. There is always room for the
// zero byte after it.
class TextBlock {
 public:
  TextBlock() = default;
  TextBlock(const TextBlock&) = delete;
  TextBlock& operator=(const TextBlock&) = delete;
  ~TextBlock() { base::DefaultAllocator::Free(data_); }

  void Reserve(std::size_t size) { SetCapacity(size + 1); }

  // Reads `count` more bytes after those that are there.
  [[nodiscard]] bool Append(ByteSource& source, std::size_t count) {
    const std::size_t needed = size_ + count + 1;
    if (needed > capacity_) SetCapacity(std::max(needed, capacity_ * 2));
    if (!source.Read(data_ + size_, count)) return false;
    size_ += count;
    return true;
  }

  // Hands the block over.
  void MoveInto(Value& out, ValueType type) {
    if (capacity_ != size_ + 1) SetCapacity(size_ + 1);
    data_[size_] = 0;
    out = Value::AdoptBytes(type, std::exchange(data_, nullptr), size_);
  }

 private:
  void SetCapacity(std::size_t capacity) {
    data_ = static_cast<char*>(base::DefaultAllocator::Reallocate(data_, capacity));
    capacity_ = capacity;
  }

  char* data_ = nullptr;
  std::size_t size_ = 0;
  std::size_t capacity_ = 0;
};

// Bytes of the content whose chunks begin at `bytes`, after the first chunk's tag, when all of it
// is at hand and well formed; 0 otherwise.
std::size_t SizeAtHand(std::span<const std::byte> bytes, const TextKind& kind) noexcept {
  std::size_t total = 0;
  for (std::uint8_t chunk_tag = kind.chunk_tag;;) {
    if (bytes.size() < 2) return 0;
    const std::size_t count = LoadBigEndian<std::uint16_t>(bytes.data());
    if (bytes.size() < 2 + count) return 0;
    total += count;
    if (chunk_tag == kind.final_tag) return total;
    if (bytes.size() == 2 + count) return 0;
    chunk_tag = static_cast<std::uint8_t>(bytes[2 + count]);
    if (chunk_tag != kind.chunk_tag && chunk_tag != kind.final_tag) return 0;
    bytes = bytes.subspan(2 + count + 1);
  }
}

}  // namespace

bool ReadText(ByteSource& source, std::uint8_t first_tag, Value& out) {
  const bool is_string = first_tag == tag::kStringChunk || first_tag == tag::kString;
  const TextKind& kind = is_string ? kStringKind : kBinaryKind;
  TextBlock block;
  if (first_tag == kind.chunk_tag) {
    const std::size_t size = SizeAtHand(source.at_hand(), kind);
    if (size != 0) block.Reserve(size);
  }
  for (std::uint8_t chunk_tag = first_tag;;) {
    std::uint16_t count = 0;
    if (!ReadUint16(source, count)) return false;
    const bool is_final = chunk_tag == kind.final_tag;
    if (!is_final && count > kLongestChunk) return false;
    if (!block.Append(source, count)) return false;
    if (is_final) break;
    if (!source.ReadByte(chunk_tag)) return false;
    if (chunk_tag != kind.chunk_tag && chunk_tag != kind.final_tag) return false;
  }
  block.MoveInto(out, kind.type);
  return true;
}

}  // namespace TAVU::lumo
