// The machine that a crash happened on.
#pragma once

#include <memory>

#include "crash/document/crash_scene.h"
#include "crash/document/xml_node.h"

namespace TAVU::crash {

// "system_info" with "processor", "memory" and "windows". What cannot be found out is 0 or left
// out. May throw std::bad_alloc.
[[nodiscard]] std::unique_ptr<XmlNode> BuildSystemInfo(const CrashScene& scene);

}  // namespace TAVU::crash
