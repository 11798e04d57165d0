// Threads and events for tests on Windows, whose C++ library here has none.
#pragma once

#include <windows.h>

#include <process.h>

#include <cstdlib>
#include <memory>
#include <utility>

namespace TAVU::test {

// Manual-reset.
class Event {
 public:
  ~Event() { ::CloseHandle(handle_); }
  void Set() { ::SetEvent(handle_); }
  [[nodiscard]] HANDLE get() const { return handle_; }

 private:
  HANDLE const handle_ = ::CreateEventW(nullptr, TRUE, FALSE, nullptr);
};

// Runs `body` from the construction on; the destructor waits for its end.
class Thread {
 public:
  template <typename Body>
  explicit Thread(Body body) {
    auto* own = new Body(std::move(body));
    const auto entry = [](void* argument) -> unsigned {
      const std::unique_ptr<Body> run(static_cast<Body*>(argument));
      (*run)();
      return 0;
    };
    handle_ = reinterpret_cast<HANDLE>(::_beginthreadex(nullptr, 0, entry, own, 0, nullptr));
    if (handle_ == nullptr) std::abort();
  }
  ~Thread() {
    ::WaitForSingleObject(handle_, INFINITE);
    ::CloseHandle(handle_);
  }
  Thread(const Thread&) = delete;
  Thread& operator=(const Thread&) = delete;
  [[nodiscard]] HANDLE get() const { return handle_; }

 private:
  HANDLE handle_;
};

// What threads share, when it is used inside Do and When only.
class Monitor {
 public:
  template <typename Body>
  decltype(auto) Do(Body body) {
    return When([] { return true; }, body);
  }
  // After a wait until `condition` holds, for a minute at the most.
  template <typename Condition, typename Body>
  decltype(auto) When(Condition condition, Body body) {
    struct Guard {
      explicit Guard(Monitor& owner) : monitor(owner) { ::AcquireSRWLockExclusive(&monitor.lock_); }
      ~Guard() {
        ::ReleaseSRWLockExclusive(&monitor.lock_);
        ::WakeAllConditionVariable(&monitor.changed_);
      }
      Monitor& monitor;
    } const held(*this);
    const ULONGLONG end = ::GetTickCount64() + 60'000;
    for (ULONGLONG now = 0; !condition() && (now = ::GetTickCount64()) < end;) {
      ::SleepConditionVariableSRW(&changed_, &lock_, static_cast<DWORD>(end - now), 0);
    }
    return body();
  }

 private:
  SRWLOCK lock_ = SRWLOCK_INIT;
  CONDITION_VARIABLE changed_ = CONDITION_VARIABLE_INIT;
};

}  // namespace TAVU::test
