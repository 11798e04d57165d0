// A thread for tests: the win32 thread model of the C++ library has no std::thread.
#pragma once

#include <windows.h>

#include <cstdint>
#include <functional>
#include <utility>

namespace TAVU::test {

// Runs `body` from its construction on; its destruction waits for the end.
class Thread {
 public:
  explicit Thread(std::function<void()> body)
      : body_(std::move(body)), handle_(::CreateThread(nullptr, 0, &Run, this, 0, nullptr)) {}
  Thread(const Thread&) = delete;
  Thread& operator=(const Thread&) = delete;
  ~Thread() {
    Join();
    ::CloseHandle(handle_);
  }

  void Join() { ::WaitForSingleObject(handle_, INFINITE); }
  [[nodiscard]] bool EndsWithin(DWORD milliseconds) const {
    return ::WaitForSingleObject(handle_, milliseconds) == WAIT_OBJECT_0;
  }
  [[nodiscard]] HANDLE handle() const { return handle_; }

 private:
  static DWORD WINAPI Run(void* self) {
    static_cast<Thread*>(self)->body_();
    return 0;
  }

  std::function<void()> body_;
  HANDLE handle_;
};

// Processor time of a thread so far, in units of 100 nanoseconds.
inline std::uint64_t ProcessorTime(HANDLE thread) {
  FILETIME created, ended, kernel, user;
  if (!::GetThreadTimes(thread, &created, &ended, &kernel, &user)) return UINT64_MAX;
  const auto number = [](const FILETIME& time) {
    return (std::uint64_t{time.dwHighDateTime} << 32) + time.dwLowDateTime;
  };
  return number(kernel) + number(user);
}

// Something that threads wait for; once signalled it stays so.
class Event {
 public:
  Event() : handle_(::CreateEventW(nullptr, TRUE, FALSE, nullptr)) {}
  Event(const Event&) = delete;
  Event& operator=(const Event&) = delete;
  ~Event() { ::CloseHandle(handle_); }

  void Signal() { ::SetEvent(handle_); }
  void Wait() { ::WaitForSingleObject(handle_, INFINITE); }

 private:
  HANDLE handle_;
};

}  // namespace TAVU::test
