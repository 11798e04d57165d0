// Functions of libraries that are loaded at run time.
#pragma once

#include <windows.h>

namespace TAVU::base {

// The function `name` of `library`; null when the library does not have it, or is null itself
// (which would stand for the program's own file here).
template <typename Function>
[[nodiscard]] Function* FindFunction(HMODULE library, const char* name) noexcept {
  if (library == nullptr) return nullptr;
  return reinterpret_cast<Function*>(reinterpret_cast<void*>(::GetProcAddress(library, name)));
}

}  // namespace TAVU::base
