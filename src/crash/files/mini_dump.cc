#include "crash/files/mini_dump.h"

#include <dbghelp.h>

#include "base/library_function.h"
#include "base/scoped_handle.h"
#include "base/scoped_library.h"
#include "crash/attempt.h"

namespace TAVU::crash {

DumpResult WriteMiniDump(EXCEPTION_POINTERS* exceptionPointers, const std::wstring& path) {
  ::DeleteFileW(path.c_str());  // without the library, too, no old dump is to be sent
  const base::ScopedLibrary library(::LoadLibraryW(L"DBGHELP.DLL"));
  const auto write_dump =
      base::FindFunction<decltype(::MiniDumpWriteDump)>(library.get(), "MiniDumpWriteDump");
  if (write_dump == nullptr) return DumpResult::kNoLibrary;

  MINIDUMP_EXCEPTION_INFORMATION information = {.ThreadId = ::GetCurrentThreadId(),
                                                .ExceptionPointers = exceptionPointers,
                                                .ClientPointers = FALSE};
  const base::ScopedFile file(::CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS,
                                            FILE_ATTRIBUTE_NORMAL, nullptr));
  if (!file) return DumpResult::kNotCreated;
  Attempt([&] {
    write_dump(::GetCurrentProcess(), ::GetCurrentProcessId(), file.get(), MiniDumpNormal,
               exceptionPointers != nullptr ? &information : nullptr, nullptr, nullptr);
  });
  return DumpResult::kAttempted;
}

}  // namespace TAVU::crash
