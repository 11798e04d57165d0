// The records' lines, on their way out.
//
// Lines are written as soon as the other end takes them; while it does not, they wait, and their
// peers for their replies. In durable mode a thread of its own writes all lines that have gathered
// and syncs them, with the names of their attachments, by one sync, while further ones gather.
//
// Life: Open, then Print until Stop; destroyed after the io_context has run out of work. Used by
// the one thread that runs the io_context.
#pragma once

#include <asio/io_context.hpp>
#include <asio/steady_timer.hpp>
#include <asio/thread_pool.hpp>
#include <cstddef>
#include <deque>
#include <functional>
#include <memory>
#include <string>
#include <system_error>
#include <vector>

#include "attachment_store.h"
#include "output_file.h"

namespace TAVU::collector {

class LineOutput {
 public:
  using Done = std::function<void(bool printed)>;

  // Above this many bytes in lines that wait the output counts as congested.
  static constexpr std::size_t kCongestion = std::size_t{16} << 20;

  // `path` in UTF-8; empty for standard output. `on_reader_gone` is called when nobody reads the
  // output any more.
  LineOutput(asio::io_context& context, const AttachmentStore& store, std::string path,
             bool durable, std::function<void()> on_reader_gone);
  ~LineOutput();

  [[nodiscard]] std::error_code Open() { return file_.Open(); }

  // Writes one line, without its line feed. `done` is told, perhaps before this returns, whether it
  // was written whole, and synced if that is wanted; if not, that has been explained.
  void Print(std::string line, bool has_attachments, Done done);

  // Goes on with a new file under the same name.
  void Reopen();

  // Gives the lines that wait a moment, and them up then.
  void Stop();

  [[nodiscard]] bool congested() const noexcept { return waiting_bytes_ > kCongestion; }
  [[nodiscard]] std::size_t waiting_bytes() const noexcept { return waiting_bytes_; }
  // `on_room` is called when the output is congested no more.
  void set_on_room(std::function<void()> on_room) { on_room_ = std::move(on_room); }

 private:
  struct Line {
    std::string text;
    bool has_attachments;
    Done done;
    std::size_t written = 0;
  };
  using Batch = std::vector<Line>;

  void WriteWaiting();
  void CommitWaiting();
  [[nodiscard]] std::error_code Commit(const Batch& batch);
  void Settle(const Line& line, const std::error_code& error);
  void GiveUpWaiting(const std::error_code& error);
  void ReopenNow();
  void WaitForRoom();
  void LosePatience();

  asio::io_context& context_;
  const AttachmentStore& store_;
  const bool durable_;
  const std::function<void()> on_reader_gone_;
  std::function<void()> on_room_;
  OutputFile file_;
  asio::steady_timer patience_;
  std::deque<Line> waiting_;
  std::size_t waiting_bytes_ = 0;  // of these and of those being committed
  bool waits_for_room_ = false;
  bool committing_ = false;
  bool reopen_ = false;
  bool stopping_ = false;
  bool gave_up_ = false;      // stopped, and nobody reads
  bool inside_line_ = false;  // after a line that broke off
  asio::thread_pool committer_{1};
};

}  // namespace TAVU::collector
