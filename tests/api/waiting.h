// Whether a thread waits, and what it costs.
#pragma once

#include <windows.h>

#include <cstdint>

namespace TAVU::test {

inline bool EndsWithin(HANDLE thread, DWORD milliseconds) {
  return ::WaitForSingleObject(thread, milliseconds) == WAIT_OBJECT_0;
}

// Processor time of a thread so far, in units of 100 nanoseconds.
inline std::uint64_t ProcessorTime(HANDLE thread) {
  FILETIME created, ended, kernel, user;
  if (!::GetThreadTimes(thread, &created, &ended, &kernel, &user)) return UINT64_MAX;
  const auto number = [](const FILETIME& time) {
    return (std::uint64_t{time.dwHighDateTime} << 32) + time.dwLowDateTime;
  };
  return number(kernel) + number(user);
}

}  // namespace TAVU::test
