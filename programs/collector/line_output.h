// The records' lines, on their way out.
//
// Lines are written as soon as the other end takes them; while it does not, they wait, and their
// peers for their replies. In durable mode a thread of its own writes all lines that have gathered
// and syncs them, with the names of their attachments, by one sync, while further ones gather.
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

#include "folder_store.h"
#include "output_file.h"
#include "record_sink.h"

namespace TAVU::collector {

class LineOutput final : public RecordSink {
 public:
  // `path` in UTF-8; empty for standard output. `on_reader_gone` is called when nobody reads the
  // output any more.
  LineOutput(asio::io_context& context, const FolderStore& store, std::string path, bool durable,
             std::function<void()> on_reader_gone);
  ~LineOutput() override;

  [[nodiscard]] std::string Open() override;

  // Kept is what was written whole, and synced if that is wanted.
  void Put(FinishedRecord record, Done done) override;
  void Reopen() override;
  void Stop() override;

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
  const FolderStore& store_;
  const bool durable_;
  const std::function<void()> on_reader_gone_;
  OutputFile file_;
  asio::steady_timer patience_;
  std::deque<Line> waiting_;
  bool waits_for_room_ = false;
  bool committing_ = false;
  bool reopen_ = false;
  bool stopping_ = false;
  bool gave_up_ = false;      // stopped, and nobody reads
  bool inside_line_ = false;  // after a line that broke off
  asio::thread_pool committer_{1};
};

}  // namespace TAVU::collector
