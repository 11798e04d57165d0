// Process-wide objects that are made on first use and destroyed at process exit.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdlib>
#include <new>

#include "base/spin_counter_lock.h"

namespace TAVU::base {

// Throws std::logic_error with the one text by which this fault is known in logs:
// "[Corvane::KTL::Singleton] Dead reference detected."
[[noreturn]] void ThrowDeadReference();

// The one T of the process, in static storage: making it needs no memory but what T's own
// constructor asks for. Singleton<T>::Get() makes it on the first call, under a lock, and registers
// its destruction with atexit. A call after that destruction throws std::logic_error; T's
// constructor may throw too, and the next call tries again.
template <typename T>
class Singleton {
 public:
  static T& Get() {
    if (T* instance = instance_.load(std::memory_order_acquire)) return *instance;
    return Create();
  }

 private:
  static T& Create() {
    const SpinCounterLock::Guard guard(creation_lock_);
    if (T* instance = instance_.load(std::memory_order_relaxed)) return *instance;
    if (destroyed_.load(std::memory_order_acquire)) ThrowDeadReference();
    T* instance = new (storage_) T;
    instance_.store(instance, std::memory_order_release);
    static_cast<void>(std::atexit(&Destroy));  // a full table costs the destruction, nothing else
    return *instance;
  }
  static void Destroy() {
    destroyed_.store(true, std::memory_order_release);
    if (T* instance = instance_.exchange(nullptr)) instance->~T();
  }

  alignas(T) static constinit inline std::byte storage_[sizeof(T)] = {};
  static constinit inline SpinCounterLock creation_lock_;
  static constinit inline std::atomic<T*> instance_ = nullptr;
  static constinit inline std::atomic<bool> destroyed_ = false;
};

}  // namespace TAVU::base
