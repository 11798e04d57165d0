// Making a filter the process's top-level exception filter for one instance, and undoing it.
//
//   state      owner   earlier filter  entry      reached by
//   Idle       0       null            unpatched  process start, uninstalling
//   Installed  handle  not null        patched    installing
//   Orphaned   0       null            patched    installing where no filter was before: the filter
//                                                 is active, and nobody can remove it
#pragma once

#include <windows.h>

#include "api/frame/api_lock.h"
#include "api/frame/instance_registry.h"
#include "crash/filter/filter_guard.h"

namespace TAVU::crash {

enum class InstallResult {
  kInstalled,
  kOccupied,  // a filter is installed already, by this or another instance; nothing has changed
  kOrphaned,  // the process had no filter before: this one is in place, and no instance owns it
};

class FilterInstallation {
 public:
  [[nodiscard]] InstallResult Install(const api::ApiLock::Guard& held, api::Handle owner,
                                      LPTOP_LEVEL_EXCEPTION_FILTER filter) noexcept;

  // False, changing nothing, unless `owner` has installed the filter.
  [[nodiscard]] bool Uninstall(const api::ApiLock::Guard& held, api::Handle owner) noexcept;

  // The instance that installed the filter; 0 when none owns it.
  [[nodiscard]] api::Handle owner() const noexcept { return owner_; }

 private:
  LPTOP_LEVEL_EXCEPTION_FILTER earlier_ = nullptr;  // to be put back
  api::Handle owner_ = 0;
  FilterGuard guard_;
};

}  // namespace TAVU::crash
