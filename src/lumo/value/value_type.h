// The types of lumo values. The numbers are part of the wire format (a table's columns carry type
// names, and the order of values of different types follows from them): none may change.
#pragma once

#include <cstdint>
#include <string_view>

namespace TAVU::lumo {

enum class ValueType : std::uint8_t {
  kNull = 1,
  kBool = 2,
  kChar = 3,
  kInt = 4,
  kLong = 5,
  kDouble = 6,
  kDate = 7,
  kString = 8,
  kBinary = 9,
  kBigInt = 10,
  // Names without content: no constructor, no conversion and no encoding knows these five.
  kXml = 50,
  kRemote = 51,
  kRef = 52,
  kNumber = 150,
  kEnd = 255,  // marks the end of a container while it is decoded
  kList = 100,
  kMap = 101,
  kTable = 102,
};

// "null", "bool", …; "unknown" for a tag outside the enumeration. The text is static.
[[nodiscard]] const char* TypeName(ValueType type) noexcept;

// The type of that exact name; kNull for a null pointer or an unknown name.
[[nodiscard]] ValueType TypeFromName(std::string_view name) noexcept;
[[nodiscard]] inline ValueType TypeFromName(const char* name) noexcept {
  return name == nullptr ? ValueType::kNull : TypeFromName(std::string_view(name));
}

// True for the types whose payload lies on the heap.
[[nodiscard]] constexpr bool IsOwningType(ValueType type) noexcept {
  const auto tag = static_cast<std::uint8_t>(type);
  return tag >= 8 && (tag < 11 || (tag >= 100 && tag <= 102));
}

}  // namespace TAVU::lumo
