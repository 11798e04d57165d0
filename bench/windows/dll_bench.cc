// The DLL as a host calls it: tavu_dll_bench TCP_PORT UDP_PORT measures exchanges, the ports being
// those of tavu_bare_server; without them it measures what needs no server, in a process of its
// own, because uploads leave a heap behind that is not a host's.
#include <winsock2.h>

#include <string>

#include "measures.h"
#include "pairs.h"

int main(int argc, char** argv) {
  using namespace TAVU::bench;
  WSADATA data;
  Require(::WSAStartup(MAKEWORD(2, 2), &data) == 0, "WSAStartup");
  const TAVU_HANDLE instance = TAVU_CreateW(L"my-game", L"1.0.3", L"My Game");
  Require(instance != nullptr, "TAVU_CreateW");

  if (argc == 3) {
    const auto tcp_port = static_cast<std::uint16_t>(std::stoul(argv[1]));
    const auto udp_port = static_cast<std::uint16_t>(std::stoul(argv[2]));
    MeasureUploadMemory(instance, tcp_port);
    MeasureExchanges(instance, tcp_port, udp_port);
  } else {
    MeasureCalls(instance);
    MeasureWaiting(instance);
  }

  TAVU_Destroy(instance);
  ::WSACleanup();
}
