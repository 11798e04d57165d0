// The binary encoding of values: a tag byte, big-endian numbers, chunked strings, containers closed
// by an end tag. See docs/wire.md.
//
// Both directions recurse into nested values, to kDeepestNesting levels and no further. In the DLL
// that takes 256 KiB of stack at the most.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "lumo/codec/byte_stream.h"
#include "lumo/value/value.h"

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

// Writes `value` and everything in it, depth first. False when the sink refused, when a type
// without an encoding occurs anywhere in it or when it is nested too deeply; bytes already written
// stay. A sink that borrows refers to the texts and binaries of `value` until it is flushed.
[[nodiscard]] bool WriteValue(ByteSink& sink, const Value& value);

// Reads one value and everything in it. False on any byte sequence that is no value; `out` is then
// partly filled and the source stands wherever the failure stopped it. A value of type kEnd is
// returned as success for the tag "z": only readers of containers accept it.
[[nodiscard]] bool ReadValue(ByteSource& source, Value& out);

// The pieces that framing is made of, all big-endian.
[[nodiscard]] bool WriteUint16(ByteSink& sink, std::uint16_t value);
[[nodiscard]] bool WriteUint32(ByteSink& sink, std::uint32_t value);
[[nodiscard]] bool WriteUint64(ByteSink& sink, std::uint64_t value);
[[nodiscard]] bool WriteDouble(ByteSink& sink, double value);
[[nodiscard]] bool ReadUint16(ByteSource& source, std::uint16_t& out);
[[nodiscard]] bool ReadUint32(ByteSource& source, std::uint32_t& out);
[[nodiscard]] bool ReadUint64(ByteSource& source, std::uint64_t& out);
[[nodiscard]] bool ReadDouble(ByteSource& source, double& out);

// One chunk: `chunk_tag`, the length modulo 65536 as 16 bits, the bytes.
[[nodiscard]] bool WriteChunk(ByteSink& sink, std::uint8_t chunk_tag, std::string_view text);
[[nodiscard]] bool BeginList(ByteSink& sink, std::int32_t count);  // no count when negative
[[nodiscard]] bool BeginMap(ByteSink& sink);
[[nodiscard]] bool EndContainer(ByteSink& sink);

}  // namespace TAVU::lumo
