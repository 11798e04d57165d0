#include <windows.h>
#include <winsock2.h>

#include "measures.h"
#include "pairs.h"
#include "sockets.h"

namespace TAVU::bench {
namespace {

constexpr int kSeconds = 20;  // long enough for the system's clock of processor time, 10 ms

DWORD WINAPI Wait(void* instance) {
  TAVU_SetAutoReport(static_cast<TAVU_HANDLE>(instance), true);
  return 0;
}

DWORD WINAPI Send(void* instance) {
  TAVU_SendLog_TCPA(static_cast<TAVU_HANDLE>(instance), TAVU_LEVEL_INFO, "bench", nullptr, "wait");
  return 0;
}

double ProcessorSeconds(HANDLE thread) {
  ULARGE_INTEGER kernel = {};
  ULARGE_INTEGER user = {};
  FILETIME ignored;
  Require(::GetThreadTimes(thread, &ignored, &ignored, reinterpret_cast<FILETIME*>(&kernel),
                           reinterpret_cast<FILETIME*>(&user)),
          "GetThreadTimes");
  return static_cast<double>(kernel.QuadPart + user.QuadPart) * 1e-7;
}

}  // namespace

void MeasureWaiting(TAVU_HANDLE instance) {
  const BoundSocket silent_server(SOCK_STREAM);
  TAVU_SetReportServerA(instance, "127.0.0.1", silent_server.port());
  TAVU_SetTimeout(instance, kSeconds * 1000);
  const HANDLE sender = ::CreateThread(nullptr, 0, &Send, instance, 0, nullptr);
  ::Sleep(200);  // it holds the lock by now
  const HANDLE waiting = ::CreateThread(nullptr, 0, &Wait, instance, 0, nullptr);
  ::Sleep((kSeconds - 2) * 1000);
  Require(::WaitForSingleObject(waiting, 0) == WAIT_TIMEOUT, "holding the lock for so long");
  PrintRow("waiting", ProcessorSeconds(waiting) / (kSeconds - 2) * 100, "% of a core");
  ::WaitForSingleObject(sender, INFINITE);
  ::WaitForSingleObject(waiting, INFINITE);
  ::CloseHandle(sender);
  ::CloseHandle(waiting);
}

}  // namespace TAVU::bench
