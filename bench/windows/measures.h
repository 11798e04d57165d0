// What tavu_dll_bench measures; each prints its rows.
#pragma once

#include <tavu/tavu.h>

#include <cstdint>

namespace TAVU::bench {

// Setters, the last error's code, posts to a LuaDump sender.
void MeasureCalls(TAVU_HANDLE instance);
// Log records and uploads to the server on loopback, against bare WinSock. Memory first, because
// the system remembers the peak of the whole process.
void MeasureUploadMemory(TAVU_HANDLE instance, std::uint16_t tcp_port);
void MeasureExchanges(TAVU_HANDLE instance, std::uint16_t tcp_port, std::uint16_t udp_port);
// The processor time of a thread that waits for another one's call to end.
void MeasureWaiting(TAVU_HANDLE instance);

}  // namespace TAVU::bench
