#include "crash/launch/process_launch.h"

namespace TAVU::crash {

namespace {

enum class Wait { kNo, kUntilItEnds };

BOOL Launch(const std::wstring& currentFolder, std::wstring& commandLine, Wait wait) noexcept {
  // All zero, the size field included: the system takes it so, and nothing is to be set.
  STARTUPINFOW startup = {};
  PROCESS_INFORMATION process = {};
  const BOOL created = ::CreateProcessW(nullptr, commandLine.data(), nullptr, nullptr, FALSE, 0,
                                        nullptr, currentFolder.c_str(), &startup, &process);
  // Whether or not the process was created: on null handles all three fail at once.
  ::CloseHandle(process.hThread);
  if (wait == Wait::kUntilItEnds) ::WaitForSingleObject(process.hProcess, INFINITE);
  ::CloseHandle(process.hProcess);
  return created;
}

}  // namespace

BOOL StartProcessAndWait(const std::wstring& currentFolder, std::wstring commandLine) noexcept {
  return Launch(currentFolder, commandLine, Wait::kUntilItEnds);
}

BOOL StartProcess(const std::wstring& currentFolder, std::wstring commandLine) noexcept {
  return Launch(currentFolder, commandLine, Wait::kNo);
}

}  // namespace TAVU::crash
