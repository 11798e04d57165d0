// The library's entry point. Thread notifications stay enabled: the last error of each thread lives
// on them.
#include <windows.h>

#include "api/frame/last_error.h"

namespace __gnu_cxx {
// Gives back the memory that the C++ library keeps for throwing when there is no other left. Nobody
// else would when the library is unloaded, and a host may load and unload it again and again.
void __freeres();
}  // namespace __gnu_cxx

BOOL WINAPI DllMain(HINSTANCE /*module*/, DWORD reason, LPVOID reserved) {
  using TAVU::api::LastErrorSlot;
  switch (reason) {
    case DLL_PROCESS_ATTACH:
      return LastErrorSlot::AttachProcess();
    case DLL_THREAD_ATTACH:
      LastErrorSlot::AttachThread();
      break;
    case DLL_THREAD_DETACH:
      LastErrorSlot::DetachThread();
      break;
    case DLL_PROCESS_DETACH:
      // When the whole process ends (`reserved` is set), its other threads are gone already and may
      // have left locks held, the heap's included. Nothing is freed then that the system frees
      // anyway.
      if (reserved != nullptr) break;
      LastErrorSlot::DetachProcess();
      __gnu_cxx::__freeres();
      break;
    default:
      break;
  }
  return TRUE;
}
