// What the crash reporter reads from its command line, and what it says.
#include <gtest/gtest.h>

#include <string>

#include "crash_reporter/pairs.h"
#include "crash_reporter/report.h"
#include "crash_reporter/texts.h"
#include "support/vectors.h"

namespace crash_reporter {
namespace {

using TAVU::test::Json;
using TAVU::test::LoadVectors;

// UTF-16 on Windows, UTF-32 elsewhere: as wchar_t is there.
std::wstring Wide(const std::string& utf8) {
  std::wstring text;
  for (std::size_t i = 0; i < utf8.size();) {
    const auto lead = static_cast<unsigned char>(utf8[i]);
    const int more = lead < 0x80 ? 0 : lead < 0xE0 ? 1 : lead < 0xF0 ? 2 : 3;
    char32_t code = more == 0 ? lead : lead & (0x3Fu >> more);
    for (++i; i < utf8.size() && (utf8[i] & 0xC0) == 0x80; ++i) {
      code = (code << 6) | (static_cast<unsigned char>(utf8[i]) & 0x3Fu);
    }
    if (code > 0xFFFF && sizeof(wchar_t) == 2) {
      text += static_cast<wchar_t>(0xD7C0 + (code >> 10));
      text += static_cast<wchar_t>(0xDC00 + (code & 0x3FF));
    } else {
      text += static_cast<wchar_t>(code);
    }
  }
  return text;
}

std::wstring Wide(const Json& text) {
  return Wide(text.get<std::string>());
}

const Json& CommandLines() {
  static const Json vectors = LoadVectors("texts.json");
  return vectors;
}

TEST(CrashReporterLine, GivesBackWhatTheLibraryWasGiven) {
  for (const Json& test : CommandLines()["reporter_command_line"]) {
    SCOPED_TRACE(test["line"].get<std::string>());
    const Json& given = test["given"];
    const auto report = CrashReport::From(Pairs::ParseCommandLine(Wide(test["line"])));
    ASSERT_TRUE(report);
    EXPECT_EQ(report->document_path, Wide(given["info_path"]));
    EXPECT_EQ(report->dump_path, Wide(given["dump_path"]));
    EXPECT_EQ(report->user_id, Wide(given["user_id"]));
    EXPECT_EQ(report->software_id, Wide(given["software_id"]));
    EXPECT_EQ(report->software_version, Wide(given["software_ver"]));
    EXPECT_EQ(report->app_show_name, Wide(given["app_show_name"]));
    EXPECT_EQ(report->app_exe_file, Wide(given["app_exe_file"]));
    EXPECT_EQ(report->auto_report, given["auto_report"].get<bool>());
    EXPECT_EQ(report->language, given["report_lang"].get<std::uint32_t>());
    const auto address = std::stoull(given["exception_address"].get<std::string>(), nullptr, 16);
    EXPECT_EQ(std::stoull(report->exception_address, nullptr, 16), address & 0xFFFFFFFF);

    // A kept report is the same report.
    const auto kept = CrashReport::From(Pairs::Parse(report->ToPairs().ToLines()));
    ASSERT_TRUE(kept);
    for (const auto field :
         {&CrashReport::document_path, &CrashReport::user_id, &CrashReport::app_show_name,
          &CrashReport::software_id, &CrashReport::server_address}) {
      EXPECT_EQ((*kept).*field, (*report).*field);
    }
    EXPECT_EQ(kept->auto_report, report->auto_report);
    EXPECT_EQ(kept->language, report->language);
  }
}

TEST(CrashReporterLine, GivesBackTheRestart) {
  for (const Json& test : CommandLines()["restart_command_line"]) {
    SCOPED_TRACE(test["line"].get<std::string>());
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

TEST(CrashReporterLine, PercentForms) {
  for (const Json& test : CommandLines()["escape_command_line_value"]) {
    EXPECT_EQ(UnescapeValue(Wide(test["escaped"])), Wide(test["text"]));
    EXPECT_EQ(EscapeValue(Wide(test["text"])), Wide(test["escaped"]));
  }
  const struct {
    const wchar_t* value;
    const wchar_t* text;
  } kCases[] = {
      {L"%Abc", L"\nbc"},  // a one-digit form before what looks like a second digit
      {L"%90%D0%20%2025", L"\t0\r0  25"},
      {L"%2520", L"%20"},              // decoded once
      {L"%09%0A%0D", L"\t\n\r"},       // zero-filled by another writer
      {L"%41%2%%zz%", L"%41%2%%zz%"},  // nothing that the writer makes
  };
  for (const auto& test : kCases) EXPECT_EQ(UnescapeValue(test.value), test.text) << test.value;
}

TEST(CrashReporterLine, SplitsWordsWhateverTheirQuotes) {
  const struct {
    const wchar_t* line;
    const wchar_t* value_of_a;
    const wchar_t* value_of_b;
  } kCases[] = {
      {L"\"C:\\a=1 b\\r.exe\" a=x b=y ", L"x", L"y"},
      {L"r.exe a= b=y", L"", L"y"},
      {L"r.exe  b=y=\"z\"\t word a=\"", L"\"", L"y=\"z\""},
      {L"\"r.exe\" a=1 a=2 b=\\\" ", L"1", L"\\\""},
      {L"\"r.exe", L"", L""},
      {L"", L"", L""},
  };
  for (const auto& test : kCases) {
    const Pairs pairs = Pairs::ParseCommandLine(test.line);
    EXPECT_EQ(pairs.Get(L"a"), test.value_of_a) << test.line;
    EXPECT_EQ(pairs.Get(L"b"), test.value_of_b) << test.line;
  }
}

TEST(CrashReporterLine, ServerAddresses) {
  const struct {
    const wchar_t* address;
    const wchar_t* host;  // null: no server
    int port;
  } kCases[] = {
      {L"report.example:8080", L"report.example", 8080},
      {L"10.0.0.1:65535", L"10.0.0.1", 65535},
      {L"::1:80", L"::1", 80},
      {L":0", nullptr, 0},
      {L":80", nullptr, 0},
      {L"host:0", nullptr, 0},
      {L"host:65536", nullptr, 0},
      {L"host:", nullptr, 0},
      {L"host", nullptr, 0},
      {L"host:8o", nullptr, 0},
      {L"host:-1", nullptr, 0},
      {L"host:4294967376", nullptr, 0},
      {L"", nullptr, 0},
  };
  for (const auto& test : kCases) {
    const auto server = ParseServer(test.address);
    ASSERT_EQ(server.has_value(), test.host != nullptr) << test.address;
    if (!server) continue;
    EXPECT_EQ(server->host, test.host);
    EXPECT_EQ(server->port, test.port);
  }
}

TEST(CrashReporterTexts, EveryLanguageSaysEverythingUnderANumberOfItsOwn) {
  // Placeholders as English has them, and on the buttons of one form no access key twice.
  const Texts& english = TextsFor(0);
  for (const Texts& texts : AllTexts()) {
    SCOPED_TRACE(texts.number);
    EXPECT_EQ(&TextsFor(texts.number), &texts) << "a number that is taken already";
    for (const auto text :
         {&Texts::name, &Texts::title, &Texts::crashed, &Texts::request, &Texts::contents,
          &Texts::files, &Texts::comment, &Texts::send_earlier_too, &Texts::open_folder,
          &Texts::send, &Texts::do_not_send, &Texts::earlier_title, &Texts::earlier_request,
          &Texts::sending, &Texts::not_sent, &Texts::kept, &Texts::kept_without_server,
          &Texts::not_kept, &Texts::close}) {
      ASSERT_TRUE(texts.*text);
      EXPECT_FALSE(std::wstring(texts.*text).empty());
      EXPECT_EQ(Filled(texts.*text, L"").size() != std::wstring(texts.*text).size(),
                Filled(english.*text, L"").size() != std::wstring(english.*text).size())
          << "placeholder";
    }
    std::wstring keys;
    for (const auto* label :
         {texts.send_earlier_too, texts.open_folder, texts.send, texts.do_not_send}) {
      const std::wstring text(label);
      const std::size_t mark = text.find(L'&');
      ASSERT_NE(mark, std::wstring::npos);
      const wchar_t key = text[mark + 1];
      EXPECT_EQ(keys.find(key), std::wstring::npos) << "access key twice";
      keys += key;
    }
  }
  EXPECT_EQ(&TextsFor(0xFFFFFFFF), &english);
  EXPECT_GE(AllTexts().size(), 4U);
}

}  // namespace
}  // namespace crash_reporter
