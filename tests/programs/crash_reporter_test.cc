// The crash reporter as a process: its command line as the library writes it, a server of the
// test's, its windows on a desktop of the test's, its kept reports in a folder of the test's.
#include <gtest/gtest.h>

#include <array>
#include <cwchar>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <string>
#include <vector>

#include "crash_reporter/exit_code.h"
#include "crash_reporter/pairs.h"
#include "crash_reporter/scoped.h"
#include "crash_reporter/texts.h"
#include "lumo/codec/memory_reader.h"
#include "lumo/value/map.h"
#include "lumo/value/value.h"
#include "net/wire/exchange.h"
#include "support/scripted_server.h"

namespace crash_reporter {

namespace {

namespace fs = std::filesystem;
using TAVU::test::Act;
using TAVU::test::Bytes;
using TAVU::test::ScriptedServer;

constexpr DWORD kPatience = 60000;  // milliseconds; no healthy test reaches it
constexpr int kFirstButton = 100, kSecondButton = 101, kEntry = 300, kCheckBox = 301, kPaths = 302;

enum class Form { kQuestion, kNotice };  // with two buttons; with one

struct Process {
  static inline wchar_t desktop[] = L"tavu_crash_reporter_test";
  ScopedHandle handle;
  DWORD id = 0;

  explicit Process(std::wstring line, wchar_t* on = desktop) {
    STARTUPINFOW startup = {};
    startup.lpDesktop = on;
    PROCESS_INFORMATION process = {};
    EXPECT_TRUE(::CreateProcessW(nullptr, line.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr,
                                 &startup, &process));
    ::CloseHandle(process.hThread);
    handle.reset(process.hProcess);
    id = process.dwProcessId;
  }
  ~Process() { ::TerminateProcess(handle.get(), 99); }  // does nothing to one that has ended

  [[nodiscard]] bool EndsWithin(DWORD milliseconds) const {
    return ::WaitForSingleObject(handle.get(), milliseconds) == WAIT_OBJECT_0;
  }
  [[nodiscard]] ExitCode Wait() const {
    DWORD code = 98;
    if (EndsWithin(kPatience)) ::GetExitCodeProcess(handle.get(), &code);
    return static_cast<ExitCode>(code);
  }
  // Waits for a form of this process; null when the process ends before.
  [[nodiscard]] HWND WaitFor(Form form) const {
    for (DWORD waited = 0; waited < kPatience && !EndsWithin(10); waited += 10) {
      HWND window = nullptr;
      while ((window = ::FindWindowExW(nullptr, window, L"#32770", nullptr)) != nullptr) {
        DWORD process = 0;
        ::GetWindowThreadProcessId(window, &process);
        const bool question = ::GetDlgItem(window, kSecondButton) != nullptr;
        if (process == id && ::IsWindowVisible(window) && ::GetDlgItem(window, kFirstButton) &&
            question == (form == Form::kQuestion)) {
          return window;
        }
      }
    }
    return nullptr;
  }
  // The form being the last of the process.
  [[nodiscard]] ExitCode Answer(Form form, WPARAM button = kFirstButton) const {
    if (const HWND window = WaitFor(form)) ::PostMessageW(window, WM_COMMAND, button, 0);
    return Wait();
  }
};

std::wstring TextOf(HWND window) {
  std::wstring text(static_cast<std::size_t>(::SendMessageW(window, WM_GETTEXTLENGTH, 0, 0)) + 1,
                    L'\0');
  ::SendMessageW(window, WM_GETTEXT, text.size(), reinterpret_cast<LPARAM>(text.data()));
  text.pop_back();
  return text;
}

bool Says(HWND form, const std::wstring& text) {
  return ::FindWindowExW(form, nullptr, L"STATIC", text.c_str()) != nullptr;
}

// "7=127.0.0.1|2=1.0.3|…", in the order of the wire.
std::string FieldsOf(const Bytes& request) {
  TAVU::lumo::MemoryReader reader(request);
  TAVU::QTC::Message message;
  TAVU::lumo::Value argument;
  EXPECT_TRUE(TAVU::QTC::ReadRequest(reader, message, argument));
  std::string fields = message.method;
  for (const auto& node : argument.map()) {
    fields += "|" + std::to_string(node.key.int_value()) + "=" + std::string(node.value.text());
  }
  return fields;
}

bool IsWine() {
  return ::GetProcAddress(::GetModuleHandleW(L"ntdll"), "wine_get_version") != nullptr;
}

void Write(const fs::path& path, const std::string& content) {
  std::ofstream(path, std::ios::binary) << content;
}
std::string Read(const fs::path& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

const std::string kDocument = "<TAVUCrashInfo>\n\t\xE5\xA2\x9C\n</TAVUCrashInfo>\n";
const std::string kDump("MDMP\0\r\n\x1A\xFF", 9);

class CrashReporter : public testing::Test {
 protected:
  // Windows need a desktop: one of the test's own, where there is no display too. Under Wine it is
  // served by its Explorer, with the driver that draws nothing.
  static void SetUpTestSuite() {
    ::CreateDesktopW(Process::desktop, nullptr, nullptr, 0, GENERIC_ALL, nullptr);
    if (IsWine()) {
      static const Process explorer(std::wstring(L"explorer.exe /desktop=") + Process::desktop +
                                    L",1280x1024,null");
      ::WaitForInputIdle(explorer.handle.get(), kPatience);
    }
    ::SetThreadDesktop(::OpenDesktopW(Process::desktop, 0, FALSE, GENERIC_ALL));
  }

  CrashReporter() {
    fs::create_directories(folder_);
    ::SetEnvironmentVariableW(L"LOCALAPPDATA", folder_.c_str());
    WriteCrash();
  }
  ~CrashReporter() override { fs::remove_all(folder_); }

  void WriteCrash() const {
    Write(document_, kDocument);
    Write(dump_, kDump);
  }
  // As the reporter names the folder of a report that it kept so many hours before the test.
  [[nodiscard]] std::wstring NameAgo(int hours) const {
    const ULONGLONG moment = start_ - static_cast<ULONGLONG>(hours) * 36'000'000'000;
    const FILETIME halves = {static_cast<DWORD>(moment), static_cast<DWORD>(moment >> 32)};
    SYSTEMTIME t = {};
    ::FileTimeToSystemTime(&halves, &t);
    std::array<wchar_t, 64> name = {};
    std::swprintf(name.data(), name.size(), L"%04u%02u%02u-%02u%02u%02u-000-1", t.wYear, t.wMonth,
                  t.wDay, t.wHour, t.wMinute, t.wSecond);
    return name.data();
  }
  fs::path AddKept(int hours_ago) const {
    const fs::path folder = kept_ / NameAgo(hours_ago);
    fs::create_directories(folder);
    Write(folder / L"report.txt", "dumpFilename=x.dmp");
    Write(folder / L"x.dmp", "x");
    return folder;
  }
  [[nodiscard]] std::set<std::wstring> Kept() const {
    std::set<std::wstring> names;
    std::error_code none_kept;
    for (const auto& entry : fs::directory_iterator(kept_, none_kept)) {
      names.insert(entry.path().filename());
    }
    return names;
  }

  // With port 0, as when no server was set.
  [[nodiscard]] std::wstring Line(std::uint16_t port, const wchar_t* auto_report = L"true",
                                  std::uint32_t language = 0,
                                  const wchar_t* software_id = L"the%20g\u00E4me") const {
    return L"\"TAVU_CrashReporter.exe\" exceptionInfoFilename=" + EscapeValue(document_) +
           L" dumpFilename=" + EscapeValue(dump_) +
           L" exceptionAddr=0x12345678 userId=kim%20\"lee\"%25 softwareVer=1.0.3 softwareId=" +
           software_id + L" serverAddr=" + (port ? L"127.0.0.1:" : L":") + std::to_wstring(port) +
           L" aotoReport=" + auto_report + L" appShowName=\"The%20Game\" appExeFile=Game " +
           L"reportLang=" + std::to_wstring(language) + L" ";
  }

  const std::wstring folder_ =
      (fs::temp_directory_path() / L"tavu r\u00E9p \u62A5\u544A ").native() +
      std::to_wstring(::GetCurrentProcessId());
  const ULONGLONG start_ = [] {
    FILETIME now = {};
    ::GetSystemTimeAsFileTime(&now);
    return (static_cast<ULONGLONG>(now.dwHighDateTime) << 32) | now.dwLowDateTime;
  }();
  const fs::path kept_ = folder_ + L"\\TAVU\\CrashReports";
  // With the doubled backslash of the library's paths.
  const std::wstring document_ = folder_ + L"\\\\Game_20111201090503_CrashInfo.xml";
  const std::wstring dump_ = folder_ + L"\\\\Game_20111201090503_Crash.dmp";
};

TEST_F(CrashReporter, SendsWhatThereIsUnderTheGivenIdentityWithoutAsking) {
  const std::string bare =
      "<TAVUCrashInfo>\n\t<crash_info>\n\t\t<exception addr=\"0x12345678\"></exception>\n"
      "\t</crash_info>\n</TAVUCrashInfo>\n";
  const struct {
    bool document, dump;
    std::string sent_document, sent_dump;
  } kCases[] = {
      {true, true, kDocument, kDump}, {false, true, bare, kDump}, {true, false, kDocument, ""}};
  ScriptedServer server;
  std::size_t sent = 0;
  for (const auto& c : kCases) {
    WriteCrash();
    if (!c.document) fs::remove(document_);
    if (!c.dump) fs::remove(dump_);
    EXPECT_EQ(Process(Line(server.port())).Wait(), ExitCode::kDone);
    const std::vector<Bytes> requests = server.WaitForRequests(++sent);
    ASSERT_EQ(requests.size(), sent);
    EXPECT_EQ(FieldsOf(requests.back()),
              "tavu_server|7=127.0.0.1|2=1.0.3|102=" + c.sent_document +
                  "|0=0|6=kim%20%22lee%22%25|5=1|101=Game 0x12345678|103=" + c.sent_dump +
                  "|8=|1=the g\xC3\xA4me|4=crash|3=0");
  }
  fs::remove(document_);
  EXPECT_EQ(Process(Line(server.port())).Wait(), ExitCode::kNothingToSend);
  EXPECT_EQ(server.Connections().size(), sent);
  EXPECT_TRUE(Kept().empty());
}

TEST_F(CrashReporter, KeepsWhatFailsAndDeliversItWithTheNextOrByHand) {
  ScriptedServer server;
  for (const wchar_t* application : {L"this", L"another"}) {
    server.Next({Act::kAnswer, TAVU::test::FaultReply()});
    EXPECT_EQ(Process(Line(server.port(), L"true", 3, application)).Answer(Form::kNotice),
              ExitCode::kKept);
  }
  EXPECT_EQ(Kept().size(), 2U);

  fs::remove(document_);  // as the library does
  Write(dump_, "a new dump");
  {
    // While another reporter is at the kept ones, they are left to it.
    const ScopedHandle lock(
        ValidOrNull(::CreateFileW((kept_ / L"lock").c_str(), GENERIC_WRITE, 0, nullptr, OPEN_ALWAYS,
                                  FILE_FLAG_DELETE_ON_CLOSE, nullptr)));
    ASSERT_TRUE(lock);
    EXPECT_EQ(Process(Line(server.port(), L"true", 0, L"this")).Wait(), ExitCode::kDone);
  }
  EXPECT_EQ(Process(Line(server.port(), L"true", 0, L"this")).Wait(), ExitCode::kDone);
  std::vector<Bytes> requests = server.WaitForRequests(5);
  ASSERT_EQ(requests.size(), 5U);
  EXPECT_NE(FieldsOf(requests[2]).find("|103=a new dump|"), std::string::npos);
  EXPECT_EQ(requests[3], requests[2]) << "nothing else of the first";
  EXPECT_EQ(requests[4], requests[0]) << "as it would have gone at first";
  EXPECT_EQ(Kept().size(), 1U) << "the other application's stays";

  for (const bool fails : {true, false}) {
    if (fails) server.Next({Act::kAnswer, TAVU::test::FaultReply()});
    const Process reporter(L"TAVU_CrashReporter.exe");
    const HWND form = reporter.WaitFor(Form::kQuestion);
    EXPECT_EQ(TextOf(form), TextsFor(3).earlier_title);
    EXPECT_TRUE(
        Says(form, Filled(TextsFor(3).recipient, L"127.0.0.1:" + std::to_wstring(server.port()))));
    ::PostMessageW(form, WM_COMMAND, kFirstButton, 0);
    EXPECT_EQ(fails ? reporter.Answer(Form::kNotice) : reporter.Wait(),
              fails ? ExitCode::kKept : ExitCode::kDone);
  }
  requests = server.WaitForRequests(7);
  ASSERT_EQ(requests.size(), 7U);
  EXPECT_EQ(requests[6], requests[1]);
  EXPECT_EQ(Process(L"TAVU_CrashReporter.exe").Wait(), ExitCode::kNothingToSend);
}

TEST_F(CrashReporter, KeepsWhatItCannotAskAboutUntilSomebodyAgrees) {
  // Windows can be made on such a station, a service's for one, but nobody sees them.
  const HWINSTA station = ::GetProcessWindowStation();
  ::SetProcessWindowStation(::CreateWindowStationW(L"tavu_unseen", 0, GENERIC_ALL, nullptr));
  const HDESK desktop = ::CreateDesktopW(L"desk", nullptr, nullptr, 0, GENERIC_ALL, nullptr);
  ::SetProcessWindowStation(station);
  ASSERT_NE(desktop, nullptr);
  wchar_t unseen[] = L"tavu_unseen\\desk";
  ScriptedServer server;
  EXPECT_EQ(Process(Line(server.port(), L"false"), unseen).Wait(), ExitCode::kKept);
  EXPECT_TRUE(server.Connections().empty());
  EXPECT_EQ(Process(Line(server.port(), L"true")).Wait(), ExitCode::kDone);
  EXPECT_EQ(server.WaitForRequests(1).size(), 1U) << "sent along what nobody agreed to";
  EXPECT_EQ(Kept().size(), 1U);
}

TEST_F(CrashReporter, KeepsTheNewestWithinItsBounds) {
  AddKept(29 * 24);
  AddKept(31 * 24);
  EXPECT_EQ(Process(L"TAVU_CrashReporter.exe").Wait(), ExitCode::kNothingToSend) << "no server";
  EXPECT_EQ(Kept(), std::set{NameAgo(29 * 24)}) << "age";

  for (int hours = 10; hours < 19; ++hours) AddKept(hours);
  {
    const Process reporter(Line(0));
    const std::wstring shown = TextOf(::GetDlgItem(reporter.WaitFor(Form::kNotice), kPaths));
    EXPECT_EQ(reporter.Wait(), ExitCode::kKept) << "without a server, nor anybody at the machine";
    EXPECT_EQ(Read(shown + L"\\Game_20111201090503_CrashInfo.xml"), kDocument);
    EXPECT_EQ(Read(shown + L"\\Game_20111201090503_Crash.dmp"), kDump);
  }
  EXPECT_EQ(Kept().size(), 10U) << "number";
  EXPECT_FALSE(Kept().count(NameAgo(29 * 24)));

  fs::resize_file(kept_ / NameAgo(12) / L"x.dmp", 64 << 20);
  EXPECT_EQ(Process(Line(0)).Answer(Form::kNotice), ExitCode::kKept);
  const std::set<std::wstring> kept = Kept();
  EXPECT_EQ(kept.size(), 4U) << "size";
  EXPECT_TRUE(kept.count(NameAgo(11)) && !kept.count(NameAgo(12)));

  fs::resize_file(dump_, (64 << 20) + 1);
  EXPECT_EQ(Process(Line(0)).Answer(Form::kNotice), ExitCode::kLost);
  EXPECT_EQ(Kept(), kept);
}

TEST_F(CrashReporter, DeletesOnlyWhatItKept) {
  const fs::path too_old = AddKept(31 * 24);
  Write(too_old / L"mine.txt", "mine");
  const fs::path in_another_form = kept_ / L"2011 photos";
  fs::rename(AddKept(32 * 24), in_another_form);

  EXPECT_EQ(Process(L"TAVU_CrashReporter.exe").Wait(), ExitCode::kNothingToSend);
  EXPECT_FALSE(fs::exists(too_old / L"report.txt") || fs::exists(too_old / L"x.dmp"));
  EXPECT_TRUE(fs::exists(too_old / L"mine.txt"));
  EXPECT_TRUE(fs::exists(in_another_form / L"report.txt"));
}

TEST_F(CrashReporter, SendsWhatIsAllowedWithTheCommentAndEarlierReports) {
  ScriptedServer server;
  const std::wstring line = Line(server.port(), L"false", 3);
  for (const WPARAM no : {WPARAM{kSecondButton}, WPARAM{IDCANCEL}}) {
    const Process reporter(line);
    const HWND form = reporter.WaitFor(Form::kQuestion);
    EXPECT_EQ(TextOf(form), Filled(TextsFor(3).title, L"\"The Game\""));
    EXPECT_EQ(TextOf(::GetDlgItem(form, kPaths)), folder_ +
                                                      L"\\Game_20111201090503_CrashInfo.xml\r\n" +
                                                      folder_ + L"\\Game_20111201090503_Crash.dmp");
    EXPECT_TRUE(
        Says(form, Filled(TextsFor(3).recipient, L"127.0.0.1:" + std::to_wstring(server.port()))));
    ::SendMessageW(form, WM_COMMAND, IDOK, 0);  // Return was meant for the crashed program
    EXPECT_EQ(reporter.Answer(Form::kQuestion, no), ExitCode::kDeclined);
  }
  EXPECT_TRUE(server.Connections().empty() && Kept().empty());

  server.Next({Act::kAnswer, TAVU::test::FaultReply()});
  {
    const Process reporter(line);
    const HWND form = reporter.WaitFor(Form::kQuestion);
    EXPECT_FALSE(::GetDlgItem(form, kCheckBox));
    ::SendDlgItemMessageW(form, kEntry, WM_SETTEXT, 0,
                          reinterpret_cast<LPARAM>(L"fell off \u2013 \u589C\u843D"));
    ::PostMessageW(form, WM_COMMAND, kFirstButton, 0);
    EXPECT_EQ(reporter.Answer(Form::kNotice), ExitCode::kKept);
  }
  for (const bool earlier_too : {false, true}) {
    const Process reporter(line);
    const HWND form = reporter.WaitFor(Form::kQuestion);
    EXPECT_TRUE(::GetDlgItem(form, kCheckBox));
    if (earlier_too) ::SendDlgItemMessageW(form, kCheckBox, BM_SETCHECK, BST_CHECKED, 0);
    EXPECT_EQ(reporter.Answer(Form::kQuestion), ExitCode::kDone);
    EXPECT_EQ(Kept().size(), earlier_too ? 0U : 1U);
  }
  const std::vector<Bytes> requests = server.WaitForRequests(4);
  ASSERT_EQ(requests.size(), 4U);
  EXPECT_NE(FieldsOf(requests[2]).find("|8=|"), std::string::npos);
  EXPECT_NE(FieldsOf(requests[3]).find("|8=fell%20off%20%E2%80%93%20%E5%A2%9C%E8%90%BD|"),
            std::string::npos);
}

TEST_F(CrashReporter, RestartsTheHostOnceItHasEnded) {
  const auto restart = [](const std::wstring& command, DWORD host) {
    return L"TAVU_CrashReporter.exe appRestart=true appExecuteCmd=" + command + L" appPid=" +
           std::to_wstring(host) + L" ";
  };
  const fs::path note = folder_ + L"\\note";
  const Process host(Line(0, L"false"));  // it stays until its notice is closed
  const Process reporter(
      restart(L"cmd%20/c%20echo%20\"b%20%20c\"%20%9100%25>\"" + EscapeValue(note.native()) + L"\"",
              host.id));
  // Long enough for one that does not wait to be found out; nothing depends on it otherwise.
  EXPECT_FALSE(reporter.EndsWithin(3000)) << "did not wait for the host";
  EXPECT_EQ(host.Answer(Form::kNotice), ExitCode::kKept);
  EXPECT_EQ(reporter.Wait(), ExitCode::kDone);
  while (Read(note).empty()) ::Sleep(10);
  EXPECT_EQ(Read(note), "\"b  c\" \t100%\r\n");

  EXPECT_EQ(Process(restart(L"Z:\\no\\such\\program.exe%20-x", 0)).Wait(),
            ExitCode::kRestartFailed);
}

}  // namespace
}  // namespace crash_reporter
