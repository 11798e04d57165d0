// Takes whole requests: decodes them, keeps their attachments, prints their lines.
#pragma once

#include <asio/io_context.hpp>
#include <asio/thread_pool.hpp>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "attachment_store.h"
#include "byte_chain.h"
#include "metrics.h"
#include "outcome.h"
#include "record_sink.h"

namespace TAVU::collector {

// Small requests are done on the spot. Large ones, and what has attachments, queue up for a thread
// of its own, the keeper, which decodes, measures and stores one after the other, so that the peers
// with small ones need not wait for them. While the output is congested all queue up, undecoded.
//
// Used by the one thread that runs the io_context; destroyed after that has run out of work.
class Intake {
 public:
  using Completion = std::function<void(Outcome)>;

  struct Request {
    ByteChain* bytes;  // begins with the request; alive until the completion is called, and not
                       // touched until then
    std::size_t size;
    std::string_view transport;  // static
    std::string peer;
  };

  // After `count` records `on_enough` is called, once; 0: never.
  Intake(asio::io_context& context, AttachmentStore& store, RecordSink& output, Metrics& metrics,
         std::uint64_t count, std::function<void()> on_enough);
  ~Intake();

  // Drops the request's bytes from the chain. `completion` may be called before this returns.
  void Take(Request request, Completion completion);

  [[nodiscard]] std::size_t queue_length() const noexcept { return queue_.size(); }

 private:
  class Work;

  struct Waiting {
    Request request;
    Completion completion;
    std::unique_ptr<Work> work;  // null until the request is decoded
  };

  void Enqueue(Waiting waiting);
  void KeepNext();
  void Print(Waiting waiting);
  void End(const Completion& completion, Outcome outcome);
  // Whether all the records that were asked for are printed, or about to be.
  [[nodiscard]] bool ended() const noexcept { return count_ != 0 && printing_ >= count_; }

  asio::io_context& context_;
  AttachmentStore& store_;
  RecordSink& output_;
  Metrics& metrics_;
  const std::uint64_t count_;
  std::uint64_t printing_ = 0;  // records printed, or about to be
  std::uint64_t printed_ = 0;
  std::function<void()> on_enough_;
  std::deque<Waiting> queue_;
  std::size_t decoded_in_queue_ = 0;
  bool keeper_busy_ = false;
  asio::thread_pool keeper_{1};
};

}  // namespace TAVU::collector
