// A crash when the disk is full, or the temporary folder gone, and no program starts either: the
// filter goes through all its steps and lets the process end.
#include <gtest/gtest.h>
#include <windows.h>

#include <string>

#include "api/frame/instance_registry.h"
#include "crash/filter/crash_filter.h"
#include "crash/filter/crash_handler.h"

namespace {

int writes = 0;
std::wstring command_lines;

BOOL WINAPI FindDiskFull(HANDLE, const void*, DWORD, DWORD* written, OVERLAPPED*) {
  ++writes;
  if (written != nullptr) *written = 0;
  SetLastError(ERROR_DISK_FULL);
  return FALSE;
}

BOOL WINAPI FindNoProgram(const wchar_t*, wchar_t* command_line, SECURITY_ATTRIBUTES*,
                          SECURITY_ATTRIBUTES*, BOOL, DWORD, void*, const wchar_t*, STARTUPINFOW*,
                          PROCESS_INFORMATION*) {
  command_lines += command_line;
  SetLastError(ERROR_FILE_NOT_FOUND);
  return FALSE;
}

}  // namespace

// The pointers through which the linker sends calls of these two functions.
extern "C" {
decltype(&WriteFile) __imp_WriteFile = &FindDiskFull;
decltype(&CreateProcessW) __imp_CreateProcessW = &FindNoProgram;
}

namespace TAVU::crash {
namespace {

TEST(Crash, OnAFullDiskStillAsksForReporterAndRestart) {
  CrashHandler& handler = CrashHandler::Get();
  handler.appExeFile = L"full";
  EXCEPTION_RECORD exception = {};
  CONTEXT context = {};
  ::RtlCaptureContext(&context);
  EXCEPTION_POINTERS pointers = {&exception, &context};
  for (const bool folder_exists : {true, false}) {
    auto record = std::make_unique<api::InstanceRecord>();
    record->appRestart = true;
    record->appExecuteCmd = L"again";
    handler.tempPath = folder_exists ? L".\\" : L".\\no such folder\\";
    handler.ownerHandle =
        api::InstanceRegistry::Get().RegisterInstance(api::ApiLock::Guard(), std::move(record));
    writes = 0;
    command_lines.clear();
    EXPECT_EQ(CrashFilter(&pointers), EXCEPTION_EXECUTE_HANDLER);
    EXPECT_EQ(writes > 0, folder_exists);
    EXPECT_LT(command_lines.find(L"_Crash.dmp"), command_lines.find(L"again"));
    EXPECT_NE(command_lines.find(L"again"), std::wstring::npos);
    const api::ApiLock::Guard free_again;
  }
}

}  // namespace
}  // namespace TAVU::crash
