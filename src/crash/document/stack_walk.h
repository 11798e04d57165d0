// The call stack of a crash, by the chain of saved frame pointers.
#pragma once

#include <memory>

#include <windows.h>

#include "api/frame/api_lock.h"
#include "crash/document/xml_node.h"

namespace TAVU::crash {

// "call_stack" with at most 20 "function" children, innermost first: the exception's address, then
// the return addresses that the chain from its frame-pointer register leads to. With null, the
// chain from the caller's own frame. The chain may be damaged in any way: the walk ends at the
// first frame that cannot be read or whose return address does not point to readable memory. May
// throw std::bad_alloc.
[[nodiscard]] std::unique_ptr<XmlNode> BuildCallStack(const api::ApiLock::Guard& held,
                                                      const EXCEPTION_POINTERS* exceptionPointers);

}  // namespace TAVU::crash
