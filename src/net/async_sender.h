// A queue of remote calls and the one thread that makes them, in order, each over a connection of
// its own. A call that fails is not repeated.
//
// Life: Create starts the thread; Stop ends it and may take as long as the calls still queued; the
// destructor stops. Threads: Enqueue and Stop from any, the rest belongs to the worker. A host may
// end, or free the library, with senders alive: nothing waits for the worker then, and the code that
// it runs stays loaded until it is done.
#pragma once

#include <cstdint>
#include <memory>

#include "lumo/value.h"
#include "net/call_once.h"

namespace TAVU::QTC {

enum class PendingOnStop { kDeliver, kDiscard };

class AsyncSender {
 public:
  // Null when memory, an event or the thread could not be had, or when the thread did not report
  // itself within 1000 ms. `host` is copied.
  [[nodiscard]] static std::unique_ptr<AsyncSender> Create(const Endpoint& server,
                                                           PendingOnStop pending,
                                                           Protocol protocol) noexcept;
  AsyncSender(const AsyncSender&) = delete;
  AsyncSender& operator=(const AsyncSender&) = delete;
  ~AsyncSender();

  // Queues a call and returns at once. The argument must own all its content (or content that never
  // dies). False, and the argument is dropped, when the sender is stopping or memory is exhausted.
  bool Enqueue(const char* method, lumo::Value argument) noexcept;

  // Ends the worker: with kDiscard the queued calls are dropped, with kDeliver they are made first.
  // Waits for the call in progress in both cases. Repeating it does nothing. Returns true.
  bool Stop() noexcept;

 private:
  class Impl;
  explicit AsyncSender(std::unique_ptr<Impl> impl) noexcept;

  std::unique_ptr<Impl> impl_;
};

}  // namespace TAVU::QTC
