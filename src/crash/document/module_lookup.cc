#include "crash/document/module_lookup.h"

#include "crash/attempt.h"
#include "crash/document/module_snapshot.h"

namespace TAVU::crash {

std::wstring FindModuleByAddress(const api::ApiLock::Guard& held, std::uint32_t address) {
  const MODULEENTRY32W* found = nullptr;
  ModuleSnapshot snapshot(held, 0);
  Attempt([&] {
    while (const MODULEENTRY32W* const module = snapshot.Next()) {
      const auto base =
          static_cast<std::uint32_t>(reinterpret_cast<std::uintptr_t>(module->modBaseAddr));
      if (address - base >= module->modBaseSize) continue;
      found = module;
      return;
    }
  });
  return found != nullptr ? found->szModule : L"";
}

}  // namespace TAVU::crash
