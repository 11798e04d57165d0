// What the text view and the conversions may do to a value beyond its own interface. For
// text_view.cc and conversion.cc only.
#pragma once

#include <cstring>
#include <utility>

#include "lumo/value/value.h"

namespace TAVU::lumo {

class ValueTextAccess {
 public:
  // The first bytes of the payload, whatever the value's type.
  template <typename T>
  [[nodiscard]] static T Payload(const Value& value) noexcept {
    static_assert(sizeof(T) <= sizeof(Value::Payload));
    T bits;
    std::memcpy(&bits, &value.payload_, sizeof bits);
    return bits;
  }
  // A char's content, where it lies.
  [[nodiscard]] static const char* Character(const Value& value) noexcept {
    return reinterpret_cast<const char*>(&value.payload_.byte);
  }

  // The text cache is zero-terminated memory of DefaultAllocator. Who detaches it frees it.
  [[nodiscard]] static const char* Cache(const Value& value) noexcept { return value.text_cache_; }
  static void SetCache(Value& value, char* text) noexcept { value.text_cache_ = text; }
  [[nodiscard]] static char* DetachCache(Value& value) noexcept {
    return std::exchange(value.text_cache_, nullptr);
  }

  // Makes a binary of a string or a null: content, if any, and owner stay.
  static void MakeBinary(Value& value) noexcept { value.type_ = ValueType::kBinary; }
};

}  // namespace TAVU::lumo
