// The alphabet and the limits of the binary encoding, which its writer, its reader and its skipper
// share. See docs/wire.md.
#pragma once

#include <cstddef>
#include <cstdint>

namespace TAVU::lumo {

// A list in a list in a list … counts 3. Deeper values are refused in both directions, so that
// neither a peer's bytes nor a host's data exhaust the stack.
inline constexpr int kDeepestNesting = 1000;

// Bytes of one chunk of a string or a binary; longer content is split. A non-final chunk that
// announces more fails the reading, as does a column name or column type name of this length.
inline constexpr std::size_t kLongestChunk = 0x8000;

// The tag bytes.
namespace tag {
inline constexpr std::uint8_t kNull = 'N';
inline constexpr std::uint8_t kTrue = 'T';
inline constexpr std::uint8_t kFalse = 'F';
inline constexpr std::uint8_t kChar = 'C';
inline constexpr std::uint8_t kInt = 'I';
inline constexpr std::uint8_t kLong = 'L';
inline constexpr std::uint8_t kDouble = 'D';
inline constexpr std::uint8_t kDate = 'd';
inline constexpr std::uint8_t kStringChunk = 's';
inline constexpr std::uint8_t kString = 'S';  // the final chunk
inline constexpr std::uint8_t kBinaryChunk = 'b';
inline constexpr std::uint8_t kBinary = 'B';  // the final chunk
inline constexpr std::uint8_t kList = 'V';
inline constexpr std::uint8_t kLength = 'l';
inline constexpr std::uint8_t kMap = 'M';
inline constexpr std::uint8_t kTable = 'Z';
inline constexpr std::uint8_t kColumnType = 't';
inline constexpr std::uint8_t kEnd = 'z';
}  // namespace tag

// Bytes of a scalar's encoding, the tag included; 0 for the tags of other values.
constexpr std::size_t ScalarSize(std::uint8_t value_tag) noexcept {
  switch (value_tag) {
    case tag::kNull:
    case tag::kTrue:
    case tag::kFalse:
    case tag::kEnd:
      return 1;
    case tag::kChar:
      return 2;
    case tag::kInt:
      return 5;
    case tag::kLong:
    case tag::kDouble:
    case tag::kDate:
      return 9;
    default:
      return 0;
  }
}

inline constexpr std::size_t kLongestScalar = 9;

}  // namespace TAVU::lumo
