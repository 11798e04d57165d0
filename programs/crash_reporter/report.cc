#include "report.h"

#include <cwchar>

namespace crash_reporter {

namespace {

// The keys are the library's; "aotoReport" is spelled so there. "comment" and "agreed" are the
// reporter's own, for the reports that it keeps.
namespace key {
constexpr std::wstring_view kDocument = L"exceptionInfoFilename";
constexpr std::wstring_view kDump = L"dumpFilename";
constexpr std::wstring_view kAutoReport = L"aotoReport";
constexpr std::wstring_view kLanguage = L"reportLang";
constexpr std::wstring_view kAgreed = L"agreed";
constexpr std::wstring_view kRestart = L"appRestart";
constexpr std::wstring_view kRestartCommand = L"appExecuteCmd";
constexpr std::wstring_view kProcessId = L"appPid";
}  // namespace key

struct TextPair {
  std::wstring_view key;
  std::wstring CrashReport::*field;
};

constexpr TextPair kTextPairs[] = {
    {key::kDocument, &CrashReport::document_path},
    {key::kDump, &CrashReport::dump_path},
    {L"exceptionAddr", &CrashReport::exception_address},
    {L"userId", &CrashReport::user_id},
    {L"softwareVer", &CrashReport::software_version},
    {L"softwareId", &CrashReport::software_id},
    {L"serverAddr", &CrashReport::server_address},
    {L"appShowName", &CrashReport::app_show_name},
    {L"appExeFile", &CrashReport::app_exe_file},
    {L"comment", &CrashReport::comment},
};

// Unsigned numbers above 2^31 come in their signed form.
std::uint32_t NumberOf(std::wstring_view text) {
  return static_cast<std::uint32_t>(std::wcstoll(std::wstring(text).c_str(), nullptr, 10));
}

bool IsTrue(std::wstring_view text) noexcept {
  return text == L"true";
}

}  // namespace

std::optional<Server> ParseServer(std::wstring_view address) {
  const std::size_t colon = address.rfind(L':');
  if (colon == std::wstring_view::npos || colon == 0) return std::nullopt;
  const std::wstring_view digits = address.substr(colon + 1);
  if (digits.empty() || digits.size() > 5) return std::nullopt;
  if (digits.find_first_not_of(L"0123456789") != std::wstring_view::npos) return std::nullopt;
  const std::uint32_t port = NumberOf(digits);
  if (port == 0 || port > 0xFFFF) return std::nullopt;
  return Server{std::wstring(address.substr(0, colon)), static_cast<std::uint16_t>(port)};
}

std::optional<CrashReport> CrashReport::From(const Pairs& pairs) {
  if (pairs.Get(key::kDocument).empty() && pairs.Get(key::kDump).empty()) return std::nullopt;
  CrashReport report;
  for (const TextPair& pair : kTextPairs) report.*pair.field = pairs.Get(pair.key);
  report.auto_report = IsTrue(pairs.Get(key::kAutoReport));
  report.agreed = IsTrue(pairs.Get(key::kAgreed));
  report.language = NumberOf(pairs.Get(key::kLanguage));
  return report;
}

Pairs CrashReport::ToPairs() const {
  Pairs pairs;
  for (const TextPair& pair : kTextPairs) pairs.Add(pair.key, this->*pair.field);
  pairs.Add(key::kAutoReport, auto_report ? L"true" : L"false");
  pairs.Add(key::kAgreed, agreed ? L"true" : L"false");
  pairs.Add(key::kLanguage, std::to_wstring(language));
  return pairs;
}

std::wstring CrashReport::DisplayName() const {
  if (!app_show_name.empty()) return app_show_name;
  return app_exe_file.empty() ? L"?" : app_exe_file;
}

std::optional<RestartRequest> RestartRequest::From(const Pairs& pairs) {
  if (!IsTrue(pairs.Get(key::kRestart))) return std::nullopt;
  return RestartRequest{std::wstring(pairs.Get(key::kRestartCommand)),
                        NumberOf(pairs.Get(key::kProcessId))};
}

}  // namespace crash_reporter
