// The modules of the crashed process.
#pragma once

#include <cstdint>
#include <memory>

#include <windows.h>

#include "crash/document/crash_scene.h"
#include "crash/document/xml_node.h"

namespace TAVU::crash {

// What is known of a module and its file. A text longer than its field is cut; both are terminated.
struct ModuleInfo {
  wchar_t name[256];
  wchar_t path[261];
  std::uint32_t baseAddress;  // the low half
  std::uint32_t baseSize;
  std::uint32_t fileSize;  // the low half
  FILETIME lastWriteTime;
  std::uint32_t fileVersionMS;
  std::uint32_t fileVersionLS;
  std::uint32_t productVersionMS;
  std::uint32_t productVersionLS;
};

// "module_list" with one "module" for each, in the system's order. A module whose file cannot be
// opened shows the size of the module before it, and one without a version block the versions of
// the module before it. Every module has all attributes; a date in 1601, or of zeros west of
// UTC, tells that the size is not its own. A damaged list, or memory that runs out, ends it early.
// May throw std::bad_alloc.
[[nodiscard]] std::unique_ptr<XmlNode> BuildModuleList(const CrashScene& scene);

}  // namespace TAVU::crash
