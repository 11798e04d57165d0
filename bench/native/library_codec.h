// What is measured of each library. All make dynamically typed trees of the same data:
//
// - Build: the tree, out of plain data. Texts and bytes are borrowed where the library can borrow.
// - Encode: a tree into a new buffer, which is thrown away.
// - Decode: bytes into a new tree that stands alone, which is thrown away.
#pragma once

#include <cstddef>
#include <memory>
#include <string_view>

#include "shapes.h"

namespace TAVU::bench {

enum class Shape { kLog, kAttachment, kNumbers, kNamedNumbers, kNested };

class LibraryCodec {
 public:
  LibraryCodec() = default;
  LibraryCodec(const LibraryCodec&) = delete;
  LibraryCodec& operator=(const LibraryCodec&) = delete;
  virtual ~LibraryCodec() = default;

  virtual void Build() = 0;   // throws the tree away
  virtual void Encode() = 0;  // of a tree that was made before
  virtual void Decode() = 0;  // of the bytes of that tree
  virtual std::size_t encoded_size() const = 0;
};

// `shapes` outlives the codec.
std::unique_ptr<LibraryCodec> LumoCodec(const Shapes& shapes, Shape shape);
std::unique_ptr<LibraryCodec> CborCodec(const Shapes& shapes, Shape shape);

enum class Msgpack {
  kUnpacked,   // Decode ends in the library's object: pairs and elements in the order they came in
  kConverted,  // Decode converts it into containers of the C++ library, in which keys can be found
};
std::unique_ptr<LibraryCodec> MsgpackCodec(const Shapes& shapes, Shape shape, Msgpack decoded);

}  // namespace TAVU::bench
