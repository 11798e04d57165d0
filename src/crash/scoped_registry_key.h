// A key of the registry, open for a while.
#pragma once

#include <windows.h>

#include "net/scoped.h"

namespace TAVU::crash {

struct RegistryKeyTraits {
  using Handle = HKEY;
  static constexpr HKEY kInvalid = nullptr;
  static void Close(HKEY key) noexcept { ::RegCloseKey(key); }
};
using ScopedRegistryKey = QTC::Scoped<RegistryKeyTraits>;

}  // namespace TAVU::crash
