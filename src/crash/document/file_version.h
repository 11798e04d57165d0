// Version numbers of files.
#pragma once

#include <optional>
#include <string>

#include <windows.h>

#include "base/scoped_library.h"

namespace TAVU::crash {

// Version.dll, loaded while a crash document is built.
class VersionLibrary {
 public:
  VersionLibrary() noexcept;

  // Whether the library is there with all three of its functions. Needed by the rest.
  [[nodiscard]] bool IsComplete() const noexcept;

  // The fixed version block of the file `path`; nothing for a file without one. May throw
  // std::bad_alloc.
  [[nodiscard]] std::optional<VS_FIXEDFILEINFO> FixedVersionOf(const wchar_t* path) const;

 private:
  const base::ScopedLibrary library_;
  decltype(&::GetFileVersionInfoSizeW) const get_size_;
  decltype(&::GetFileVersionInfoW) const get_info_;
  decltype(&::VerQueryValueW) const query_value_;
};

// The two words of a version as "1.2.3.4".
[[nodiscard]] std::wstring FileVersionText(DWORD ms, DWORD ls);

}  // namespace TAVU::crash
