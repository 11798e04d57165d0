// The crash document: what people and tools read first.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include <windows.h>

#include "api/frame/api_lock.h"
#include "crash/document/custom_info.h"
#include "crash/document/xml_node.h"

namespace TAVU::crash {

enum class DocumentResult {
  kNoVersionLibrary,  // it, or one of its functions, is missing; no file was made
  kNotCreated,        // the file could not be made
  kWritten,
};

// Writes the document of a crash to the file `path`. A section that memory does not suffice for, or
// that faults, is left out. May throw std::bad_alloc.
DocumentResult BuildCrashInfoDocument(const api::ApiLock::Guard& held,
                                      const EXCEPTION_POINTERS* exceptionPointers,
                                      CustomInfo& customInfo, const std::wstring& path);

// The element "exception", empty without one. May throw std::bad_alloc.
[[nodiscard]] std::unique_ptr<XmlNode> BuildException(const api::ApiLock::Guard& held,
                                                      const EXCEPTION_POINTERS* exceptionPointers);

// 0 without an exception.
[[nodiscard]] std::uint64_t ExceptionAddressOf(
    const EXCEPTION_POINTERS* exceptionPointers) noexcept;

}  // namespace TAVU::crash
