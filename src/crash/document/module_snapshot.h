// The modules of this process, as the system lists them.
#pragma once

#include <windows.h>

#include <tlhelp32.h>  // needs the other

#include "api/frame/api_lock.h"
#include "base/scoped_handle.h"

namespace TAVU::crash {

// One walk over the list. The entry is static, because it is too large for the stack of a crash, so
// there is one walk at a time, which the lock sees to.
class ModuleSnapshot {
 public:
  // Of the process `processId`; 0 for this one. A snapshot that fails has no modules.
  ModuleSnapshot(const api::ApiLock::Guard& /*held*/, DWORD processId) noexcept
      : snapshot_(::CreateToolhelp32Snapshot(TH32CS_SNAPMODULE, processId)) {}

  // The next module, valid until the next call; null after the last.
  [[nodiscard]] const MODULEENTRY32W* Next() noexcept;

 private:
  static MODULEENTRY32W entry_;

  const base::ScopedFile snapshot_;
  bool started_ = false;
};

}  // namespace TAVU::crash
