// Making a filter the process's top-level exception filter for one instance, and undoing it.
//
//   state      ownerHandle  previousFilter  entry      reached by
//   Idle       0            null            unpatched  process start, uninstalling
//   Installed  handle       not null        patched    installing
//   Orphaned   0            null            patched    installing where no filter was before: the
//                                                      filter is active, and nobody can remove it
#pragma once

#include <windows.h>

#include "api/frame/instance_registry.h"

namespace TAVU::crash {

// Both need the ApiLock. May throw what CrashHandler::Get() throws.

// False with the thread's last error 102 when a filter is installed, by this or another instance;
// false without a code when the process had no filter before (Orphaned).
[[nodiscard]] bool InstallCrashFilter(api::Handle handle, LPTOP_LEVEL_EXCEPTION_FILTER filter);

// False, changing nothing and leaving the last error, unless `handle` owns the installed filter.
[[nodiscard]] bool UninstallCrashFilter(api::Handle handle);

}  // namespace TAVU::crash
