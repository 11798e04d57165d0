#include "crash/document/crash_document.h"

#include "crash/document/crash_scene.h"
#include "crash/document/exception_names.h"
#include "crash/document/module_list.h"
#include "crash/document/module_lookup.h"
#include "crash/document/stack_walk.h"
#include "crash/document/system_info.h"
#include "crash/document/xml_writer.h"

namespace TAVU::crash {

namespace {

std::unique_ptr<XmlNode> BuildCustomInfo(const CrashScene& scene) {
  return scene.customInfo.Build();
}

std::unique_ptr<XmlNode> DescribeException(const CrashScene& scene) {
  return BuildException(scene.held, scene.exceptionPointers);
}

std::unique_ptr<XmlNode> DescribeCallStack(const CrashScene& scene) {
  return BuildCallStack(scene.held, scene.exceptionPointers);
}

std::unique_ptr<XmlNode> BuildCrashInfo(const CrashScene& scene) {
  auto crash_info = XmlNode::Make(L"crash_info");
  AppendElements(*crash_info, scene, {&DescribeException, &DescribeCallStack});
  return crash_info;
}

}  // namespace

DocumentResult BuildCrashInfoDocument(const api::ApiLock::Guard& held,
                                      const EXCEPTION_POINTERS* exceptionPointers,
                                      CustomInfo& customInfo, const std::wstring& path) {
  XmlNode root(L"TAVUCrashInfo");
  {
    const VersionLibrary versions;
    if (!versions.IsComplete()) return DocumentResult::kNoVersionLibrary;
    AppendElements(root, {held, exceptionPointers, customInfo, versions},
                   {&BuildCustomInfo, &BuildSystemInfo, &BuildCrashInfo, &BuildModuleList});
  }
  return WriteXmlFile(root, path) ? DocumentResult::kWritten : DocumentResult::kNotCreated;
}

std::unique_ptr<XmlNode> BuildException(const api::ApiLock::Guard& held,
                                        const EXCEPTION_POINTERS* exceptionPointers) {
  auto exception = XmlNode::Make(L"exception");
  if (exceptionPointers == nullptr) return exception;
  const EXCEPTION_RECORD& record = *exceptionPointers->ExceptionRecord;
  const std::uint64_t address = ExceptionAddressOf(exceptionPointers);
  exception->AddNumberAttribute(L"addr", address, 16);
  if (record.ExceptionCode == EXCEPTION_ACCESS_VIOLATION) {
    // Everything but a read counts as a write, an attempt to execute (8) included: the document
    // knows two kinds of access, and its readers look for one of the two attributes.
    const bool is_read = record.ExceptionInformation[0] == 0;
    exception->AddNumberAttribute(is_read ? L"read_addr" : L"write_addr",
                                  record.ExceptionInformation[1], 16);
  }
  exception->AddAttribute(L"type", GetExceptionName(record.ExceptionCode));
  const std::wstring module = FindModuleByAddress(held, static_cast<std::uint32_t>(address));
  // Not escaped, unlike the names in the lists: with an escape the same module would have another
  // name here than in documents of earlier versions, and crashes that are grouped by it would part.
  if (!module.empty()) exception->AddAttribute(L"module", module);
  return exception;
}

std::uint64_t ExceptionAddressOf(const EXCEPTION_POINTERS* exceptionPointers) noexcept {
  if (exceptionPointers == nullptr) return 0;
  return reinterpret_cast<std::uint64_t>(exceptionPointers->ExceptionRecord->ExceptionAddress);
}

}  // namespace TAVU::crash
