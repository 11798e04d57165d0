#include "api/frame/api_lock.h"

#include <windows.h>

namespace TAVU::api {
namespace {

// A slim lock is what the contract asks for: all zeros is free, it has no owner record, so that a
// holder who asks again waits like everybody else, and the wait is the kernel's.
constinit SRWLOCK lock = SRWLOCK_INIT;

}  // namespace

void ApiLock::Acquire() noexcept {
  ::AcquireSRWLockExclusive(&lock);
}

void ApiLock::Release() noexcept {
  ::ReleaseSRWLockExclusive(&lock);
}

}  // namespace TAVU::api
