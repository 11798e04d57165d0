// The two files that a crash leaves, by their names.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include <windows.h>

namespace TAVU::crash {

// The names are made when the crash handler is started, while there is memory. A crash, which may
// have none, only writes its time into them.
class CrashFiles {
 public:
  CrashFiles() noexcept = default;  // no names
  // In the folder `tempPath`, after the host executable's base name. May throw std::bad_alloc.
  CrashFiles(std::wstring_view tempPath, std::wstring_view appExeFile);

  // Puts the local time of a crash, to the second, into both names.
  void SetTime(const SYSTEMTIME& localTime) noexcept;

  [[nodiscard]] const std::wstring& dumpPath() const noexcept { return dump_path_; }
  [[nodiscard]] const std::wstring& infoPath() const noexcept { return info_path_; }

 private:
  std::wstring dump_path_;
  std::wstring info_path_;
  std::size_t time_at_ = 0;  // where the digits of the time begin in both
};

}  // namespace TAVU::crash
