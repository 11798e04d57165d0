// Hosts call the library from threads of their own, whose stacks may be small. Measured in the
// build that they get: sanitizers make everything larger.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <vector>

#include "lumo/codec.h"
#include "support/vectors.h"

namespace TAVU::lumo {
namespace {

std::uintptr_t StackPointer() {
  return reinterpret_cast<std::uintptr_t>(__builtin_frame_address(0));
}

// Streams that are called for every byte and notice how deep the stack is then.
class Gauge {
 public:
  void Measure() { lowest_ = std::min(lowest_, StackPointer()); }
  std::uintptr_t BytesBelow(std::uintptr_t start) const { return start - lowest_; }

 private:
  std::uintptr_t lowest_ = UINTPTR_MAX;
};

class GaugingSource : public ByteSource {
 public:
  GaugingSource(std::span<const std::byte> bytes, Gauge& gauge) : rest_(bytes), gauge_(gauge) {}

 private:
  std::ptrdiff_t Refill() override {
    gauge_.Measure();
    if (rest_.empty()) return 0;
    window_ = rest_.data();
    window_end_ = window_ + 1;
    rest_ = rest_.subspan(1);
    return 1;
  }
  std::span<const std::byte> rest_;
  Gauge& gauge_;
};

class GaugingSink : public ByteSink {
 public:
  explicit GaugingSink(Gauge& gauge) : gauge_(gauge) {}

 private:
  std::ptrdiff_t Accept(const std::byte*, std::size_t size) override {
    gauge_.Measure();
    return static_cast<std::ptrdiff_t>(size);
  }
  Gauge& gauge_;
};

TEST(StackUse, StaysBelow256KiBAtTheDeepestNesting) {
  const struct {
    const char* open;
    const char* close;
  } kCases[] = {
      {"56", "7a"},
      {"4d4e", "7a"},
      {"4d", "4e7a"},
      {"5a566c000000007a566c0000000156", "7a7a7a"},
  };
  for (const auto& [open, close] : kCases) {
    const std::vector<std::byte> bytes = test::BytesOf(
        {{"repeat", open, kDeepestNesting}, "4e", {"repeat", close, kDeepestNesting}});
    Gauge reading;
    GaugingSource source(bytes, reading);
    Value value;
    ASSERT_TRUE(ReadValue(source, value));
    EXPECT_LT(reading.BytesBelow(StackPointer()), 256u * 1024) << open;

    Gauge writing;
    GaugingSink sink(writing);
    ASSERT_TRUE(WriteValue(sink, value));
    EXPECT_LT(writing.BytesBelow(StackPointer()), 256u * 1024) << open;
  }
}

}  // namespace
}  // namespace TAVU::lumo
