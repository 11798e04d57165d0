#include "crash/launch/process_launch.h"

namespace TAVU::crash {

namespace {

enum class Wait { kNo, kUntilItEnds };

BOOL Launch(const std::wstring& currentFolder, std::wstring& commandLine, Wait wait) noexcept {
  STARTUPINFOW startup = {};  // `cb` stays 0 too: CreateProcessW takes it
  PROCESS_INFORMATION process = {};
  const BOOL created = ::CreateProcessW(nullptr, commandLine.data(), nullptr, nullptr, FALSE, 0,
                                        nullptr, currentFolder.c_str(), &startup, &process);
  // When no process was created the handles are null, and all three calls fail at once.
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
