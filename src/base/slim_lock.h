// A lock for a few instructions: the system's slim one, with a guard for a scope.
#pragma once

#include <windows.h>

namespace TAVU::base {

// Not re-entrant. Free from the moment the library is loaded: it needs no constructor to run, and
// no destructor.
class SlimLock {
 public:
  class Guard {
   public:
    explicit Guard(SlimLock& lock) noexcept : lock_(lock) {
      ::AcquireSRWLockExclusive(&lock_.lock_);
    }
    Guard(const Guard&) = delete;
    Guard& operator=(const Guard&) = delete;
    ~Guard() { ::ReleaseSRWLockExclusive(&lock_.lock_); }

   private:
    SlimLock& lock_;
  };

 private:
  SRWLOCK lock_ = SRWLOCK_INIT;
};

}  // namespace TAVU::base
