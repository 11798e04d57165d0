// An integer of any size. As much arithmetic as values need: subtraction, comparison with zero,
// conversions.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

#include "base/allocator.h"
#include "base/heap_allocator.h"

namespace TAVU::lumo {

// Moving allocates nothing, though the move of a text can where allocators differ.
class BigInt : public base::FromDefaultAllocator {  // NOLINT(bugprone-exception-escape)
 public:
  using Limbs = base::HeapVector<std::uint32_t>;

  BigInt() = default;  // zero
  explicit BigInt(std::int32_t value) : BigInt(std::int64_t{value}) {}
  explicit BigInt(std::int64_t value);
  // From 32-bit limbs, least significant first; leading zero limbs are dropped. `sign` is -1, 0
  // or 1.
  BigInt(int sign, Limbs limbs);

  // An optional sign and decimal digits, nothing else; nothing for another text.
  [[nodiscard]] static std::optional<BigInt> FromDecimal(std::string_view text);

  [[nodiscard]] int sign() const noexcept { return sign_; }  // -1, 0 or 1
  [[nodiscard]] const Limbs& limbs() const noexcept { return limbs_; }

  [[nodiscard]] BigInt Minus(const BigInt& other) const;
  [[nodiscard]] std::optional<std::int64_t> ToInt64() const noexcept;  // nothing: does not fit
  [[nodiscard]] std::optional<std::int32_t> ToInt32() const noexcept;

  // Decimal text, kept in a buffer of the number until the next call.
  [[nodiscard]] std::string_view ToDecimal();

 private:
  int sign_ = 0;
  Limbs limbs_;  // magnitude, least significant first; empty for zero
  base::HeapText text_;
};

}  // namespace TAVU::lumo
