// Owners of the system's resources: each closes what it holds once, on every path out.
#pragma once

#include <memory>
#include <type_traits>

#include <windows.h>

namespace crash_reporter {

struct HandleCloser {
  using pointer = HANDLE;
  void operator()(HANDLE handle) const noexcept { ::CloseHandle(handle); }
};
using ScopedHandle = std::unique_ptr<void, HandleCloser>;

// CreateFileW names "no handle" otherwise than everybody else.
[[nodiscard]] inline HANDLE ValidOrNull(HANDLE handle) noexcept {
  return handle == INVALID_HANDLE_VALUE ? nullptr : handle;
}

struct GdiDeleter {
  void operator()(HGDIOBJ object) const noexcept { ::DeleteObject(object); }
};
using ScopedFont = std::unique_ptr<std::remove_pointer_t<HFONT>, GdiDeleter>;

}  // namespace crash_reporter
