#include "crash/document/module_list.h"

#include <cstddef>
#include <cwchar>
#include <string>

#include "base/scoped_handle.h"
#include "base/wide_number_text.h"
#include "crash/attempt.h"
#include "crash/document/module_snapshot.h"

namespace TAVU::crash {

namespace {

template <std::size_t Size>
void CopyCut(wchar_t (&to)[Size], const wchar_t* from) noexcept {
  std::wcsncpy(to, from, Size - 1);
  to[Size - 1] = L'\0';
}

// Zero when the call fails. It is made with the module's handle, which is not a file's, and so it
// fails. So a module whose file cannot be opened shows the beginning of 1601 (zeros west of UTC),
// which tells that its size is not its own. Where the process has asked for it the system raises an
// exception for such a handle; that is a failure like any other.
FILETIME LastWriteTimeByModule(HMODULE module) {
  BY_HANDLE_FILE_INFORMATION information = {};
  __try {
    static_cast<void>(::GetFileInformationByHandle(module, &information));
  } __except (GetExceptionCode() == STATUS_INVALID_HANDLE ? EXCEPTION_EXECUTE_HANDLER
                                                          : EXCEPTION_CONTINUE_SEARCH) {
  }
  return information.ftLastWriteTime;
}

// A file that cannot be opened leaves everything as it was.
void ReadFileFacts(ModuleInfo& info) noexcept {
  const base::ScopedFile file(
      ::CreateFileW(info.path, GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr));
  if (!file) return;
  info.fileSize = ::GetFileSize(file.get(), nullptr);
  ::GetFileTime(file.get(), nullptr, nullptr, &info.lastWriteTime);
}

// A file without a version block leaves the versions as they were.
void ReadVersions(const VersionLibrary& versions, ModuleInfo& info) {
  const auto version = versions.FixedVersionOf(info.path);
  if (!version) return;
  info.fileVersionMS = version->dwFileVersionMS;
  info.fileVersionLS = version->dwFileVersionLS;
  info.productVersionMS = version->dwProductVersionMS;
  info.productVersionLS = version->dwProductVersionLS;
}

void UpdateInfo(const MODULEENTRY32W& module, const VersionLibrary& versions, ModuleInfo& info) {
  CopyCut(info.name, module.szModule);
  CopyCut(info.path, module.szExePath);
  info.baseAddress =
      static_cast<std::uint32_t>(reinterpret_cast<std::uintptr_t>(module.modBaseAddr));
  info.baseSize = module.modBaseSize;
  info.lastWriteTime = LastWriteTimeByModule(module.hModule);
  ReadFileFacts(info);
  ReadVersions(versions, info);
}

std::wstring LocalTimeText(const FILETIME& moment) {
  FILETIME local = {};
  SYSTEMTIME fields = {};  // stays so for the beginning of 1601 in a zone west of UTC
  ::FileTimeToLocalFileTime(&moment, &local);
  ::FileTimeToSystemTime(&local, &fields);
  std::wstring text;
  base::AppendUnsigned(text, fields.wYear, 4);
  struct Part {
    wchar_t before;
    WORD value;
  };
  for (const Part& part :
       {Part{L'-', fields.wMonth}, Part{L'-', fields.wDay}, Part{L' ', fields.wHour},
        Part{L':', fields.wMinute}, Part{L':', fields.wSecond}}) {
    text.push_back(part.before);
    base::AppendUnsigned(text, part.value, 2);
  }
  return text;
}

std::unique_ptr<XmlNode> DescribeModule(const ModuleInfo& info) {
  auto module = XmlNode::Make(L"module");
  module->AddAttribute(L"name", EscapeXmlText(info.name));
  module->AddAttribute(L"path", EscapeXmlText(info.path));
  module->AddNumberAttribute(L"file_size", info.fileSize, 10);
  module->AddNumberAttribute(L"base_addr", info.baseAddress, 16);
  module->AddNumberAttribute(L"base_size", info.baseSize, 10);
  module->AddAttribute(L"file_ver", FileVersionText(info.fileVersionMS, info.fileVersionLS));
  module->AddAttribute(L"prod_ver", FileVersionText(info.productVersionMS, info.productVersionLS));
  module->AddAttribute(L"list_modified", LocalTimeText(info.lastWriteTime));
  return module;
}

}  // namespace

std::unique_ptr<XmlNode> BuildModuleList(const CrashScene& scene) {
  auto module_list = XmlNode::Make(L"module_list");
  static ModuleInfo info;  // off the stack
  info = {};               // once: what a module's file does not give stays from the module before
  ModuleSnapshot snapshot(scene.held, ::GetCurrentProcessId());
  Attempt([&] {
    while (const MODULEENTRY32W* const module = snapshot.Next()) {
      UpdateInfo(*module, scene.versions, info);
      module_list->AddChild(DescribeModule(info));
    }
  });
  return module_list;
}

}  // namespace TAVU::crash
