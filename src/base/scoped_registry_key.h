// A key of the registry, open for a while.
#pragma once

#include <windows.h>

#include "base/scoped.h"

namespace TAVU::base {

struct RegistryKeyTraits {
  using Handle = HKEY;
  static constexpr HKEY kInvalid = nullptr;
  static void Close(HKEY key) noexcept { ::RegCloseKey(key); }
};
using ScopedRegistryKey = Scoped<RegistryKeyTraits>;

}  // namespace TAVU::base
