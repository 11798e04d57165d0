// The machine that a crash happened on.
#pragma once

#include <memory>
#include <string>

#include "crash/document/xml_node.h"

namespace TAVU::crash {

// "system_info" with "processor", "memory" and "windows". What cannot be found out is 0 or left
// out. May throw std::bad_alloc.
[[nodiscard]] std::unique_ptr<XmlNode> BuildSystemInfo();

// Sets `out` to where Internet Explorer is installed, whether or not it is. False when the folder
// of the programs is not to be had. Static scratch: needs the ApiLock. May throw std::bad_alloc.
[[nodiscard]] bool GetBrowserPath(std::wstring& out);

}  // namespace TAVU::crash
