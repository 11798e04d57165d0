// What the elements of a crash document are made from.
#pragma once

#include <initializer_list>
#include <memory>

#include <windows.h>

#include "api/frame/api_lock.h"
#include "crash/document/custom_info.h"
#include "crash/document/file_version.h"
#include "crash/document/xml_node.h"

namespace TAVU::crash {

struct CrashScene {
  const api::ApiLock::Guard& held;  // of the static scratch, too, that saves the crash's stack
  const EXCEPTION_POINTERS* exceptionPointers;  // null without an exception
  CustomInfo& customInfo;
  const VersionLibrary& versions;  // complete
};

// Makes an element; null for none.
using ElementBuilder = std::unique_ptr<XmlNode> (*)(const CrashScene& scene);

// Appends to `parent` what each builder makes, in their order. One that runs out of memory or
// faults leaves out its own element and no other.
void AppendElements(XmlNode& parent, const CrashScene& scene,
                    std::initializer_list<ElementBuilder> builders);

}  // namespace TAVU::crash
