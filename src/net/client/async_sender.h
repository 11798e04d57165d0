// A queue of remote calls and the one thread that makes them, in order, each over a connection of
// its own. A call that fails is not repeated.
//
// Life: Create starts the thread; Stop ends it and may take as long as the calls still queued; the
// destructor stops. Threads: Enqueue, Stop and the last results from any, the rest belongs to the
// worker; nobody may use a sender that is being destroyed. Stop and Enqueue may meet: a call that
// was accepted is made, or dropped only because of kDiscard.
//
// The host may go away at any time. It may end with senders alive: the system ends the worker, and
// nothing here waits for it. It may free the library with senders alive, or right after their
// destruction: the worker holds the module that its code lies in until its last instruction.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "lumo/value/value.h"
#include "net/client/call_once.h"
#include "net/wire/protocol.h"

namespace TAVU::QTC {

enum class PendingOnStop { kDeliver, kDiscard };

class AsyncSender {
 public:
  // Null when memory, an event or the thread could not be had, or when the thread did not report
  // itself within 1000 ms. A thread that begins later finds that it is to stop; all that it uses,
  // its events included, stays until it has ended. `host` is copied; null gives null.
  [[nodiscard]] static std::unique_ptr<AsyncSender> Create(const Endpoint& server,
                                                           PendingOnStop pending,
                                                           Protocol protocol) noexcept;
  AsyncSender(const AsyncSender&) = delete;
  AsyncSender& operator=(const AsyncSender&) = delete;
  // Stops. The work and the stopped event are closed as soon as the worker has ended too. The
  // started event and the thread's handle stay open for good, two handles for each sender; a host
  // makes one sender and uses it for as long as it runs.
  ~AsyncSender();

  // Queues a call and returns at once, in amortised constant time. Takes `argument` as it is, so it
  // must own all its content (or borrow from what never dies). False, and the argument is dropped,
  // when the sender is stopping or memory is exhausted.
  bool Enqueue(const char* method, lumo::Value argument) noexcept;

  // Ends the worker: with kDiscard the queued calls are dropped, with kDeliver they are made first.
  // Waits for the call in progress in both cases. Repeating it does nothing. Returns true.
  bool Stop() noexcept;

  // Of the most recent call; kSuccess and empty before any. Throws std::bad_alloc for the text.
  [[nodiscard]] ResultCode LastCode() const noexcept;
  [[nodiscard]] std::string LastErrorText() const;

 private:
  class Context;  // shared with the worker
  struct ContextRelease {
    void operator()(Context* context) const noexcept;
  };
  using ContextPtr = std::unique_ptr<Context, ContextRelease>;

  explicit AsyncSender(ContextPtr context) noexcept;

  ContextPtr context_;
};

}  // namespace TAVU::QTC
