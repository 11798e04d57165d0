// The binary encoding of values: a tag byte, big-endian numbers, chunked strings, containers closed
// by an end tag. See docs/wire.md.
//
// Both directions recurse into nested values, to kDeepestNesting levels and no further. With the
// comparison of keys nested as deep, and with the freeing of the values, that takes 256 KiB of
// stack at the most in any build with optimisation.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "lumo/codec/byte_stream.h"
#include "lumo/codec/encoding.h"
#include "lumo/value/value.h"

namespace TAVU::lumo {

// Writes `value` and everything in it, depth first. False when the sink refused, when a type
// without an encoding occurs anywhere in it or when it is nested too deeply; bytes already written
// stay.
[[nodiscard]] bool WriteValue(ByteSink& sink, const Value& value);

// Reads one value and everything in it. False on any byte sequence that is no value; `out` is then
// partly filled and the source stands wherever the failure stopped it. A value of type kEnd is
// returned as success for the tag "z": only readers of containers accept it.
[[nodiscard]] bool ReadValue(ByteSource& source, Value& out);

// The pieces that framing is made of, all big-endian.
[[nodiscard]] bool WriteUint16(ByteSink& sink, std::uint16_t value);
[[nodiscard]] bool WriteUint32(ByteSink& sink, std::uint32_t value);
[[nodiscard]] bool ReadUint16(ByteSource& source, std::uint16_t& out);
[[nodiscard]] bool ReadUint32(ByteSource& source, std::uint32_t& out);

// One chunk: `chunk_tag`, the length modulo 65536 as 16 bits, the bytes.
[[nodiscard]] bool WriteChunk(ByteSink& sink, std::uint8_t chunk_tag, std::string_view text);
[[nodiscard]] bool EndContainer(ByteSink& sink);

}  // namespace TAVU::lumo
