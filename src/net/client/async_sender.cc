#include "net/client/async_sender.h"

#include <process.h>
#include <windows.h>

#include <atomic>
#include <utility>

#include "base/ring_buffer.h"
#include "base/scoped_handle.h"
#include "base/slim_lock.h"
#include "lumo/text/basic_string.h"

namespace TAVU::QTC {

namespace {

constexpr DWORD kStartTimeoutMs = 1000;

enum class Reset { kAutomatic, kManual };

base::ScopedHandle NewEvent(Reset reset) noexcept {
  return base::ScopedHandle(::CreateEventW(nullptr, reset == Reset::kManual, FALSE, nullptr));
}

}  // namespace

// What the sender and its worker share. Whichever of the two lets go last frees it, the events
// included: a worker whose start took too long may begin after its sender is gone, and would
// otherwise wait on handles that belong to somebody else by then.
class AsyncSender::Context {
 public:
  Context(const Endpoint& server, PendingOnStop pending, Protocol protocol)
      : host_(server.host),
        port_(server.port),
        timeout_ms_(server.timeout_ms),
        pending_(pending),
        protocol_(protocol) {}
  Context(const Context&) = delete;
  Context& operator=(const Context&) = delete;

  // Starts the worker and waits for its report. False: there is none, or it has not come in time.
  [[nodiscard]] bool Start() noexcept;
  [[nodiscard]] bool Enqueue(const char* method, lumo::Value argument);
  void Stop() noexcept;
  void Release() noexcept;

  [[nodiscard]] ResultCode LastCode() noexcept;
  [[nodiscard]] std::string LastErrorText();

 private:
  enum class State { kRunning, kStopRequested, kStopped };
  enum class Step { kCalled, kIdle, kStopped };
  struct PendingCall {
    std::string method;
    lumo::Value argument;
  };

  ~Context() {
    // These two stay open: each sender leaves two handles behind, as a host that counts its handles
    // can see.
    static_cast<void>(started_event_.Release());
    static_cast<void>(thread_.Release());
  }

  static unsigned __stdcall ThreadMain(void* context) noexcept;
  void Work() noexcept;
  Step CallNext() noexcept;

  const std::string host_;
  const std::uint16_t port_;
  const std::uint32_t timeout_ms_;
  const PendingOnStop pending_;
  const Protocol protocol_;

  std::atomic<int> owners_ = 1;  // the sender, and the worker while there is one
  HMODULE module_ = nullptr;     // of the worker's code; the worker gives it back
  base::ScopedHandle thread_;
  base::ScopedHandle work_event_ = NewEvent(Reset::kAutomatic);
  base::ScopedHandle started_event_ = NewEvent(Reset::kManual);
  base::ScopedHandle stopped_event_ = NewEvent(Reset::kManual);

  base::SlimLock lock_;  // of all that follows
  State state_ = State::kRunning;
  bool started_ = false;
  bool idle_ = false;  // the worker has seen an empty queue, and nobody has woken it since
  base::RingBuffer<PendingCall> calls_;
  ResultCode last_code_ = ResultCode::kSuccess;
  lumo::BasicString<char> last_error_text_;
};

// --- The sender's side ---------------------------------------------------------------------------

bool AsyncSender::Context::Start() noexcept {
  if (!work_event_ || !started_event_ || !stopped_event_) return false;
  if (!::GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS,
                            reinterpret_cast<const wchar_t*>(&ThreadMain), &module_)) {
    return false;
  }
  owners_.fetch_add(1, std::memory_order_relaxed);
  thread_ = base::ScopedHandle(
      reinterpret_cast<HANDLE>(::_beginthreadex(nullptr, 0, &ThreadMain, this, 0, nullptr)));
  if (!thread_) {
    ::FreeLibrary(module_);
    owners_.fetch_sub(1, std::memory_order_relaxed);
    return false;
  }
  ::WaitForSingleObject(started_event_.get(), kStartTimeoutMs);
  const base::SlimLock::Guard held(lock_);
  return started_;
}

bool AsyncSender::Context::Enqueue(const char* method, lumo::Value argument) {
  PendingCall call = {method == nullptr ? "" : method, std::move(argument)};
  const base::SlimLock::Guard held(lock_);
  // That the worker has started need not be asked: Create gives out no other sender.
  if (state_ != State::kRunning) return false;
  calls_.MakeRoom();
  calls_.Push(std::move(call));
  // A system call, spared while the worker is busy: it looks at the queue before it waits. Inside
  // the lock, because a thread that was suspended between the two would leave this call, and all
  // that others queue after it, to a worker that sleeps.
  if (std::exchange(idle_, false)) ::SetEvent(work_event_.get());
  return true;
}

void AsyncSender::Context::Stop() noexcept {
  base::RingBuffer<PendingCall> dropped;  // freed after the lock
  bool started = false;
  {
    const base::SlimLock::Guard held(lock_);
    if (pending_ == PendingOnStop::kDiscard) dropped = std::move(calls_);
    if (state_ == State::kRunning) state_ = State::kStopRequested;
    started = started_;
    ::SetEvent(work_event_.get());
  }
  if (!started) return;  // a worker that begins from here on finds that it is to stop
  // The thread is waited for as well: at the end of the process the system has ended it already,
  // and it will not report any more.
  const HANDLE either[] = {stopped_event_.get(), thread_.get()};
  ::WaitForMultipleObjects(2, either, FALSE, INFINITE);
}

void AsyncSender::Context::Release() noexcept {
  if (owners_.fetch_sub(1, std::memory_order_acq_rel) == 1) delete this;
}

ResultCode AsyncSender::Context::LastCode() noexcept {
  const base::SlimLock::Guard held(lock_);
  return last_code_;
}

std::string AsyncSender::Context::LastErrorText() {
  const base::SlimLock::Guard held(lock_);
  return std::string(last_error_text_.view());
}

// --- The worker's side ---------------------------------------------------------------------------

unsigned __stdcall AsyncSender::Context::ThreadMain(void* context) noexcept {
  auto* own = static_cast<Context*>(context);
  const HMODULE module = own->module_;
  own->Work();
  own->Release();
  // The library may have been freed by everybody else: there is no code to return to after this.
  ::FreeLibraryAndExitThread(module, 0);  // cppcheck-suppress missingReturn
}

void AsyncSender::Context::Work() noexcept {
  {
    const base::SlimLock::Guard held(lock_);
    started_ = true;
    idle_ = true;
  }
  ::SetEvent(started_event_.get());
  for (;;) {
    ::WaitForSingleObject(work_event_.get(), INFINITE);
    Step step = Step::kCalled;
    while (step == Step::kCalled) step = CallNext();
    if (step == Step::kStopped) break;
  }
  ::SetEvent(stopped_event_.get());
}

AsyncSender::Context::Step AsyncSender::Context::CallNext() noexcept {
  PendingCall call;
  {
    const base::SlimLock::Guard held(lock_);
    if (calls_.empty()) {
      // In one go with the look at the queue, so that nothing can be queued in between and be lost.
      if (state_ == State::kRunning) {
        idle_ = true;
        return Step::kIdle;
      }
      state_ = State::kStopped;
      return Step::kStopped;
    }
    call = calls_.Pop();
  }
  lumo::BasicString<char> error_text;
  ResultCode code = ResultCode::kSuccess;
  const Endpoint server = {host_.c_str(), port_, timeout_ms_};
  CallOnce(server, protocol_, call.method.c_str(), call.argument, error_text, code);
  const base::SlimLock::Guard held(lock_);
  last_code_ = code;
  last_error_text_ = std::move(error_text);
  return Step::kCalled;
}

// --- AsyncSender ---------------------------------------------------------------------------------

void AsyncSender::ContextRelease::operator()(Context* context) const noexcept {
  context->Release();
}

AsyncSender::AsyncSender(ContextPtr context) noexcept : context_(std::move(context)) {}

std::unique_ptr<AsyncSender> AsyncSender::Create(const Endpoint& server, PendingOnStop pending,
                                                 Protocol protocol) noexcept {
  if (server.host == nullptr) return nullptr;
  try {
    ContextPtr context(new Context(server, pending, protocol));
    std::unique_ptr<AsyncSender> sender(new AsyncSender(std::move(context)));
    if (!sender->context_->Start()) return nullptr;
    return sender;
  } catch (...) {
    return nullptr;  // memory is exhausted
  }
}

AsyncSender::~AsyncSender() {
  context_->Stop();
}

bool AsyncSender::Enqueue(const char* method, lumo::Value argument) noexcept {
  try {
    return context_->Enqueue(method, std::move(argument));
  } catch (...) {
    return false;  // memory is exhausted
  }
}

bool AsyncSender::Stop() noexcept {
  context_->Stop();
  return true;
}

ResultCode AsyncSender::LastCode() const noexcept {
  return context_->LastCode();
}

std::string AsyncSender::LastErrorText() const {
  return context_->LastErrorText();
}

}  // namespace TAVU::QTC
