// What the reporter has to know of a path.
//
// The standard library does not see reparse points (junctions, links) on Windows. They count as
// neither file nor folder here: what they lead to belongs to somebody else, and must be neither
// sent nor deleted.
#pragma once

#include <filesystem>

#include <windows.h>

namespace crash_reporter {

[[nodiscard]] inline bool IsFile(const std::filesystem::path& path) noexcept {
  const DWORD attributes = ::GetFileAttributesW(path.c_str());
  return attributes != INVALID_FILE_ATTRIBUTES &&
         !(attributes & (FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_REPARSE_POINT));
}

[[nodiscard]] inline bool IsFolder(const std::filesystem::path& path) noexcept {
  const DWORD attributes = ::GetFileAttributesW(path.c_str());
  return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) &&
         !(attributes & FILE_ATTRIBUTE_REPARSE_POINT);
}

}  // namespace crash_reporter
