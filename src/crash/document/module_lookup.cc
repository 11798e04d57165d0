#include "crash/document/module_lookup.h"

#include "crash/document/module_snapshot.h"

namespace TAVU::crash {

bool FindModuleByAddress(std::uint32_t address, std::wstring& name, std::uint32_t& base) {
  name.clear();
  ModuleSnapshot snapshot(0);
  while (const MODULEENTRY32W* const module = snapshot.Next()) {
    const auto module_base =
        static_cast<std::uint32_t>(reinterpret_cast<std::uintptr_t>(module->modBaseAddr));
    if (address - module_base >= module->modBaseSize) continue;
    name = module->szModule;
    base = module_base;
    break;
  }
  return !name.empty();
}

}  // namespace TAVU::crash
