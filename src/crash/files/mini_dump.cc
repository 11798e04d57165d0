#include "crash/files/mini_dump.h"

#include <dbghelp.h>

#include "base/scoped_handle.h"
#include "base/scoped_library.h"

namespace TAVU::crash {

bool WriteMiniDump(EXCEPTION_POINTERS* exceptionPointers, const std::wstring& path) noexcept {
  ::DeleteFileW(path.c_str());
  const base::ScopedLibrary library(::LoadLibraryW(L"DBGHELP.DLL"));
  if (!library) return false;
  const auto write_dump = reinterpret_cast<decltype(&::MiniDumpWriteDump)>(
      ::GetProcAddress(library.get(), "MiniDumpWriteDump"));
  if (write_dump == nullptr) return false;

  MINIDUMP_EXCEPTION_INFORMATION information = {.ThreadId = ::GetCurrentThreadId(),
                                                .ExceptionPointers = exceptionPointers,
                                                .ClientPointers = FALSE};
  const base::ScopedFile file(::CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS,
                                            FILE_ATTRIBUTE_NORMAL, nullptr));
  if (file) {
    write_dump(::GetCurrentProcess(), ::GetCurrentProcessId(), file.get(), MiniDumpNormal,
               exceptionPointers != nullptr ? &information : nullptr, nullptr, nullptr);
  }
  return true;  // the dump's own result is not tested
}

}  // namespace TAVU::crash
