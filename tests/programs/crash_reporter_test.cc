// The crash reporter as a process: its command line as the library writes it, a server of the
// test's, its windows on a desktop of the test's, its kept reports in a folder of the test's.
#include <gtest/gtest.h>

#include <array>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include <shlobj.h>

#include "crash_reporter/exit_code.h"
#include "crash_reporter/scoped.h"
#include "crash_reporter/texts.h"
#include "lumo/map.h"
#include "lumo/memory_reader.h"
#include "lumo/value.h"
#include "net/exchange.h"
#include "support/scripted_server.h"

namespace crash_reporter {

void PrintTo(ExitCode code, std::ostream* out) {
  *out << static_cast<int>(code);
}

namespace {

using TAVU::test::Act;
using TAVU::test::Bytes;
using TAVU::test::RefusingPort;
using TAVU::test::ScriptedServer;

constexpr DWORD kPatience = 60000;  // milliseconds; no healthy test reaches it

std::wstring OwnPath() {
  std::array<wchar_t, MAX_PATH> path = {};
  ::GetModuleFileNameW(nullptr, path.data(), MAX_PATH);
  return path.data();
}

std::wstring Reporter() {
  const std::wstring path = OwnPath();
  return path.substr(0, path.rfind(L'\\')) + L"\\TAVU_CrashReporter.exe";
}

// ---- Files ---------------------------------------------------------------------------------------

void WriteFileAt(const std::wstring& path, const std::string& content) {
  const ScopedHandle file(ValidOrNull(
      ::CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr)));
  DWORD written = 0;
  ASSERT_TRUE(file && ::WriteFile(file.get(), content.data(), static_cast<DWORD>(content.size()),
                                  &written, nullptr));
}

void SetSize(const std::wstring& path, LONG size) {
  const ScopedHandle file(
      ::CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, OPEN_ALWAYS, 0, nullptr));
  ::SetFilePointer(file.get(), size, nullptr, FILE_BEGIN);
  ASSERT_TRUE(::SetEndOfFile(file.get()));
}

std::optional<std::string> ReadFileAt(const std::wstring& path) {
  const ScopedHandle file(ValidOrNull(::CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ,
                                                    nullptr, OPEN_EXISTING, 0, nullptr)));
  if (!file) return std::nullopt;
  std::string content(::GetFileSize(file.get(), nullptr), '\0');
  DWORD read = 0;
  static_cast<void>(
      ::ReadFile(file.get(), content.data(), static_cast<DWORD>(content.size()), &read, nullptr));
  return content;
}

std::set<std::wstring> NamesIn(const std::wstring& folder) {
  std::set<std::wstring> names;
  WIN32_FIND_DATAW entry = {};
  const ScopedFind find(ValidOrNull(::FindFirstFileW((folder + L"\\*").c_str(), &entry)));
  if (!find) return names;
  do {
    if (entry.cFileName[0] != L'.') names.insert(entry.cFileName);
  } while (::FindNextFileW(find.get(), &entry));
  return names;
}

void RemoveTree(const std::wstring& folder) {
  for (const std::wstring& name : NamesIn(folder)) {
    const std::wstring path = folder + L"\\" + name;
    if (!::DeleteFileW(path.c_str())) RemoveTree(path);
  }
  ::RemoveDirectoryW(folder.c_str());
}

// ---- Windows -------------------------------------------------------------------------------------

// A desktop of the test's own, so that windows can be made and answered where there is no display.
class TestDesktop {
 public:
  TestDesktop() {
    ::CreateDesktopW(Name(), nullptr, nullptr, 0, GENERIC_ALL, nullptr);
    if (::GetProcAddress(::GetModuleHandleW(L"ntdll"), "wine_get_version")) {
      // There it takes Wine's Explorer to serve a desktop, here with the driver that draws nothing.
      std::wstring line = L"explorer.exe /desktop=" + std::wstring(Name()) + L",1280x1024,null";
      STARTUPINFOW startup = {};
      PROCESS_INFORMATION process = {};
      ::CreateProcessW(nullptr, line.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup,
                       &process);
      ::WaitForInputIdle(process.hProcess, kPatience);
      explorer_.reset(process.hProcess);
      ::CloseHandle(process.hThread);
    }
    ::SetThreadDesktop(::OpenDesktopW(Name(), 0, FALSE, GENERIC_ALL));
  }
  ~TestDesktop() {
    if (explorer_) ::TerminateProcess(explorer_.get(), 0);
  }
  TestDesktop(const TestDesktop&) = delete;
  TestDesktop& operator=(const TestDesktop&) = delete;

  static wchar_t* Name() {
    static wchar_t name[] = L"tavu_crash_reporter_test";
    return name;
  }

 private:
  ScopedHandle explorer_;
};

constexpr int kFirstButton = 100, kSecondButton = 101;
constexpr int kEntry = 300, kCheckBox = 301, kPaths = 302;

std::wstring TextOf(HWND window) {
  std::wstring text(static_cast<std::size_t>(::SendMessageW(window, WM_GETTEXTLENGTH, 0, 0)) + 1,
                    L'\0');
  ::SendMessageW(window, WM_GETTEXT, text.size(), reinterpret_cast<LPARAM>(text.data()));
  text.pop_back();
  return text;
}

void Click(HWND form, int button) {
  ::PostMessageW(form, WM_COMMAND, static_cast<WPARAM>(button), 0);
}

// ---- The reporter --------------------------------------------------------------------------------

class Process {
 public:
  explicit Process(std::wstring line, wchar_t* desktop = TestDesktop::Name()) {
    STARTUPINFOW startup = {};
    startup.lpDesktop = desktop;
    PROCESS_INFORMATION process = {};
    EXPECT_TRUE(::CreateProcessW(nullptr, line.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr,
                                 &startup, &process));
    ::CloseHandle(process.hThread);
    handle_.reset(process.hProcess);
    id_ = process.dwProcessId;
  }
  ~Process() { ::TerminateProcess(handle_.get(), 99); }  // does nothing to one that has ended

  [[nodiscard]] DWORD id() const { return id_; }
  [[nodiscard]] bool EndsWithin(DWORD milliseconds) const {
    return ::WaitForSingleObject(handle_.get(), milliseconds) == WAIT_OBJECT_0;
  }
  [[nodiscard]] ExitCode Wait() const {
    DWORD code = 98;
    if (EndsWithin(kPatience)) ::GetExitCodeProcess(handle_.get(), &code);
    return static_cast<ExitCode>(code);
  }

  // Waits for a form of this process that has the one control and lacks the other; null when the
  // process ends before.
  [[nodiscard]] HWND FormWith(int control, int lacking = 0) const {
    struct Search {
      DWORD process;
      int control, lacking;
      HWND found;
    } search = {id_, control, lacking, nullptr};
    for (DWORD waited = 0; !search.found && waited < kPatience && !EndsWithin(10); waited += 10) {
      ::EnumWindows(
          [](HWND window, LPARAM argument) -> BOOL {
            auto& wanted = *reinterpret_cast<Search*>(argument);
            DWORD process = 0;
            ::GetWindowThreadProcessId(window, &process);
            if (process == wanted.process && ::IsWindowVisible(window) &&
                ::GetDlgItem(window, wanted.control) &&
                (wanted.lacking == 0 || !::GetDlgItem(window, wanted.lacking))) {
              wanted.found = window;
            }
            return !wanted.found;
          },
          reinterpret_cast<LPARAM>(&search));
    }
    return search.found;
  }

 private:
  ScopedHandle handle_;
  DWORD id_ = 0;
};

struct Record {
  std::map<int, std::string> fields;
  explicit Record(const Bytes& request) {
    TAVU::lumo::MemoryReader reader(request);
    TAVU::QTC::Message message;
    TAVU::lumo::Value argument;
    EXPECT_TRUE(TAVU::QTC::ReadRequest(reader, message, argument));
    EXPECT_EQ(message.method, "tavu_server");
    if (argument.type() != TAVU::lumo::ValueType::kMap) return;
    for (const auto& node : argument.map()) fields[node.key.int_value()] = node.value.text();
  }
};

const std::string kDocument = "<TAVUCrashInfo>\n\t\xE5\xA2\x9C\n</TAVUCrashInfo>\n";
const std::string kDump("MDMP\0\r\n\x1A\xFF", 9);

class CrashReporter : public testing::Test {
 protected:
  CrashReporter() {
    std::array<wchar_t, MAX_PATH> temp = {};
    ::GetTempPathW(MAX_PATH, temp.data());
    folder_ = temp.data() + std::wstring(L"tavu r\u00E9p \u62A5\u544A ") +
              std::to_wstring(::GetCurrentProcessId());
    RemoveTree(folder_);
    ::CreateDirectoryW(folder_.c_str(), nullptr);
    kept_ = folder_ + L"\\TAVU\\CrashReports";
    ::SetEnvironmentVariableW(L"LOCALAPPDATA", folder_.c_str());
    WriteCrash();
  }
  ~CrashReporter() override { RemoveTree(folder_); }

  void WriteCrash() const {
    WriteFileAt(document_path(), kDocument);
    WriteFileAt(dump_path(), kDump);
  }
  void DeleteCrash() const {
    ::DeleteFileW(document_path().c_str());
    ::DeleteFileW(dump_path().c_str());
  }
  // With the doubled backslash of the library's paths.
  [[nodiscard]] std::wstring document_path() const {
    return folder_ + L"\\\\Game_20111201090503_CrashInfo.xml";
  }
  [[nodiscard]] std::wstring dump_path() const {
    return folder_ + L"\\\\Game_20111201090503_Crash.dmp";
  }

  [[nodiscard]] std::wstring Line(const std::wstring& server, const wchar_t* auto_report,
                                  std::uint32_t language = 0,
                                  const wchar_t* software_id = L"the%20g\u00E4me") const {
    std::wstring paths =
        L"exceptionInfoFilename=" + document_path() + L"|dumpFilename=" + dump_path() + L"|";
    for (std::size_t i; (i = paths.find(L' ')) != std::wstring::npos;) paths.replace(i, 1, L"%20");
    for (wchar_t& separator : paths) {
      if (separator == L'|') separator = L' ';
    }
    return L"\"" + Reporter() + L"\" " + paths +
           L"exceptionAddr=0x12345678 userId=kim%20\"lee\"%25 softwareVer=1.0.3 softwareId=" +
           software_id + L" serverAddr=" + server + L" aotoReport=" + auto_report +
           L" appShowName=\"The%20Game\" appExeFile=Game reportLang=" + std::to_wstring(language) +
           L" ";
  }
  [[nodiscard]] static std::wstring At(std::uint16_t port) {
    return L"127.0.0.1:" + std::to_wstring(port);
  }
  // A report that cannot be delivered: its notice is closed.
  [[nodiscard]] ExitCode RunIntoNotice(const std::wstring& line) const {
    const Process reporter(line);
    if (const HWND notice = reporter.FormWith(kFirstButton)) Click(notice, kFirstButton);
    return reporter.Wait();
  }
  [[nodiscard]] std::set<std::wstring> KeptFolders() const { return NamesIn(kept_); }

  std::wstring folder_;
  std::wstring kept_;
};

TEST_F(CrashReporter, SendsBothFilesUnderTheGivenIdentityWithoutAsking) {
  ScriptedServer server;
  EXPECT_EQ(Process(Line(At(server.port()), L"true")).Wait(), ExitCode::kDone);
  const std::vector<Bytes> requests = server.WaitForRequests(1);
  ASSERT_EQ(requests.size(), 1U);
  const std::map<int, std::string> expected = {
      {0, "0"},
      {1, "the g\xC3\xA4me"},
      {2, "1.0.3"},
      {3, "0"},
      {4, "crash"},
      {5, "1"},
      {6, "kim%20%22lee%22%25"},
      {7, "127.0.0.1"},
      {8, ""},
      {101, "Game 0x12345678"},
      {102, kDocument},
      {103, kDump},
  };
  EXPECT_EQ(Record(requests[0]).fields, expected);
  EXPECT_TRUE(KeptFolders().empty());
}

TEST_F(CrashReporter, SendsWhatThereIsOfTheFiles) {
  const struct {
    bool document, dump;
    ExitCode exit_code;
    const char* sent_document;
    std::string sent_dump;
  } kCases[] = {
      {false, true, ExitCode::kDone,
       "<TAVUCrashInfo>\n\t<crash_info>\n\t\t<exception addr=\"0x12345678\"></exception>\n"
       "\t</crash_info>\n</TAVUCrashInfo>\n",
       kDump},
      {true, false, ExitCode::kDone, kDocument.c_str(), ""},
      {false, false, ExitCode::kNothingToSend, nullptr, ""},
  };
  ScriptedServer server;
  std::size_t sent = 0;
  for (const auto& test : kCases) {
    WriteCrash();
    if (!test.document) ::DeleteFileW(document_path().c_str());
    if (!test.dump) ::DeleteFileW(dump_path().c_str());
    EXPECT_EQ(Process(Line(At(server.port()), L"true")).Wait(), test.exit_code);
    if (!test.sent_document) continue;
    const std::vector<Bytes> requests = server.WaitForRequests(++sent);
    ASSERT_EQ(requests.size(), sent);
    auto fields = Record(requests.back()).fields;
    EXPECT_EQ(fields[102], test.sent_document);
    EXPECT_EQ(fields[103], test.sent_dump);
  }
  EXPECT_EQ(server.Connections().size(), sent);
}

TEST_F(CrashReporter, KeepsWhatFailsAndDeliversItWithTheNext) {
  std::uint16_t port = 0;
  {
    RefusingPort refusing;
    port = refusing.port();
    EXPECT_EQ(RunIntoNotice(Line(At(port), L"true")), ExitCode::kKept);
    EXPECT_EQ(RunIntoNotice(Line(At(port), L"true", 0, L"another")), ExitCode::kKept);
  }
  DeleteCrash();  // as the library does
  ASSERT_EQ(KeptFolders().size(), 2U);
  const std::wstring folder = kept_ + L"\\" + *KeptFolders().begin();
  EXPECT_EQ(ReadFileAt(folder + L"\\Game_20111201090503_CrashInfo.xml"), kDocument);
  EXPECT_EQ(ReadFileAt(folder + L"\\Game_20111201090503_Crash.dmp"), kDump);

  WriteFileAt(dump_path(), "a new dump");
  ScriptedServer server({}, port);
  {
    // While another reporter is at the kept ones, they are left to it.
    const ScopedHandle lock(
        ValidOrNull(::CreateFileW((kept_ + L"\\lock").c_str(), GENERIC_WRITE, 0, nullptr,
                                  OPEN_ALWAYS, FILE_FLAG_DELETE_ON_CLOSE, nullptr)));
    ASSERT_TRUE(lock);
    EXPECT_EQ(Process(Line(At(port), L"true")).Wait(), ExitCode::kDone);
    EXPECT_EQ(KeptFolders().size(), 3U);  // with the lock
  }
  EXPECT_EQ(Process(Line(At(port), L"true")).Wait(), ExitCode::kDone);
  const std::vector<Bytes> requests = server.WaitForRequests(3);
  ASSERT_EQ(requests.size(), 3U);
  EXPECT_EQ(Record(requests[1]).fields[103], "a new dump");
  auto kept = Record(requests[2]).fields;
  EXPECT_EQ(kept[1], "the g\xC3\xA4me");
  EXPECT_EQ(kept[102], kDocument);
  EXPECT_EQ(kept[103], kDump);
  EXPECT_EQ(server.Connections().size(), 3U);
  EXPECT_EQ(KeptFolders().size(), 1U) << "the other application's stays";
}

TEST_F(CrashReporter, KeepsWhatTheServerRefuses) {
  ScriptedServer server({Act::kAnswer, TAVU::test::FaultReply()});
  EXPECT_EQ(RunIntoNotice(Line(At(server.port()), L"true")), ExitCode::kKept);
  EXPECT_EQ(KeptFolders().size(), 1U);
}

TEST_F(CrashReporter, KeepsTheNewestWithinItsBounds) {
  ::SHCreateDirectoryExW(nullptr, kept_.c_str(), nullptr);
  const auto make = [this](const std::wstring& name) {
    ::CreateDirectoryW((kept_ + L"\\" + name).c_str(), nullptr);
    WriteFileAt(kept_ + L"\\" + name + L"\\report.txt", "dumpFilename=x.dmp");
  };
  for (wchar_t digit = L'0'; digit <= L'9'; ++digit) make(std::wstring(L"20010101-00000") + digit);
  // Left by a reporter that was ended in the middle, long ago and just now.
  make(L"20010101-000000.unfinished");
  make(L"20360101-000000.unfinished");
  const FILETIME long_ago = {0, 0x01D00000};
  ScopedHandle folder(::CreateFileW((kept_ + L"\\20010101-000000.unfinished").c_str(),
                                    FILE_WRITE_ATTRIBUTES, 7, nullptr, OPEN_EXISTING,
                                    FILE_FLAG_BACKUP_SEMANTICS, nullptr));
  ASSERT_TRUE(::SetFileTime(folder.get(), nullptr, nullptr, &long_ago));
  folder.reset();

  EXPECT_EQ(RunIntoNotice(Line(L":0", L"true")), ExitCode::kKept);
  std::set<std::wstring> kept = KeptFolders();
  EXPECT_EQ(kept.size(), 11U) << "ten, and one that may still be worked on";
  EXPECT_FALSE(kept.count(L"20010101-000000"));
  EXPECT_FALSE(kept.count(L"20010101-000000.unfinished"));
  EXPECT_TRUE(kept.count(L"20010101-000001"));

  SetSize(kept_ + L"\\20010101-000007\\x.dmp", 64 << 20);
  EXPECT_EQ(RunIntoNotice(Line(L":0", L"true")), ExitCode::kKept);
  kept = KeptFolders();
  EXPECT_EQ(kept.size(), 5U);
  EXPECT_TRUE(kept.count(L"20010101-000008"));
  EXPECT_FALSE(kept.count(L"20010101-000007"));

  SetSize(dump_path(), (64 << 20) + 1);
  EXPECT_EQ(RunIntoNotice(Line(L":0", L"true")), ExitCode::kLost);
  EXPECT_EQ(KeptFolders(), kept);
}

TEST_F(CrashReporter, KeepsAReportWithoutServerAndLeavesAnUnattendedMachineAlone) {
  const Process reporter(Line(L":0", L"true"));
  const HWND notice = reporter.FormWith(kPaths);
  ASSERT_TRUE(notice);
  const std::wstring shown = TextOf(::GetDlgItem(notice, kPaths));
  EXPECT_EQ(reporter.Wait(), ExitCode::kKept);  // nobody closes the notice
  ASSERT_EQ(KeptFolders().size(), 1U);
  EXPECT_EQ(shown, kept_ + L"\\" + *KeptFolders().begin());
}

TEST_F(CrashReporter, ReportsThatNothingCouldBeKept) {
  WriteFileAt(folder_ + L"\\TAVU", "a file where the folder should be");
  EXPECT_EQ(RunIntoNotice(Line(L":0", L"true")), ExitCode::kLost);
}

TEST_F(CrashReporter, SendsTheCommentAndOffersEarlierReports) {
  std::uint16_t port = 0;
  {
    RefusingPort refusing;
    port = refusing.port();
    const Process reporter(Line(At(port), L"false"));
    const HWND form = reporter.FormWith(kEntry);
    ASSERT_TRUE(form);
    EXPECT_FALSE(::GetDlgItem(form, kCheckBox));
    ::SendDlgItemMessageW(form, kEntry, WM_SETTEXT, 0,
                          reinterpret_cast<LPARAM>(L"fell off \u2013 \u589C\u843D"));
    Click(form, kFirstButton);
    const HWND notice = reporter.FormWith(kPaths, kEntry);
    ASSERT_TRUE(notice);
    Click(notice, kFirstButton);
    EXPECT_EQ(reporter.Wait(), ExitCode::kKept);
  }
  ScriptedServer server({}, port);
  for (const bool earlier_too : {false, true}) {
    const Process reporter(Line(At(port), L"false"));
    const HWND form = reporter.FormWith(kEntry);
    ASSERT_TRUE(form);
    EXPECT_EQ(::SendDlgItemMessageW(form, kCheckBox, BM_GETCHECK, 0, 0), BST_CHECKED);
    if (!earlier_too) ::SendDlgItemMessageW(form, kCheckBox, BM_SETCHECK, BST_UNCHECKED, 0);
    Click(form, kFirstButton);
    EXPECT_EQ(reporter.Wait(), ExitCode::kDone);
    EXPECT_EQ(KeptFolders().size(), earlier_too ? 0U : 1U);
  }
  const std::vector<Bytes> requests = server.WaitForRequests(3);
  ASSERT_EQ(requests.size(), 3U);
  EXPECT_EQ(Record(requests[1]).fields[8], "");
  EXPECT_EQ(Record(requests[2]).fields[8], "fell%20off%20%E2%80%93%20%E5%A2%9C%E8%90%BD");
}

// Every control lies inside the form, apart from the others, and shows its whole text.
void ExpectToFit(HWND form) {
  NONCLIENTMETRICSW metrics = {};
  metrics.cbSize = sizeof metrics;
  ::SystemParametersInfoW(SPI_GETNONCLIENTMETRICS, sizeof metrics, &metrics, 0);
  const ScopedFont font(::CreateFontIndirectW(&metrics.lfMessageFont));
  RECT inside = {};
  ::GetClientRect(form, &inside);
  std::vector<RECT> places;
  for (HWND control = ::GetWindow(form, GW_CHILD); control;
       control = ::GetWindow(control, GW_HWNDNEXT)) {
    const std::wstring text = TextOf(control);
    SCOPED_TRACE(testing::Message() << text);
    RECT place = {};
    ::GetWindowRect(control, &place);
    ::MapWindowPoints(nullptr, form, reinterpret_cast<POINT*>(&place), 2);
    RECT part = {};
    EXPECT_TRUE(::IntersectRect(&part, &place, &inside) && ::EqualRect(&part, &place));
    for (const RECT& other : places) EXPECT_FALSE(::IntersectRect(&part, &place, &other));
    places.push_back(place);

    const bool button = ::GetDlgCtrlID(control) >= 100 && ::GetDlgCtrlID(control) <= 200;
    const HDC screen = ::GetDC(form);
    const HGDIOBJ earlier = ::SelectObject(screen, font.get());
    RECT needed = {0, 0, place.right - place.left, 0};
    ::DrawTextW(screen, text.c_str(), -1, &needed,
                DT_CALCRECT | (button ? DT_SINGLELINE : DT_WORDBREAK | DT_EDITCONTROL));
    ::SelectObject(screen, earlier);
    ::ReleaseDC(form, screen);
    EXPECT_LE(needed.right, place.right - place.left);
    EXPECT_LE(needed.bottom, place.bottom - place.top);
  }
  EXPECT_GE(places.size(), 10U);
}

TEST_F(CrashReporter, AsksInEachLanguageAndSendsNothingUnlessToldTo) {
  ScriptedServer server;
  for (const std::uint32_t language : {0U, 1U, 2U, 3U, 4000U}) {
    SCOPED_TRACE(language);
    const Process reporter(Line(At(server.port()), L"false", language));
    const HWND form = reporter.FormWith(kEntry);
    ASSERT_TRUE(form);
    const Texts& texts = TextsFor(language);
    EXPECT_EQ(TextOf(form), Filled(texts.title, L"\"The Game\""));
    EXPECT_EQ(TextOf(::GetDlgItem(form, kFirstButton)), texts.send);
    EXPECT_EQ(TextOf(::GetDlgItem(form, kPaths)), folder_ +
                                                      L"\\Game_20111201090503_CrashInfo.xml\r\n" +
                                                      folder_ + L"\\Game_20111201090503_Crash.dmp");
    ExpectToFit(form);
    // Neither Return nor Escape, meant for the crashed program, sends.
    ::SendMessageW(form, WM_COMMAND, IDOK, 0);
    Click(form, language % 2 ? kSecondButton : IDCANCEL);
    EXPECT_EQ(reporter.Wait(), ExitCode::kDeclined);
  }
  EXPECT_TRUE(server.Connections().empty());
  EXPECT_TRUE(KeptFolders().empty());
}

TEST_F(CrashReporter, OffersKeptReportsWhenStartedByHand) {
  const std::wstring by_hand = L"\"" + Reporter() + L"\"";
  EXPECT_EQ(Process(by_hand).Wait(), ExitCode::kNothingToSend);
  std::uint16_t port = 0;
  {
    RefusingPort refusing;
    port = refusing.port();
    EXPECT_EQ(RunIntoNotice(Line(L"127.0.0.1:1", L"true")), ExitCode::kKept);
    EXPECT_EQ(RunIntoNotice(Line(At(port), L"true", 3)), ExitCode::kKept);
  }
  ScriptedServer server({}, port);
  const Process reporter(by_hand);
  const HWND form = reporter.FormWith(kSecondButton);
  ASSERT_TRUE(form);
  EXPECT_EQ(TextOf(form), TextsFor(3).earlier_title);
  Click(form, kFirstButton);
  EXPECT_EQ(server.WaitForRequests(1).size(), 1U) << "the other server being away";
  const HWND notice = reporter.FormWith(kPaths);
  ASSERT_TRUE(notice);
  Click(notice, kFirstButton);
  EXPECT_EQ(reporter.Wait(), ExitCode::kKept);
  EXPECT_EQ(KeptFolders().size(), 1U);
}

// ---- Restart -------------------------------------------------------------------------------------

std::wstring Restart(const std::wstring& escaped_command, DWORD process_id) {
  return L"\"" + Reporter() + L"\" appRestart=true appExecuteCmd=" + escaped_command + L" appPid=" +
         std::to_wstring(process_id) + L" ";
}

TEST_F(CrashReporter, RestartsTheHostOnceItHasEnded) {
  const std::wstring event_name = L"tavu_host_" + std::to_wstring(::GetCurrentProcessId());
  const ScopedHandle end(::CreateEventW(nullptr, TRUE, FALSE, event_name.c_str()));
  const Process host(L"\"" + OwnPath() + L"\" --host " + event_name);
  const std::wstring note = folder_ + L"\\note";
  std::wstring command = L"\"" + OwnPath() + L"\" --restarted " + std::to_wstring(host.id()) +
                         L" \"" + note + L"\" \"b  c\"\t100% \u00E9";
  std::wstring escaped;
  for (const wchar_t unit : command) {
    escaped += unit == L' '    ? L"%20"
               : unit == L'\t' ? L"%9"
               : unit == L'%'  ? L"%25"
                               : std::wstring(1, unit);
  }
  const Process reporter(Restart(escaped, host.id()));
  // Long enough for one that does not wait to be found out; nothing depends on it otherwise.
  EXPECT_FALSE(reporter.EndsWithin(3000)) << "did not wait for the host";
  ::SetEvent(end.get());
  EXPECT_EQ(reporter.Wait(), ExitCode::kDone);

  std::optional<std::string> written;
  while (!written || written->empty()) {
    written = ReadFileAt(note);
    ::Sleep(10);
  }
  EXPECT_EQ(std::wstring(reinterpret_cast<const wchar_t*>(written->data()), written->size() / 2),
            L"gone: " + command);
}

TEST_F(CrashReporter, TellsWhenTheHostCannotBeRestarted) {
  EXPECT_EQ(Process(Restart(L"Z:\\no\\such\\program.exe%20-x", 0)).Wait(),
            ExitCode::kRestartFailed);
  EXPECT_EQ(Process(Restart(L"", 0)).Wait(), ExitCode::kRestartFailed);
}

// The host of the restart test, and what it is restarted as.
int PlayHost(const wchar_t* event_name) {
  const ScopedHandle end(::OpenEventW(SYNCHRONIZE, FALSE, event_name));
  return static_cast<int>(::WaitForSingleObject(end.get(), kPatience));
}

int PlayRestarted(DWORD host_id, const wchar_t* note) {
  const ScopedHandle host(::OpenProcess(SYNCHRONIZE, FALSE, host_id));
  const bool gone = !host || ::WaitForSingleObject(host.get(), 0) == WAIT_OBJECT_0;
  const std::wstring text = (gone ? L"gone: " : L"there: ") + std::wstring(::GetCommandLineW());
  WriteFileAt(note, std::string(reinterpret_cast<const char*>(text.data()), text.size() * 2));
  return 0;
}

}  // namespace
}  // namespace crash_reporter

int wmain(int argc, wchar_t** argv) {
  using namespace crash_reporter;
  const std::wstring_view role = argc > 2 ? argv[1] : L"";
  if (role == L"--host") return PlayHost(argv[2]);
  if (role == L"--restarted" && argc > 3) return PlayRestarted(std::stoul(argv[2]), argv[3]);
  testing::InitGoogleTest(&argc, argv);
  const TestDesktop desktop;
  return RUN_ALL_TESTS();
}
