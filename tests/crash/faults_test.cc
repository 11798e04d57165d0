// The crash sequence when something goes wrong inside it: whatever faults, raises an exception,
// runs out of memory or is not there costs its own piece of what a crash leaves, and nothing else.
#include <gtest/gtest.h>
#include <windows.h>

#include <tlhelp32.h>

#include <algorithm>
#include <cstdlib>
#include <cwchar>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <new>
#include <string>
#include <string_view>
#include <utility>

#include "api/frame/instance_registry.h"
#include "crash/crash_handler.h"
#include "crash/filter/crash_filter.h"

namespace {

enum class Trouble { kFault, kRaise, kThrow };

std::string_view failing;  // the place where the trouble is: a function, a library, a step
Trouble trouble = Trouble::kFault;
long allocations_left = -1;  // negative: no limit
std::string launched;        // short enough to need no memory

void MeetTrouble(std::string_view place) {
  if (place != failing) return;
  if (trouble == Trouble::kThrow) throw 1;
  if (trouble == Trouble::kRaise) ::RaiseException(0xE06D7363, 0, 0, nullptr);
  *reinterpret_cast<volatile int*>(std::uintptr_t{0x10}) = 0;
}

template <typename Function>
Function* FindReal(const char* name) {
  return reinterpret_cast<Function*>(
      reinterpret_cast<void*>(::GetProcAddress(::GetModuleHandleW(L"kernel32"), name)));
}

HMODULE WINAPI Load(const wchar_t* name) {
  if (std::equal(failing.begin(), failing.end(), name, name + std::wcslen(name))) {
    MeetTrouble(failing);
  }
  // Wine takes seconds for a dump, so this program writes one itself.
  return std::wcscmp(name, L"DBGHELP.DLL") == 0 ? ::GetModuleHandleW(nullptr)
                                                : ::LoadLibraryExW(name, nullptr, 0);
}

void WINAPI TellTime(SYSTEMTIME* time) {
  MeetTrouble("GetLocalTime");
  *time = {2011, 12, 4, 1, 9, 5, 3, 999};
}

void WINAPI TellMemory(MEMORYSTATUS* status) {
  MeetTrouble("GlobalMemoryStatus");
  *status = {sizeof *status, 50, 0x100000011, 12, 13, 14, 15, 16};
}

BOOL WINAPI TellVersion(OSVERSIONINFOW* version) {
  MeetTrouble("GetVersionExW");
  *version = {276, 10, 0, 19045, 2, L"Pack & 9"};
  return TRUE;
}

BOOL WINAPI Write(HANDLE file, const void* bytes, DWORD size, DWORD* written, OVERLAPPED* how) {
  MeetTrouble("WriteFile");
  if (failing == "disk full") return FALSE;
  return FindReal<decltype(::WriteFile)>("WriteFile")(file, bytes, size, written, how);
}

BOOL WINAPI Delete(const wchar_t* path) {
  MeetTrouble("DeleteFileW");
  return FindReal<decltype(::DeleteFileW)>("DeleteFileW")(path);
}

// No program starts.
BOOL WINAPI Launch(const wchar_t*, wchar_t* line, SECURITY_ATTRIBUTES*, SECURITY_ATTRIBUTES*, BOOL,
                   DWORD, void*, const wchar_t*, STARTUPINFOW*, PROCESS_INFORMATION*) {
  const bool restart = std::wcsstr(line, L" appRestart=true ") != nullptr;
  MeetTrouble(restart ? "restart" : "reporter");
  launched += restart ? " restart" : " reporter";
  return FALSE;
}

}  // namespace

// The pointers, and the one function, to which the linker sends calls of the system's.
extern "C" {
decltype(&LoadLibraryW) __imp_LoadLibraryW = &Load;
decltype(&GetLocalTime) __imp_GetLocalTime = &TellTime;
decltype(&GlobalMemoryStatus) __imp_GlobalMemoryStatus = &TellMemory;
decltype(&GetVersionExW) __imp_GetVersionExW = &TellVersion;
decltype(&WriteFile) __imp_WriteFile = &Write;
decltype(&DeleteFileW) __imp_DeleteFileW = &Delete;
decltype(&CreateProcessW) __imp_CreateProcessW = &Launch;

BOOL WINAPI Module32FirstW(HANDLE snapshot, MODULEENTRY32W* entry) {
  MeetTrouble("Module32FirstW");
  return FindReal<decltype(Module32FirstW)>("Module32FirstW")(snapshot, entry);
}

__declspec(dllexport) BOOL WINAPI
    MiniDumpWriteDump(HANDLE /*process*/, DWORD /*id*/, HANDLE file, int /*type*/,
                      void* /*exception*/, void* /*streams*/, void* /*callback*/) {
  DWORD written = 0;
  const BOOL done = ::WriteFile(file, "dump", 4, &written, nullptr);
  MeetTrouble("end of the dump");
  return done;
}
}

void* operator new(std::size_t size) {
  if (allocations_left == 0) throw std::bad_alloc();
  if (allocations_left > 0) --allocations_left;
  return std::malloc(size);
}
void operator delete(void* block) noexcept {
  std::free(block);
}
void operator delete(void* block, std::size_t) noexcept {
  std::free(block);
}

namespace TAVU::crash {
namespace {

EXCEPTION_RECORD exception = {0xC0000005, 0, nullptr, reinterpret_cast<void*>(&Launch), 0, {}};
CONTEXT context;
EXCEPTION_POINTERS pointers = {&exception, &context};

TAVU_FLAG Answer(wchar_t* buffer, std::int32_t /*capacity*/) {
  std::wcscpy(buffer, L"asked");
  MeetTrouble("callback");
  // As a host does whose own handler asks UnhandledExceptionFilter.
  if (failing == "filter again") EXPECT_EQ(CrashFilter(&pointers), EXCEPTION_EXECUTE_HANDLER);
  return 0x80;  // true, as every byte but 0
}

std::string Content(const std::wstring& path) {
  std::ifstream stream(std::filesystem::path(path), std::ios::binary);
  return {std::istreambuf_iterator<char>(stream), {}};
}

// The pieces of a document, and what each is known by.
constexpr std::pair<const char*, const char*> kPieces[] = {
    {" custom", "<custom_info>asked</custom_info>"},
    {" processor", "<processor count=\""},
    {" type", " type=\"8664\" speed=\""},
    {" memory",
     "<memory physical=\"17\" physical_free=\"12\" virtual=\"15\" virtual_free=\"16\" "
     "paging_file=\"13\" paging_file_free=\"14\"></memory>"},
    {" windows", "<windows version=\"10.0.19045.2,Pack & 9\""},
    {" explore", " explore=\""},
    {" exception", "<exception addr=\""},
    {" place", " module=\"crash_faults_test.exe\"></exception>"},
    {" stack", "<function addr=\""},
    {" modules", "<module name=\"crash_faults_test.exe\""},
    {" end", "</TAVUCrashInfo>\n"},
};
constexpr char kDocument[] =
    " custom processor type memory windows explore exception place stack modules end";

// What a crash with the trouble in `place` does not leave.
std::string Missing(const char* place, long allocations = -1, const wchar_t* folder = L".\\") {
  const auto handler = [] { return &CrashHandler::Get(api::ApiLock::Guard()); };
  handler()->files = CrashFiles(folder, L"faults");
  launched.clear();
  failing = place;
  allocations_left = allocations;
  const LONG result = CrashFilter(&pointers);
  allocations_left = -1;
  EXPECT_EQ(result, EXCEPTION_EXECUTE_HANDLER);
  failing = "";
  const CrashFiles& files = handler()->files;  // and the lock is free again
  std::string missing;
  if (!files.dumpPath().ends_with(L"\\faults_20111201090503_Crash.dmp")) missing += " time";
  const std::string document = Content(files.infoPath());
  for (const auto& [name, mark] : kPieces) {
    if (document.find(mark) == std::string::npos) missing += name;
  }
  if (Content(files.dumpPath()) != "dump") missing += " dump";
  for (const char* name : {" reporter", " restart"}) {
    if (launched.find(name) == std::string::npos) missing += name;
  }
  for (const std::wstring& path : {files.infoPath(), files.dumpPath()}) {
    if (!::DeleteFileW(path.c_str())) EXPECT_NE(::GetLastError(), ERROR_SHARING_VIOLATION);
  }
  return missing;
}

class Faults : public testing::Test {
 protected:
  static LONG WINAPI Earlier(EXCEPTION_POINTERS* /*pointers*/) { return EXCEPTION_CONTINUE_SEARCH; }
  static void SetUpTestSuite() {
    ::RtlCaptureContext(&context);
    ::SetUnhandledExceptionFilter(&Earlier);
    const api::ApiLock::Guard held;
    CrashHandler& handler = CrashHandler::Get(held);
    handler.customInfo.SetWideCallback(&Answer);
    auto record = std::make_unique<api::InstanceRecord>();
    record->appRestart = true;
    owner = record.get();
    const api::Handle handle =
        api::InstanceRegistry::Get().RegisterInstance(held, std::move(record));
    EXPECT_EQ(handler.installation.Install(held, handle, &CrashFilter), InstallResult::kInstalled);
  }
  void SetUp() override { owner->deleteLocalDumpFile = false; }
  static inline api::InstanceRecord* owner;
};

TEST_F(Faults, CostTheirStepOnly) {
  const std::string document = kDocument;
  const std::pair<const char*, std::string> cases[] = {
      {"nowhere", ""},
      {"GetLocalTime", " time"},
      {"callback", " custom"},
      {"filter again", ""},
      {"GlobalMemoryStatus", " memory"},
      {"GetVersionExW", " windows explore"},
      {"SHFolder.dll", " explore"},
      {"Module32FirstW", " place modules"},  // faults again for each function of the stack
      {"Version.dll", document},
      {"WriteFile", document + " dump"},
      {"DBGHELP.DLL", " dump"},
      {"end of the dump", ""},  // what is written by then can be opened
      {"reporter", " reporter"},
      {"restart", " restart"},
      {"disk full", document + " dump"},
  };
  for (const auto& [place, missing] : cases) EXPECT_EQ(Missing(place), missing) << place;
  EXPECT_EQ(Missing("nowhere", -1, L".\\no such folder\\"), document + " dump");
  owner->deleteLocalDumpFile = true;
  EXPECT_EQ(Missing("nowhere"), document + " dump") << "deleted";
  EXPECT_EQ(Missing("DeleteFileW"), " dump") << "cost the dump, and left the document";
  owner->deleteLocalDumpFile = false;
  for (const Trouble kind : {Trouble::kRaise, Trouble::kThrow}) {
    trouble = kind;
    EXPECT_EQ(Missing("callback"), " custom");
  }
  trouble = Trouble::kFault;
}

TEST_F(Faults, OfMemoryCostNeitherNamesNorDump) {
  EXPECT_EQ(Missing("nowhere", 0), std::string(kDocument) + " reporter restart");
  for (long allocations = 1; allocations < 2000; allocations *= 3) {
    const std::string missing = Missing("nowhere", allocations);
    EXPECT_EQ(missing.find(" time"), std::string::npos) << allocations;
    EXPECT_EQ(missing.find(" dump"), std::string::npos) << allocations;
  }
}

}  // namespace
}  // namespace TAVU::crash
