// Handles of the system that close themselves. Two kinds, because failure looks different: most
// functions that make a handle give null, those that open files and snapshots give
// INVALID_HANDLE_VALUE.
#pragma once

#include <windows.h>

#include "base/scoped.h"

namespace TAVU::base {

struct HandleTraits {
  using Handle = HANDLE;
  static constexpr HANDLE kInvalid = nullptr;
  static void Close(HANDLE handle) noexcept { ::CloseHandle(handle); }
};
using ScopedHandle = Scoped<HandleTraits>;

struct FileTraits {
  using Handle = HANDLE;
  static inline const HANDLE kInvalid = INVALID_HANDLE_VALUE;
  static void Close(HANDLE file) noexcept { ::CloseHandle(file); }
};
using ScopedFile = Scoped<FileTraits>;

}  // namespace TAVU::base
