#include "crash/document/crash_document.h"

#include <utility>

#include "crash/document/custom_info.h"
#include "crash/document/exception_names.h"
#include "crash/document/module_list.h"
#include "crash/document/module_lookup.h"
#include "crash/document/stack_walk.h"
#include "crash/document/system_info.h"
#include "crash/document/xml_writer.h"
#include "crash/filter/attempt.h"
#include "crash/filter/crash_handler.h"

namespace TAVU::crash {

namespace {

// Version.dll, held in the CrashHandler for a scope.
class VersionLibrary {
 public:
  explicit VersionLibrary(CrashHandler& handler) noexcept : handler_(handler) {
    handler_.versionLibrary = ::LoadLibraryW(L"Version.dll");
    handler_.getFileVersionInfoSizeW = Find("GetFileVersionInfoSizeW");
    handler_.getFileVersionInfoW = Find("GetFileVersionInfoW");
    handler_.verQueryValueW = Find("VerQueryValueW");
  }
  VersionLibrary(const VersionLibrary&) = delete;
  VersionLibrary& operator=(const VersionLibrary&) = delete;
  ~VersionLibrary() {
    ::FreeLibrary(handler_.versionLibrary);  // of null too: it fails, and that is all
    handler_.versionLibrary = nullptr;
  }

  [[nodiscard]] bool IsComplete() const noexcept {
    return handler_.getFileVersionInfoSizeW != nullptr && handler_.getFileVersionInfoW != nullptr &&
           handler_.verQueryValueW != nullptr;
  }

 private:
  [[nodiscard]] FARPROC Find(const char* name) const noexcept {
    if (handler_.versionLibrary == nullptr) return nullptr;
    return ::GetProcAddress(handler_.versionLibrary, name);
  }

  CrashHandler& handler_;
};

using Section = std::unique_ptr<XmlNode>;

void AppendSections(XmlNode& root, const EXCEPTION_POINTERS* exceptionPointers) noexcept {
  Attempt([&] {
    if (Section custom_info = BuildCustomInfo()) root.AddChild(std::move(custom_info));
  });
  Attempt([&] { root.AddChild(BuildSystemInfo()); });
  Attempt([&] { root.AddChild(BuildCrashInfo(exceptionPointers)); });
  Attempt([&] { root.AddChild(BuildModuleList()); });
}

}  // namespace

bool BuildCrashInfoDocument(const EXCEPTION_POINTERS* exceptionPointers, const std::wstring& path) {
  XmlNode root(L"TAVUCrashInfo");
  {
    const VersionLibrary version_library(CrashHandler::Get());
    if (!version_library.IsComplete()) return false;
    AppendSections(root, exceptionPointers);
  }
  return WriteXmlFile(root, path);
}

std::unique_ptr<XmlNode> BuildCrashInfo(const EXCEPTION_POINTERS* exceptionPointers) {
  auto crash_info = std::make_unique<XmlNode>(L"crash_info");
  crash_info->AddChild(BuildException(exceptionPointers));
  crash_info->AddChild(BuildCallStack(exceptionPointers));
  return crash_info;
}

std::unique_ptr<XmlNode> BuildException(const EXCEPTION_POINTERS* exceptionPointers) {
  auto exception = std::make_unique<XmlNode>(L"exception");
  if (exceptionPointers == nullptr) return exception;
  const EXCEPTION_RECORD& record = *exceptionPointers->ExceptionRecord;
  const std::uint64_t address = ExceptionAddressOf(exceptionPointers);
  exception->AddNumberAttribute(L"addr", address, 16);
  if (record.ExceptionCode == EXCEPTION_ACCESS_VIOLATION) {
    // All but a read counts as a write, an attempt to execute (8) included: the document has only
    // these two attributes.
    const bool is_read = record.ExceptionInformation[0] == 0;
    exception->AddNumberAttribute(is_read ? L"read_addr" : L"write_addr",
                                  record.ExceptionInformation[1], 16);
  }
  exception->AddAttribute(L"type", GetExceptionName(record.ExceptionCode));
  std::wstring module;
  std::uint32_t base = 0;
  if (FindModuleByAddress(static_cast<std::uint32_t>(address), module, base)) {
    // Not escaped, unlike the names in the lists: with an escape the same module would have another
    // name here than in documents of earlier versions, and crashes that are grouped by it would
    // part.
    exception->AddAttribute(L"module", module);
  }
  return exception;
}

std::uint64_t ExceptionAddressOf(const EXCEPTION_POINTERS* exceptionPointers) noexcept {
  if (exceptionPointers == nullptr) return 0;
  return reinterpret_cast<std::uint64_t>(exceptionPointers->ExceptionRecord->ExceptionAddress);
}

}  // namespace TAVU::crash
