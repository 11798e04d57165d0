#include "restart.h"

#include <windows.h>

#include "scoped.h"

namespace crash_reporter {

namespace {

constexpr DWORD kLongestWaitMilliseconds = 30000;

// Zero when the system does not tell.
FILETIME StartTimeOf(HANDLE process) noexcept {
  FILETIME start = {};
  FILETIME unused = {};
  if (!::GetProcessTimes(process, &start, &unused, &unused, &unused)) return {};
  return start;
}

void WaitForEnd(DWORD process_id) noexcept {
  if (process_id == 0) return;
  const ScopedHandle host(
      ::OpenProcess(SYNCHRONIZE | PROCESS_QUERY_LIMITED_INFORMATION, FALSE, process_id));
  if (!host) return;
  // Started after this process: not the host, but somebody who was given its number.
  const FILETIME host_start = StartTimeOf(host.get());
  const FILETIME own_start = StartTimeOf(::GetCurrentProcess());
  if (::CompareFileTime(&host_start, &own_start) > 0) return;
  ::WaitForSingleObject(host.get(), kLongestWaitMilliseconds);
}

}  // namespace

bool RestartHost(const RestartRequest& request) {
  WaitForEnd(request.process_id);
  std::wstring command_line = request.command_line;  // CreateProcessW may write into it
  STARTUPINFOW startup = {};
  startup.cb = sizeof startup;
  PROCESS_INFORMATION process = {};
  if (command_line.empty() || !::CreateProcessW(nullptr, command_line.data(), nullptr, nullptr,
                                                FALSE, 0, nullptr, nullptr, &startup, &process)) {
    return false;
  }
  const ScopedHandle owned_process(process.hProcess);
  const ScopedHandle owned_thread(process.hThread);
  return true;
}

}  // namespace crash_reporter
