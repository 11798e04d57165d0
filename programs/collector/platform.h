// All that the collector asks of the system it runs on, beyond the standard library and sockets.
// platform_posix.cc and platform_windows.cc; the build chooses one.
#pragma once

#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

namespace TAVU::collector {

// The error that the C library has left in errno.
[[nodiscard]] inline std::error_code LastError() noexcept {
  return {errno, std::generic_category()};
}

// Before anything else: standard output takes bytes as they are, in UTF-8 where it matters; a
// reader of it that is gone shows as an error of writing instead of ending the process, and so does
// a limit on the size of files.
void PrepareProcess() noexcept;

// Lets the process have as many open connections as it may ask for.
void RaiseConnectionLimit() noexcept;

// The command line's arguments in UTF-8, without the program's name.
[[nodiscard]] std::vector<std::string> ArgumentsInUtf8(int argc, char** argv);

// Writes to standard output until all is written or an error comes; `written` counts the bytes.
[[nodiscard]] std::error_code WriteStandardOutput(std::string_view text, std::size_t& written);

// Makes the file, which must not exist, and opens it for writing bytes. Null with `error` set.
[[nodiscard]] std::FILE* CreateNewFile(const std::filesystem::path& path, std::error_code& error);

// Whether a listening socket may take over an address of connections that have just ended, and
// nothing worse than that.
[[nodiscard]] bool AddressReuseIsSafe() noexcept;

}  // namespace TAVU::collector
