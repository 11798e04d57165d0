// What the reporter has to know of a path.
#pragma once

#include <string>

#include <windows.h>

namespace crash_reporter {

// There is a file, and no folder, of that path.
[[nodiscard]] inline bool IsFile(const std::wstring& path) noexcept {
  const DWORD attributes = ::GetFileAttributesW(path.c_str());
  return attributes != INVALID_FILE_ATTRIBUTES && !(attributes & FILE_ATTRIBUTE_DIRECTORY);
}

}  // namespace crash_reporter
