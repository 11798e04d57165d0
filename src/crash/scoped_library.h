// A library loaded for a while.
#pragma once

#include <windows.h>

#include "net/scoped.h"

namespace TAVU::crash {

struct LibraryTraits {
  using Handle = HMODULE;
  static constexpr HMODULE kInvalid = nullptr;
  static void Close(HMODULE library) noexcept { ::FreeLibrary(library); }
};
using ScopedLibrary = QTC::Scoped<LibraryTraits>;

}  // namespace TAVU::crash
