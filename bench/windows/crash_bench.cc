// From a crash to the first instruction of the reporter. Without an argument it measures, by
// running itself: with "tavu" it crashes under the library's handler, with "bare" under one that
// does no more than what that must: write the dump, walk the modules, start the reporter.
#include <tavu/tavu.h>
#include <windows.h>

// After windows.h.
#include <dbghelp.h>
#include <tlhelp32.h>

#include <array>
#include <cstring>
#include <string>

#include "crash_clock.h"
#include "pairs.h"

namespace TAVU::bench {
namespace {

constexpr wchar_t kReporter[] = L"TAVU_CrashReporter.exe";

std::wstring OwnPath() {
  wchar_t path[MAX_PATH] = {};
  ::GetModuleFileNameW(nullptr, path, MAX_PATH);
  return path;
}

bool RunToEnd(std::wstring command_line) {
  STARTUPINFOW startup = {};
  PROCESS_INFORMATION process = {};
  startup.cb = sizeof startup;
  if (!::CreateProcessW(nullptr, command_line.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr,
                        &startup, &process)) {
    return false;
  }
  ::CloseHandle(process.hThread);
  ::WaitForSingleObject(process.hProcess, INFINITE);
  ::CloseHandle(process.hProcess);
  return true;
}

void WriteDump(EXCEPTION_POINTERS* exception, const std::wstring& path) {
  const HMODULE library = ::LoadLibraryW(L"DBGHELP.DLL");
  const auto write = reinterpret_cast<decltype(&::MiniDumpWriteDump)>(
      ::GetProcAddress(library, "MiniDumpWriteDump"));
  const HANDLE file =
      ::CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr);
  MINIDUMP_EXCEPTION_INFORMATION information = {::GetCurrentThreadId(), exception, FALSE};
  write(::GetCurrentProcess(), ::GetCurrentProcessId(), file, MiniDumpNormal, &information, nullptr,
        nullptr);
  ::CloseHandle(file);
}

void WalkModules() {
  const HANDLE snapshot = ::CreateToolhelp32Snapshot(TH32CS_SNAPMODULE, ::GetCurrentProcessId());
  static MODULEENTRY32W entry;
  entry.dwSize = sizeof entry;
  for (BOOL more = ::Module32FirstW(snapshot, &entry); more;) {
    more = ::Module32NextW(snapshot, &entry);
  }
  ::CloseHandle(snapshot);
}

LONG WINAPI BareFilter(EXCEPTION_POINTERS* exception) {
  wchar_t folder[MAX_PATH] = {};
  ::GetTempPathW(MAX_PATH, folder);
  const std::wstring dump = std::wstring(folder) + L"tavu_bench.dmp";
  WriteDump(exception, dump);
  WalkModules();
  RunToEnd(kReporter);
  ::DeleteFileW(dump.c_str());
  return EXCEPTION_EXECUTE_HANDLER;
}

[[noreturn]] void Crash() {
  // Hosts with a window have it, and what it brings along, loaded. The library's document needs it,
  // too: without this line the library's dump would be one of twice as many modules.
  ::LoadLibraryW(L"shell32.dll");
  if (volatile CrashClock* clock = OpenCrashClock()) clock->crashed = Ticks();
  ::RaiseException(EXCEPTION_ACCESS_VIOLATION, 0, 2, std::array<ULONG_PTR, 2>{0, 0x10}.data());
  ::ExitProcess(0);
}

void CrashUnderLibrary() {
  const TAVU_HANDLE instance = TAVU_CreateW(L"my-game", L"1.0.3", L"My Game");
  Require(TAVU_StartCrashHandler(instance), "TAVU_StartCrashHandler");
  Crash();
}

void CrashBare() {
  ::SetUnhandledExceptionFilter(&BareFilter);
  Crash();
}

double SecondsToReporter(volatile CrashClock& clock, const wchar_t* how) {
  clock.reported = 0;
  Require(RunToEnd(L"\"" + OwnPath() + L"\" " + how), "starting a process");
  Require(clock.reported != 0, "starting the reporter");
  LARGE_INTEGER frequency;
  ::QueryPerformanceFrequency(&frequency);
  return static_cast<double>(clock.reported - clock.crashed) /
         static_cast<double>(frequency.QuadPart);
}

void Measure() {
  volatile CrashClock* clock = OpenCrashClock();
  Require(clock != nullptr, "CreateFileMappingW");
  ComparePairs(
      "crash", 31, 1e3, "ms", [&] { return SecondsToReporter(*clock, L"tavu"); },
      [&] { return SecondsToReporter(*clock, L"bare"); });
}

}  // namespace
}  // namespace TAVU::bench

int main(int argc, char** argv) {
  if (argc == 1) {
    TAVU::bench::Measure();
  } else if (std::strcmp(argv[1], "tavu") == 0) {
    TAVU::bench::CrashUnderLibrary();
  } else {
    TAVU::bench::CrashBare();
  }
}
