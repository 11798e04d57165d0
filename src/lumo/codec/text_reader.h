// The part of the decoder that reads strings and binaries: runs of chunks, of which the last one
// has a tag of its own.
#pragma once

#include <cstdint>

#include "lumo/codec/byte_stream.h"
#include "lumo/value/value.h"

namespace TAVU::lumo {

// Reads the string or binary whose first tag, `first_tag`, has been read: one of the four chunk
// tags. False when the input ends inside it, when a chunk of another kind comes, or when one but
// the last is longer than kLongestChunk. Memory is taken for the bytes that have come, twice over
// at the most, and for the one chunk that is announced, which is below 64 KiB.
[[nodiscard]] bool ReadText(ByteSource& source, std::uint8_t first_tag, Value& out);

}  // namespace TAVU::lumo
