// The one lock of the library. Every export but TAVU_GetLastError and the LuaDump functions holds
// it from its first instruction to its last, the network exchange included, and so does the crash
// filter for its whole sequence.
#pragma once

namespace TAVU::api {

// Process-wide, not re-entrant: a thread that holds it and asks again waits for ever. There is no
// time-out. A waiting thread sleeps in the kernel and costs no processor time. Free from the moment
// the library is loaded.
class ApiLock {
 public:
  // Holds the lock for a scope. A reference to a guard is the proof, in the signatures of this
  // layer, that the lock is held.
  class Guard {
   public:
    Guard() noexcept { Acquire(); }
    Guard(const Guard&) = delete;
    Guard& operator=(const Guard&) = delete;
    ~Guard() { Release(); }
  };

 private:
  static void Acquire() noexcept;
  static void Release() noexcept;
};

}  // namespace TAVU::api
