// The key=value pairs that a crash reporter is started with, and in which a kept report notes its
// identity. Portable: no Windows header.
//
// A line is a run of "key=value" words with white space between them. Within a value the writer has
// replaced each space, tab, carriage return, line feed and percent sign by "%" and its code in
// hexadecimal without zero-fill (%20 %9 %D %A %25) and nothing else: quotes stand as they are, so
// rules that give quotes a meaning (CommandLineToArgvW, argv) must not see the line first.
#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace crash_reporter {

class Pairs {
 public:
  // Words without "=" are passed over; of a key that comes twice the first counts.
  [[nodiscard]] static Pairs Parse(std::wstring_view text);
  // The same for a whole command line: the program in front, quoted or not, is no pair.
  [[nodiscard]] static Pairs ParseCommandLine(std::wstring_view command_line);

  [[nodiscard]] bool Has(std::wstring_view key) const noexcept;
  // Decoded. Empty when the key is missing; valid while the object lives and is not changed.
  [[nodiscard]] std::wstring_view Get(std::wstring_view key) const noexcept;

  void Add(std::wstring_view key, std::wstring_view value);
  // One pair a line, in the order of adding; Parse() gives the same pairs back.
  [[nodiscard]] std::wstring ToLines() const;

 private:
  std::vector<std::pair<std::wstring, std::wstring>> pairs_;
};

// The percent forms that the writer makes, and their zero-filled twins, become their characters.
// Any other percent sign cannot come from the writer and stays.
[[nodiscard]] std::wstring UnescapeValue(std::wstring_view value);
[[nodiscard]] std::wstring EscapeValue(std::wstring_view text);

}  // namespace crash_reporter
