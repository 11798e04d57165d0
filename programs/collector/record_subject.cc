#include "record_subject.h"

#include <algorithm>
#include <cstddef>

namespace TAVU::collector {
namespace {

constexpr std::size_t kLongestSoftware = 64;

}  // namespace

bool IsNameCharacter(char character) noexcept {
  return (character >= 'a' && character <= 'z') || (character >= 'A' && character <= 'Z') ||
         (character >= '0' && character <= '9') || character == '-' || character == '_';
}

std::string RecordSubject(std::string_view stream, std::string_view kind,
                          std::string_view software) {
  std::string token(software.substr(0, kLongestSoftware));
  std::replace_if(
      token.begin(), token.end(), [](char character) { return !IsNameCharacter(character); }, '_');
  if (token.empty()) token = "_";
  std::string subject(stream);
  ((subject += '.') += kind) += '.';
  return subject += token;
}

}  // namespace TAVU::collector
