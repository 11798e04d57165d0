// A library loaded for a while.
#pragma once

#include <windows.h>

#include "base/scoped.h"

namespace TAVU::base {

struct LibraryTraits {
  using Handle = HMODULE;
  static constexpr HMODULE kInvalid = nullptr;
  static void Close(HMODULE library) noexcept { ::FreeLibrary(library); }
};
using ScopedLibrary = Scoped<LibraryTraits>;

}  // namespace TAVU::base
