// All that the collector asks of the system it runs on, beyond the standard library and sockets.
// platform_posix.cc and platform_windows.cc; the build chooses one.
#pragma once

#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <memory>
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
// a limit on the size of files; files that are made are for our own user alone.
void PrepareProcess() noexcept;

// Lets the process have as many open connections as it may ask for.
void RaiseConnectionLimit() noexcept;

// The command line's arguments in UTF-8, without the program's name.
[[nodiscard]] std::vector<std::string> ArgumentsInUtf8(int argc, char** argv);

// Writes a line to standard error if that can be done without waiting, as far as the system tells.
// False when it was not written.
bool WriteStandardError(std::string_view line) noexcept;

// Return when file, or folder with the names in it, would outlast a power failure. Windows keeps
// names by itself.
[[nodiscard]] std::error_code SyncFile(std::FILE* file) noexcept;
[[nodiscard]] std::error_code SyncFolder(const std::filesystem::path& folder) noexcept;

// Tells the service manager that started the process, if one did and wants to know: READY=1 and the
// like, as systemd has it.
void NotifyServiceManager(std::string_view state) noexcept;

// How many connections the process may have open.
[[nodiscard]] std::size_t ConnectionLimit() noexcept;

struct FileClose {
  void operator()(std::FILE* file) const noexcept { std::fclose(file); }
};
using ScopedFile = std::unique_ptr<std::FILE, FileClose>;

// Makes the file, which must not exist, and opens it for writing bytes. Null with `error` set.
[[nodiscard]] ScopedFile CreateNewFile(const std::filesystem::path& path, std::error_code& error);

// Whether a listening socket may take over an address of connections that have just ended, and
// nothing worse than that.
[[nodiscard]] bool AddressReuseIsSafe() noexcept;

}  // namespace TAVU::collector
