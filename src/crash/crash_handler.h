// The one crash handler of the process, which all instances share.
#pragma once

#include <string>

#include "api/frame/api_lock.h"
#include "base/singleton.h"
#include "crash/document/custom_info.h"
#include "crash/files/crash_files.h"
#include "crash/filter/filter_installation.h"

namespace TAVU::crash {

// Made on first use; at process exit only its memory goes: neither the filter nor the guarded entry
// is undone.
struct CrashHandler {
  // The guard is the proof that nobody else reads or writes it, the crash sequence included.
  [[nodiscard]] static CrashHandler& Get(const api::ApiLock::Guard& /*held*/) {
    return base::Singleton<CrashHandler>::Get();
  }

  // What a crash needs to know, set by a successful start and by the host.
  std::wstring appExeFile;    // base name of the host's executable
  std::wstring reporterPath;  // folder of the crash reporter; a start sets it to the host's folder
  CrashFiles files;
  CustomInfo customInfo;

  FilterInstallation installation;
};

}  // namespace TAVU::crash
