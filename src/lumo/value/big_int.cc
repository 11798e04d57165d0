#include "lumo/value/big_int.h"

#include <algorithm>
#include <utility>

namespace TAVU::lumo {

namespace {

using Limbs = BigInt::Limbs;

constexpr std::uint32_t kBillion = 1'000'000'000;
constexpr int kBillionDigits = 9;

void DropLeadingZeros(Limbs& limbs) noexcept {
  while (!limbs.empty() && limbs.back() == 0) limbs.pop_back();
}

Limbs MagnitudeOf(std::int64_t value) {
  // In unsigned arithmetic, which knows the absolute value of the smallest number too.
  const auto bits = static_cast<std::uint64_t>(value);
  const std::uint64_t magnitude = value < 0 ? 0 - bits : bits;
  Limbs limbs = {static_cast<std::uint32_t>(magnitude),
                 static_cast<std::uint32_t>(magnitude >> 32)};
  DropLeadingZeros(limbs);
  return limbs;
}

bool IsLess(const Limbs& a, const Limbs& b) noexcept {
  if (a.size() != b.size()) return a.size() < b.size();
  return std::lexicographical_compare(a.rbegin(), a.rend(), b.rbegin(), b.rend());
}

Limbs Sum(const Limbs& a, const Limbs& b) {
  const Limbs& longer = a.size() < b.size() ? b : a;
  const Limbs& shorter = a.size() < b.size() ? a : b;
  Limbs sum;
  sum.reserve(longer.size() + 1);
  std::uint64_t carry = 0;
  for (std::size_t i = 0; i < longer.size(); ++i) {
    carry += std::uint64_t{longer[i]} + (i < shorter.size() ? shorter[i] : 0);
    sum.push_back(static_cast<std::uint32_t>(carry));
    carry >>= 32;
  }
  sum.push_back(static_cast<std::uint32_t>(carry));
  return sum;
}

// Needs a >= b.
Limbs Difference(const Limbs& a, const Limbs& b) {
  Limbs difference;
  difference.reserve(a.size());
  std::uint64_t borrow = 0;
  for (std::size_t i = 0; i < a.size(); ++i) {
    const std::uint64_t limb = std::uint64_t{a[i]} - (i < b.size() ? b[i] : 0) - borrow;
    difference.push_back(static_cast<std::uint32_t>(limb));
    borrow = limb >> 63;
  }
  return difference;
}

// limbs = limbs * factor + summand
void MultiplyAdd(Limbs& limbs, std::uint32_t factor, std::uint32_t summand) {
  std::uint64_t carry = summand;
  for (std::uint32_t& limb : limbs) {
    carry += std::uint64_t{limb} * factor;
    limb = static_cast<std::uint32_t>(carry);
    carry >>= 32;
  }
  if (carry != 0) limbs.push_back(static_cast<std::uint32_t>(carry));
}

// limbs = limbs / divisor; returns the remainder.
std::uint32_t Divide(Limbs& limbs, std::uint32_t divisor) noexcept {
  std::uint64_t remainder = 0;
  for (auto limb = limbs.rbegin(); limb != limbs.rend(); ++limb) {
    remainder = remainder << 32 | *limb;
    *limb = static_cast<std::uint32_t>(remainder / divisor);
    remainder %= divisor;
  }
  DropLeadingZeros(limbs);
  return static_cast<std::uint32_t>(remainder);
}

}  // namespace

BigInt::BigInt(std::int64_t value)
    : sign_(value < 0   ? -1
            : value > 0 ? 1
                        : 0),
      limbs_(MagnitudeOf(value)) {}

BigInt::BigInt(int sign, Limbs limbs) : sign_(sign), limbs_(std::move(limbs)) {
  if (sign_ == 0) limbs_.clear();
  DropLeadingZeros(limbs_);
  if (limbs_.empty()) sign_ = 0;
}

std::optional<BigInt> BigInt::FromDecimal(std::string_view text) {
  const bool is_negative = text.starts_with('-');
  if (is_negative || text.starts_with('+')) text.remove_prefix(1);
  if (text.empty()) return std::nullopt;
  Limbs limbs;
  for (const char digit : text) {
    if (digit < '0' || digit > '9') return std::nullopt;
    MultiplyAdd(limbs, 10, static_cast<std::uint32_t>(digit - '0'));
  }
  return BigInt(is_negative ? -1 : 1, std::move(limbs));
}

BigInt BigInt::Minus(const BigInt& other) const {
  if (other.sign_ == 0) return BigInt(sign_, limbs_);
  if (sign_ != other.sign_) return BigInt(-other.sign_, Sum(limbs_, other.limbs_));
  if (IsLess(limbs_, other.limbs_)) return BigInt(-sign_, Difference(other.limbs_, limbs_));
  return BigInt(sign_, Difference(limbs_, other.limbs_));
}

std::optional<std::int64_t> BigInt::ToInt64() const noexcept {
  if (limbs_.size() > 2) return std::nullopt;
  std::uint64_t magnitude = 0;
  for (std::size_t i = limbs_.size(); i > 0; --i) magnitude = magnitude << 32 | limbs_[i - 1];
  constexpr std::uint64_t kLargest = INT64_MAX;
  if (magnitude > kLargest + (sign_ < 0 ? 1 : 0)) return std::nullopt;
  return static_cast<std::int64_t>(sign_ < 0 ? 0 - magnitude : magnitude);
}

std::optional<std::int32_t> BigInt::ToInt32() const noexcept {
  const std::optional<std::int64_t> value = ToInt64();
  if (!value || *value < INT32_MIN || *value > INT32_MAX) return std::nullopt;
  return static_cast<std::int32_t>(*value);
}

std::string_view BigInt::ToDecimal() {
  // Written from the last digit on and turned round in the end.
  text_.clear();
  Limbs rest = limbs_;
  do {
    std::uint32_t group = Divide(rest, kBillion);
    // Groups are padded to their nine digits, the leading one is not.
    for (int i = 0; rest.empty() ? group != 0 : i < kBillionDigits; ++i, group /= 10) {
      text_ += static_cast<char>('0' + group % 10);
    }
  } while (!rest.empty());
  if (text_.empty()) text_ = "0";
  if (sign_ < 0) text_ += '-';
  std::reverse(text_.begin(), text_.end());
  return text_;
}

}  // namespace TAVU::lumo
