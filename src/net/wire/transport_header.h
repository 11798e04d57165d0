// The header in front of each message: CF, a version, its own length, and up to 62 optional fields
// in two lists. Our requests carry none; of a reply's fields only number 0 of the first list
// matters here: the body after it comes without packets.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

#include "lumo/codec/byte_stream.h"

namespace TAVU::QTC {

class TransportHeader {
 public:
  static constexpr std::uint8_t kFirstByte = 0xCF;
  static constexpr std::size_t kFixedSize = 4;  // bytes: first byte, version, length
  static constexpr std::size_t kMaskSize = 4;   // bytes of the mask in front of a list's fields
  static constexpr std::size_t kFieldsPerList = 31;
  using FieldList = std::array<std::optional<std::string>, kFieldsPerList>;

  // Field i of a list stands in bit 31 - i of its mask; bit 0 stands for nothing.
  [[nodiscard]] static constexpr std::uint32_t BitOf(std::size_t field) noexcept {
    return std::uint32_t{1} << (31 - field);
  }

  void Reset() noexcept;  // version 1.0, no fields

  // Writes the header. A field is at most 255 bytes; a longer one fails here instead of writing a
  // header whose length is wrong.
  [[nodiscard]] bool Write(lumo::ByteSink& sink) const;

  // Reads a header, whatever its version. False on a wrong first byte, a length below 4 or one that
  // its masks and fields do not fit into.
  [[nodiscard]] bool Read(lumo::ByteSource& source);

  [[nodiscard]] bool HasUnpacketedBody() const noexcept { return first[0].has_value(); }

  std::uint8_t major = 1;
  std::uint8_t minor = 0;
  FieldList first;
  FieldList second;
};

}  // namespace TAVU::QTC
