// Takes whole requests: decodes them, keeps their attachments, prints their lines.
#pragma once

#include <asio/io_context.hpp>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "attachment_store.h"
#include "byte_chain.h"
#include "line_output.h"

namespace TAVU::collector {

enum class Outcome : std::uint8_t {
  kKept,     // printed, attachments stored
  kNotKept,  // a part of it could not be; explained
  kRefused,  // no call after all; explained
  kEnded,    // not looked at: the collector has all the records that it was asked for
};

// Small requests are done on the spot. Large ones queue up and are done one at a time and piece by
// piece, so that the peers with small ones need not wait for them. Used by the one thread that runs
// the io_context.
class Intake {
 public:
  using Completion = std::function<void(Outcome)>;

  struct Request {
    ByteChain* bytes;  // begins with the request; alive until the completion is called
    std::size_t size;
    std::string_view transport;  // static
    std::string peer;
  };

  // After `count` records `on_enough` is called, once; 0: never.
  Intake(asio::io_context& context, AttachmentStore& store, LineOutput& output, std::uint64_t count,
         std::function<void()> on_enough);
  ~Intake();

  // Drops the request's bytes from the chain. `completion` may be called before this returns.
  void Take(Request request, Completion completion);

 private:
  class Work;

  struct Waiting {
    Request request;
    Completion completion;
    std::unique_ptr<Work> work;  // of the first one in the queue, once begun
  };

  [[nodiscard]] std::unique_ptr<Work> Begin(const Request& request);
  [[nodiscard]] Outcome End(Work& work);
  // Nothing as long as there is more to do.
  [[nodiscard]] std::optional<Outcome> DoPiece(const Request& request, std::unique_ptr<Work>& work);
  void ScheduleLargeRequest();
  void DoLargeRequest();

  asio::io_context& context_;
  AttachmentStore& store_;
  LineOutput& output_;
  std::uint64_t count_;
  std::uint64_t printed_ = 0;
  bool ended_ = false;
  std::function<void()> on_enough_;
  std::deque<Waiting> large_;
};

}  // namespace TAVU::collector
