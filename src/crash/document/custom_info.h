// What the host itself has to say about a crash.
#pragma once

#include <memory>

#include "crash/document/xml_node.h"

namespace TAVU::crash {

// "custom_info" with the text of the host's callback, or, when none is set, the text that the host
// stored before the crash; null when there is no text. A callback that returns false, or throws,
// leaves none, whatever was stored. One that crashes is not guarded against.
//
// Needs the ApiLock: the texts are in the CrashHandler, and the narrow one is received in static
// scratch. May throw std::bad_alloc.
[[nodiscard]] std::unique_ptr<XmlNode> BuildCustomInfo();

}  // namespace TAVU::crash
