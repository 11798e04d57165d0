// The calling thread's system error code (SetLastError/GetLastError on Windows, a thread-local
// variable elsewhere). Not the interface's own codes 101 to 110, which live in LastErrorSlot.
#pragma once

#include <cstdint>

namespace TAVU::base {

inline constexpr std::uint32_t kErrorBrokenPipe = 109;   // a stream took or gave no byte at all
inline constexpr std::uint32_t kErrorWaitTimeout = 258;  // a connect or a receive timed out

void SetThreadError(std::uint32_t code) noexcept;
[[nodiscard]] std::uint32_t GetThreadError() noexcept;

}  // namespace TAVU::base
