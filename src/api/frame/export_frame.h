// The frame in which every export but TAVU_GetLastError and the LuaDump functions runs:
//
//   TAVU_BOOL TAVU_CALL TAVU_SetTimeout(TAVU_HANDLE handle, int32_t milliseconds) {
//     return RunExport([&](const ApiLock::Guard& held) {
//       if (milliseconds <= 0) return Fail(ErrorCode::kInvalidArgument);
//       const PinnedInstance instance(held, HandleOf(handle));
//       if (!instance) return Fail(ErrorCode::kInvalidHandle);
//       instance->timeoutMs = milliseconds;
//       return true;
//     });
//   }
//
// Checks that need no instance come before the handle's, those that need it after. What can fail,
// memory included, is done before anything is changed.
#pragma once

#include <cstdint>
#include <utility>

#include "api/frame/api_lock.h"
#include "api/frame/error_code.h"
#include "api/frame/instance_registry.h"
#include "api/frame/last_error.h"
#include "tavu/tavu.h"

namespace TAVU::api {

// Leaves the code for the calling thread. The result is that of a failed export.
inline bool Fail(ErrorCode code) noexcept {
  SetLastErrorCode(static_cast<std::uint32_t>(code));
  return false;
}

[[nodiscard]] inline Handle HandleOf(TAVU_HANDLE handle) noexcept {
  return reinterpret_cast<Handle>(handle);
}

// For a catch block: leaves `outOfMemory` for exhausted memory, and kInvalidHandle for the one
// other thing that this library throws, the use of a singleton after process exit has destroyed it:
// no instance exists any more then.
void FailWithCaught(ErrorCode outOfMemory) noexcept;

// Runs body(guard) under the ApiLock and gives its result. An exception ends here: the result is
// then the failure value of its type (false, null) and the code is left as FailWithCaught says.
template <typename Body>
auto RunExport(ErrorCode outOfMemory, Body&& body) noexcept {
  const ApiLock::Guard held;
  try {
    return std::forward<Body>(body)(held);
  } catch (...) {
    FailWithCaught(outOfMemory);
    return decltype(std::forward<Body>(body)(held)){};
  }
}

template <typename Body>
auto RunExport(Body&& body) noexcept {
  return RunExport(ErrorCode::kInvalidArgument, std::forward<Body>(body));
}

}  // namespace TAVU::api
