#include "pairs.h"

#include <algorithm>

namespace crash_reporter {

namespace {

constexpr std::wstring_view kWhiteSpace = L" \t\r\n";

struct PercentForm {
  wchar_t character;
  std::wstring_view form;
};

// Reading a one-digit form is safe although a hexadecimal digit may follow it ("%Abc" is a line
// feed and "bc"): no form is the beginning of another, since the writer knows these five characters
// alone. The first row of a character is the one that is written.
constexpr PercentForm kPercentForms[] = {
    {L' ', L"%20"}, {L'\t', L"%9"},  {L'\r', L"%D"},  {L'\n', L"%A"},
    {L'%', L"%25"}, {L'\t', L"%09"}, {L'\r', L"%0D"}, {L'\n', L"%0A"},
};

const PercentForm* FormAt(std::wstring_view text) noexcept {
  for (const PercentForm& form : kPercentForms) {
    if (text.substr(0, form.form.size()) == form.form) return &form;
  }
  return nullptr;
}

const PercentForm* FormOf(wchar_t character) noexcept {
  for (const PercentForm& form : kPercentForms) {
    if (form.character == character) return &form;
  }
  return nullptr;
}

std::wstring_view WithoutProgram(std::wstring_view line) noexcept {
  const bool quoted = line.substr(0, 1) == L"\"";
  const std::size_t end = quoted ? line.find(L'"', 1) : line.find_first_of(kWhiteSpace);
  return end == std::wstring_view::npos ? std::wstring_view() : line.substr(end + 1);
}

}  // namespace

std::wstring UnescapeValue(std::wstring_view value) {
  std::wstring text;
  text.reserve(value.size());
  while (!value.empty()) {
    const PercentForm* form = FormAt(value);
    text += form ? form->character : value.front();
    value.remove_prefix(form ? form->form.size() : 1);
  }
  return text;
}

std::wstring EscapeValue(std::wstring_view text) {
  std::wstring value;
  for (const wchar_t character : text) {
    if (const PercentForm* form = FormOf(character)) {
      value += form->form;
    } else {
      value += character;
    }
  }
  return value;
}

Pairs Pairs::Parse(std::wstring_view text) {
  Pairs pairs;
  while (!text.empty()) {
    const std::size_t end = std::min(text.find_first_of(kWhiteSpace), text.size());
    const std::wstring_view word = text.substr(0, end);
    text.remove_prefix(std::min(end + 1, text.size()));
    const std::size_t equals = word.find(L'=');
    if (equals == std::wstring_view::npos || pairs.Has(word.substr(0, equals))) continue;
    pairs.Add(word.substr(0, equals), UnescapeValue(word.substr(equals + 1)));
  }
  return pairs;
}

Pairs Pairs::ParseCommandLine(std::wstring_view command_line) {
  return Parse(WithoutProgram(command_line));
}

bool Pairs::Has(std::wstring_view key) const noexcept {
  return std::any_of(pairs_.begin(), pairs_.end(),
                     [key](const auto& pair) { return pair.first == key; });
}

std::wstring_view Pairs::Get(std::wstring_view key) const noexcept {
  for (const auto& [name, value] : pairs_) {
    if (name == key) return value;
  }
  return {};
}

void Pairs::Add(std::wstring_view key, std::wstring_view value) {
  pairs_.emplace_back(key, value);
}

std::wstring Pairs::ToLines() const {
  std::wstring lines;
  for (const auto& [key, value] : pairs_) {
    lines += key;
    lines += L'=';
    lines += EscapeValue(value);
    lines += L"\r\n";
  }
  return lines;
}

}  // namespace crash_reporter
