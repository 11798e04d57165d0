// What the crash reporter reads from its command line, and what it says.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "crash_reporter/pairs.h"
#include "crash_reporter/report.h"
#include "crash_reporter/texts.h"
#include "support/vectors.h"

namespace crash_reporter {
namespace {

using TAVU::test::Json;

std::wstring Wide(const Json& text) {
  const auto utf8 = text.get<std::string>();
  const std::filesystem::path path(std::u8string(utf8.begin(), utf8.end()));
  const auto utf16 = path.u16string();  // as wchar_t is on Windows
  const auto utf32 = path.u32string();  // and elsewhere
  return sizeof(wchar_t) == 2 ? std::wstring(utf16.begin(), utf16.end())
                              : std::wstring(utf32.begin(), utf32.end());
}

const Json vectors = TAVU::test::LoadVectors("texts.json");

TEST(CommandLine, GivesBackWhatTheLibraryWasGiven) {
  const std::pair<const char*, std::wstring CrashReport::*> kTexts[] = {
      {"info_path", &CrashReport::document_path},
      {"dump_path", &CrashReport::dump_path},
      {"user_id", &CrashReport::user_id},
      {"software_id", &CrashReport::software_id},
      {"software_ver", &CrashReport::software_version},
      {"app_show_name", &CrashReport::app_show_name},
      {"app_exe_file", &CrashReport::app_exe_file}};
  for (const Json& test : vectors["reporter_command_line"]) {
    SCOPED_TRACE(test["line"].get<std::string>());
    const Json& given = test["given"];
    auto report = CrashReport::From(Pairs::ParseCommandLine(Wide(test["line"])));
    for (int times_kept = 0; times_kept < 2; ++times_kept) {
      ASSERT_TRUE(report);
      for (const auto& [key, field] : kTexts) EXPECT_EQ((*report).*field, Wide(given[key])) << key;
      EXPECT_EQ(report->auto_report, given["auto_report"].get<bool>());
      EXPECT_EQ(report->language, given["report_lang"].get<std::uint32_t>());
      const auto address = std::stoull(given["exception_address"].get<std::string>(), nullptr, 16);
      EXPECT_EQ(std::stoull(report->exception_address, nullptr, 16), address & 0xFFFFFFFF);
      const std::wstring server = Wide(given["server_host"]) + L":";
      EXPECT_EQ(report->server_address.substr(0, server.size()), server.substr(0, 63));
      report = CrashReport::From(Pairs::Parse(report->ToPairs().ToLines()));
    }
  }
}

TEST(CommandLine, GivesBackTheRestart) {
  for (const Json& test : vectors["restart_command_line"]) {
    const Pairs pairs = Pairs::ParseCommandLine(Wide(test["line"]));
    const auto restart = RestartRequest::From(pairs);
    ASSERT_TRUE(restart);
    EXPECT_EQ(restart->command_line, Wide(test["given"]["app_execute_cmd"]));
    EXPECT_EQ(restart->process_id, test["given"]["process_id"].get<std::uint32_t>());
    EXPECT_FALSE(CrashReport::From(pairs));
  }
  EXPECT_FALSE(RestartRequest::From(Pairs::Parse(L"appRestart=false appExecuteCmd=x")));
  EXPECT_EQ(RestartRequest::From(Pairs::Parse(L"appRestart=true appPid=-2"))->process_id,
            0xFFFFFFFE);
}

TEST(CommandLine, IsSplitAndDecodedWhateverItsQuotes) {
  const struct {
    const wchar_t *line, *a, *b;
  } kCases[] = {
      {L"\"C:\\a=1 b\\r.exe\" a=x b=y ", L"x", L"y"},
      {L"r.exe  b=y=\"z\"\t word a=\"", L"\"", L"y=\"z\""},
      {L"\"r.exe\" a=1 a=2 b=\\\" ", L"1", L"\\\""},
      {L"\"r.exe", L"", L""},
      {L"", L"", L""},
      {L"r a=%Abc b=%90%D0%20%2025", L"\nbc", L"\t0\r0  25"},  // "%Ab" is no form
      {L"r a=%2520 b=%09%0A%0D", L"%20", L"\t\n\r"},           // decoded once; by another writer
      {L"r a=%41%2%%zz%", L"%41%2%%zz%", L""},                 // nothing that a writer makes
  };
  for (const auto& test : kCases) {
    const Pairs pairs = Pairs::ParseCommandLine(test.line);
    EXPECT_EQ(pairs.Get(L"a"), test.a) << test.line;
    EXPECT_EQ(pairs.Get(L"b"), test.b) << test.line;
  }
  for (const Json& test : vectors["escape_command_line_value"]) {
    EXPECT_EQ(UnescapeValue(Wide(test["escaped"])), Wide(test["text"]));
    EXPECT_EQ(EscapeValue(Wide(test["text"])), Wide(test["escaped"]));
  }
}

TEST(CommandLine, ServerAddresses) {
  const std::pair<const wchar_t*, std::uint16_t> kServers[] = {
      {L"report.example", 8080}, {L"10.0.0.1", 65535}, {L"::1", 80}};
  for (const auto& [host, port] : kServers) {
    const auto server = ParseServer(host + (L":" + std::to_wstring(port)));
    ASSERT_TRUE(server) << host;
    EXPECT_EQ(server->host, host);
    EXPECT_EQ(server->port, port);
  }
  for (const wchar_t* none : {L"", L":0", L":80", L"host", L"host:", L"host:0", L"host:65536",
                              L"host:8o", L"host:-1", L"host:4294967376"}) {
    EXPECT_FALSE(ParseServer(none)) << none;
  }
}

TEST(Texts, EveryLanguageSaysEverythingUnderANumberOfItsOwn) {
  const Texts& english = TextsFor(0xFFFFFFFF);
  EXPECT_EQ(&TextsFor(0), &english);
  EXPECT_GE(AllTexts().size(), 4U);
  const auto has_placeholder = [](const wchar_t* text) { return Filled(text, L"") != text; };
  for (const Texts& texts : AllTexts()) {
    SCOPED_TRACE(texts.number);
    EXPECT_EQ(&TextsFor(texts.number), &texts) << "a number that is taken already";
    for (const auto text :
         {&Texts::title, &Texts::crashed, &Texts::request, &Texts::contents, &Texts::recipient,
          &Texts::files, &Texts::comment, &Texts::send_earlier_too, &Texts::open_folder,
          &Texts::send, &Texts::do_not_send, &Texts::earlier_title, &Texts::earlier_request,
          &Texts::sending, &Texts::not_sent, &Texts::kept, &Texts::kept_without_server,
          &Texts::not_kept, &Texts::close}) {
      ASSERT_TRUE(texts.*text && *(texts.*text));
      EXPECT_EQ(has_placeholder(texts.*text), has_placeholder(english.*text)) << texts.*text;
    }
  }
}

}  // namespace
}  // namespace crash_reporter
