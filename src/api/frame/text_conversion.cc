#include "api/frame/text_conversion.h"

#include <windows.h>

#include <limits>
#include <utility>

namespace TAVU::api {
namespace {

// The system counts in int; a longer text cannot be converted.
constexpr std::size_t kLongestText = std::numeric_limits<int>::max();

bool Encode(UINT codePage, std::wstring_view text, std::string& out) {
  out.clear();
  if (text.empty()) return true;  // the system calls take no empty text
  if (text.size() > kLongestText) return false;
  const int length = static_cast<int>(text.size());
  const int size =
      ::WideCharToMultiByte(codePage, 0, text.data(), length, nullptr, 0, nullptr, nullptr);
  if (size <= 0) return false;
  out.resize(static_cast<std::size_t>(size));
  return ::WideCharToMultiByte(codePage, 0, text.data(), length, out.data(), size, nullptr,
                               nullptr) == size;
}

bool Decode(UINT codePage, std::string_view text, std::wstring& out) {
  out.clear();
  if (text.empty()) return true;
  if (text.size() > kLongestText) return false;
  const int length = static_cast<int>(text.size());
  const int size = ::MultiByteToWideChar(codePage, 0, text.data(), length, nullptr, 0);
  if (size <= 0) return false;
  out.resize(static_cast<std::size_t>(size));
  return ::MultiByteToWideChar(codePage, 0, text.data(), length, out.data(), size) == size;
}

constexpr bool StaysAsItIs(char byte) noexcept {
  return IsAsciiLetterOrDigit(byte) || byte == '*' || byte == '-' || byte == '.' || byte == '_';
}

}  // namespace

bool WideToAnsi(std::wstring_view text, std::string& out) {
  return Encode(CP_ACP, text, out);
}

bool AnsiToWide(std::string_view text, std::wstring& out) {
  return Decode(CP_ACP, text, out);
}

bool WideToUtf8(std::wstring_view text, std::string& out, TextForm form) {
  std::string utf8;
  if (!Encode(CP_UTF8, text, utf8)) return false;
  out = form == TextForm::kPercentEncoded ? PercentEncode(utf8) : std::move(utf8);
  return true;
}

bool AnsiToUtf8(std::string_view text, std::string& out, TextForm form) {
  std::wstring wide;
  return AnsiToWide(text, wide) && WideToUtf8(wide, out, form);
}

std::string PercentEncode(std::string_view text) {
  constexpr char kDigits[] = "0123456789ABCDEF";
  std::string encoded;
  encoded.reserve(text.size());
  for (const char byte : text) {
    if (StaysAsItIs(byte)) {
      encoded.push_back(byte);
      continue;
    }
    const auto value = static_cast<unsigned char>(byte);
    encoded.push_back('%');
    encoded.push_back(kDigits[value >> 4]);
    encoded.push_back(kDigits[value & 0xF]);
  }
  return encoded;
}

}  // namespace TAVU::api
