// Where records go when they are finished: to a file or a pipe (line_output.h), or to a stream
// (stream_output.h).
#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>
#include <utility>

#include "outcome.h"

namespace TAVU::collector {

struct FinishedRecord {
  std::string line;       // without its line feed
  std::string_view kind;  // static
  std::string software;   // as the peer has it
  bool has_attachments;   // stored already
};

// Life: Open, then Put until Stop; destroyed after the io_context has run out of work. Used by the
// one thread that runs the io_context.
class RecordSink {
 public:
  using Done = std::function<void(Outcome)>;

  RecordSink() = default;
  RecordSink(const RecordSink&) = delete;
  RecordSink& operator=(const RecordSink&) = delete;
  virtual ~RecordSink() = default;

  // Empty, or why there is nothing to write to.
  [[nodiscard]] virtual std::string Open() = 0;

  // `done` is told, perhaps before this returns, what became of the record. When it is not kept,
  // that has been explained.
  virtual void Put(FinishedRecord record, Done done) = 0;

  // Goes on with a new file under the same name, where there is one.
  virtual void Reopen() {}

  // Gives the records that wait a moment, and them up then.
  virtual void Stop() = 0;

  // Whether so much waits that nothing should be added for now.
  [[nodiscard]] bool congested() const noexcept { return waiting_bytes_ > kCongestion; }
  [[nodiscard]] std::size_t waiting_bytes() const noexcept { return waiting_bytes_; }
  // `on_room` is called when the sink is congested no more.
  void set_on_room(std::function<void()> on_room) { on_room_ = std::move(on_room); }

 protected:
  void AddWaiting(std::size_t bytes) noexcept { waiting_bytes_ += bytes; }
  // What waited no longer does. `settle` tells those concerned, before it is told of the room.
  template <typename Settle>
  void EndWaiting(std::size_t bytes, Settle settle) {
    const bool was_congested = congested();
    waiting_bytes_ -= bytes;
    settle();
    if (was_congested && !congested() && on_room_) on_room_();
  }

 private:
  // Above this many bytes that wait a sink counts as congested.
  static constexpr std::size_t kCongestion = std::size_t{16} << 20;

  std::size_t waiting_bytes_ = 0;
  std::function<void()> on_room_;
};

}  // namespace TAVU::collector
