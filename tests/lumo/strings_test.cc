// BasicString and the formatting engine.
#include <gtest/gtest.h>

#include <cstdarg>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "lumo/basic_string.h"
#include "lumo/formatter.h"
#include "support/vectors.h"

namespace TAVU::lumo {
namespace {

using test::Json;

TEST(BasicString, GrowsAsTheVectorsSay) {
  const Json vectors = test::LoadVectors("strings.json");
  for (const Json& test : vectors.at("growth")) {
    BasicString<char> narrow;
    BasicString<char16_t> wide;
    std::vector<std::size_t> capacities;
    for (const std::size_t count : test.at("appended").get<std::vector<std::size_t>>()) {
      narrow.Append(std::string(count, 'a'));
      wide.Append(std::u16string(count, u'a'));
      capacities.push_back(narrow.capacity());
      EXPECT_EQ(narrow.capacity(), wide.capacity()) << test;
    }
    EXPECT_EQ(capacities, test.at("capacity").get<std::vector<std::size_t>>()) << test;
  }
}

TEST(BasicString, TakesPartsOfItself) {
  BasicString<char> text(std::string(60, 'x') + "tail");
  text.Append(text.view());  // moves the buffer while it reads from it
  text.Append(text.view().substr(60, 4));
  EXPECT_EQ(text.view(), std::string(60, 'x') + "tail" + std::string(60, 'x') + "tail" + "tail");
  text.Assign(text.view().substr(58, 6));  // source and target overlap
  EXPECT_EQ(text.view(), "xxtail");
  text.Assign(text.view().substr(1, 4));
  EXPECT_STREQ(text.c_str(), "xtai");
}

TEST(BasicString, KeepsItsTextWhenASizeCannotBe) {
  BasicString<char16_t> text(u"kept");
  EXPECT_THROW(text.Reserve(SIZE_MAX), BadAllocation);
  EXPECT_THROW(text.Reserve(SIZE_MAX / 2), BadAllocation);
  EXPECT_EQ(text.view(), u"kept");
}

TEST(BasicString, HandsOutTerminatedText) {
  BasicString<char> text;
  EXPECT_STREQ(text.c_str(), "");
  EXPECT_EQ(text.c_str(), BasicString<char>().c_str()) << "the empty text is shared";
  text.Append(std::string(63, 'y'));
  EXPECT_EQ(std::string(text.c_str()), std::string(63, 'y'));
  BasicString<char> moved = std::move(text);
  EXPECT_EQ(moved.length(), 63u);
  moved.Clear();
  EXPECT_STREQ(moved.c_str(), "");
  EXPECT_EQ(moved.capacity(), 64u);
}

// Formats with the vectors' arguments, each as the type that its kind stands for.
template <typename... Arguments>
std::size_t FormatWith(BasicString<char>& out, const char* format, const Json& all,
                       Arguments... taken) {
  if (sizeof...(taken) == all.size()) return Format(out, format, taken...);
  if constexpr (sizeof...(taken) < 3) {
    const Json& next = all[sizeof...(taken)];
    if (next[0] == "int") return FormatWith(out, format, all, taken..., next[1].get<int>());
    if (next[0] == "long") {
      const std::int64_t value = std::stoll(next[1].get<std::string>());
      return FormatWith(out, format, all, taken..., value);
    }
    const char* const text =
        next[1].is_null() ? nullptr : next[1].get_ref<const std::string&>().c_str();
    return FormatWith(out, format, all, taken..., text);
  }
  throw std::length_error("more arguments than this test passes on");
}

TEST(Format, WritesWhatTheVectorsSay) {
  const Json vectors = test::LoadVectors("strings.json");
  for (const Json& test : vectors.at("format")) {
    BasicString<char> out(std::string_view("before "));
    const std::size_t written = FormatWith(
        out, test.at("format").get_ref<const std::string&>().c_str(), test.at("arguments"));
    const std::string text = test.at("text").get<std::string>();
    EXPECT_EQ(out.view(), "before " + text) << test;
    EXPECT_EQ(written, text.size()) << test;
  }
}

std::string Formatted(const char* format, ...) {
  BasicString<char> out;
  std::va_list arguments;
  va_start(arguments, format);
  FormatList(out, format, arguments);
  va_end(arguments);
  return std::string(out.view());
}

TEST(Format, CombinesFlagsAsCDoes) {
  const char unterminated[] = {'a', 'b', 'c'};
  const std::pair<std::string, const char*> kCases[] = {
      // Grouping: of digits, not of padding.
      {Formatted("%'d %'d %'d", 999, 1000, -1234567), "999 1,000 -1,234,567"},
      {Formatted("%'lu", UINT64_MAX), "18,446,744,073,709,551,615"},
      {Formatted("%'010d|%'-7d|%'.7u", 12345, 1234, 12u), "000012,345|1,234  |0,000,012"},
      {Formatted("%'x", 0x123456), "123456"},
      // Signs and their place before zeros; '+' beats ' '; neither on an unsigned number.
      {Formatted("%+05d|% 05d|%+ d|% +d", 42, 42, 1, 1), "+0042| 0042|+1|+1"},
      {Formatted("%+u|%+x|%+i", 1u, 1u, 0), "1|1|+0"},
      // '-' and an integer's precision beat '0'.
      {Formatted("%-05d|%0-5d|%05.3d|%8.3d|%-8.3d|", 42, 42, 42, -42, 42),
       "42   |42   |  042|    -042|042     |"},
      {Formatted("%.0d|%.d|%3.0d|%.0d", 0, 0, 0, 7), "||   |7"},
      {Formatted("%.*d|%.*d", -1, 0, 3, 5), "0|005"},
      // Prefixes.
      {Formatted("%#x %#X %#b %#o", 255, 255, 5, 8), "0xff 0XFF 0b101 010"},
      {Formatted("%#x %#b %#o %#.0o %#.4o", 0, 0, 0, 0, 8), "0 0 0 0 0010"},
      {Formatted("%#08x|%#-8x|%#8x", 255, 255, 255), "0x0000ff|0xff    |    0xff"},
      // Widths by argument.
      {Formatted("%*s|%-*s|%*.*s", 4, "a", 4, "b", -4, 1, "cd"), "   a|b   |c   "},
      // Texts and characters.
      {Formatted("%.3s|%5.2s|%.0s|%.2s", unterminated, unterminated, unterminated, nullptr),
       "abc|   ab||(n"},
      {Formatted("%3c|%-3c|", 'a', 'b'), "  a|b  |"},
      {Formatted("%p %p %14p|", reinterpret_cast<void*>(0xABCDEF0123), nullptr,
                 reinterpret_cast<void*>(1)),
       "0xabcdef0123 0x0            0x1|"},
      // 32-bit conversions see 32 bits; length modifiers make it 64.
      {Formatted("%x %lx %llx %zx", -1, std::int64_t{-1}, std::int64_t{-1}, std::int64_t{-1}),
       "ffffffff ffffffffffffffff ffffffffffffffff ffffffffffffffff"},
      {Formatted("%lli %lo", INT64_MIN, INT64_MIN), "-9223372036854775808 1000000000000000000000"},
      // What is no conversion stands as it is and takes no argument.
      {Formatted("%y %5.2f %n %ls %hd %d", 7), "%y %5.2f %n %ls %hd 7"},
      {Formatted("%5%|100%"), "%|100%"},
      {Formatted("%-"), "%-"},
  };
  for (const auto& [actual, expected] : kCases) EXPECT_EQ(actual, expected);
  EXPECT_EQ(Formatted("%c", 0), std::string(1, '\0'));
}

// A sink with buffers of three bytes that refuses after some of them.
class ScantSink final : public Formatter {
 public:
  explicit ScantSink(int buffers) : left_(buffers) {}

  bool begin() override { return grow(); }
  bool grow() override {
    buffer_ = room_;
    capacity_ = sizeof room_;
    return left_-- > 0;
  }
  void end(std::size_t written) override { text.append(room_, written); }

  std::string text;

 private:
  char room_[3] = {};
  int left_;
};

std::size_t WriteInto(Formatter& sink, const char* format, ...) {
  std::va_list arguments;
  va_start(arguments, format);
  const std::size_t written = FormatInto(sink, format, arguments);
  va_end(arguments);
  return written;
}

TEST(Format, GoesFromBufferToBufferAndStopsWhereTheSinkDoes) {
  for (const int buffers : {0, 1, 2, 3, 5}) {
    ScantSink sink(buffers);
    const std::size_t written = WriteInto(sink, "%s%4d%s", "abcd", 7, "z");
    const std::string expected =
        std::string("abcd   7z").substr(0, static_cast<std::size_t>(buffers) * 3);
    EXPECT_EQ(sink.text, expected);
    EXPECT_EQ(written, expected.size());
  }
}

}  // namespace
}  // namespace TAVU::lumo
