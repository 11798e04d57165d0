// The crash document: what people and tools read first.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include <windows.h>

#include "crash/document/xml_node.h"

namespace TAVU::crash {

// Writes the document of a crash to the file `path`. False when the version library or one of its
// functions is missing (no file is made then), or when the file cannot be created. A section that
// memory does not suffice for is left out. Needs the ApiLock. May throw std::bad_alloc.
bool BuildCrashInfoDocument(const EXCEPTION_POINTERS* exceptionPointers, const std::wstring& path);

// Parts of the document: "crash_info" holds "exception" and the call stack. Need the ApiLock.
[[nodiscard]] std::unique_ptr<XmlNode> BuildCrashInfo(const EXCEPTION_POINTERS* exceptionPointers);
[[nodiscard]] std::unique_ptr<XmlNode> BuildException(const EXCEPTION_POINTERS* exceptionPointers);

// 0 without an exception.
[[nodiscard]] std::uint64_t ExceptionAddressOf(
    const EXCEPTION_POINTERS* exceptionPointers) noexcept;

}  // namespace TAVU::crash
