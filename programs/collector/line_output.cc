#include "line_output.h"

#include <asio/executor_work_guard.hpp>
#include <asio/post.hpp>
#include <chrono>
#include <iterator>
#include <utility>

#include "explain.h"

namespace TAVU::collector {
namespace {

using namespace std::chrono_literals;

// For a reader that does not read to think better of it, when the collector is to end.
constexpr auto kStopPatience = 2s;

bool IsReaderGone(const std::error_code& error) {
  return error == std::errc::broken_pipe || error == std::errc::invalid_argument;
}

}  // namespace

LineOutput::LineOutput(asio::io_context& context, const FolderStore& store, std::string path,
                       bool durable, std::function<void()> on_reader_gone)
    : context_(context),
      store_(store),
      durable_(durable),
      on_reader_gone_(std::move(on_reader_gone)),
      file_(context, std::move(path)),
      patience_(context) {}

LineOutput::~LineOutput() {
  committer_.join();
}

std::string LineOutput::Open() {
  const std::error_code error = file_.Open();
  return error ? "--output: " + error.message() : std::string();
}

void LineOutput::Put(FinishedRecord record, Done done) {
  record.line += '\n';
  AddWaiting(record.line.size());
  waiting_.push_back({std::move(record.line), record.has_attachments, std::move(done)});
  if (gave_up_) return GiveUpWaiting(std::make_error_code(std::errc::timed_out));
  if (durable_) {
    CommitWaiting();
  } else if (!waits_for_room_) {
    WriteWaiting();
  }
}

void LineOutput::WriteWaiting() {
  while (!waiting_.empty()) {
    Line& first = waiting_.front();
    if (std::exchange(inside_line_, false)) {
      first.text.insert(0, 1, '\n');
      AddWaiting(1);
    }
    std::size_t written = 0;
    const std::error_code error =
        file_.Write(std::string_view(first.text).substr(first.written), written);
    first.written += written;
    if (!error && first.written < first.text.size()) return WaitForRoom();
    if (error) inside_line_ = first.written > 0 && !file_.TakeBack(first.written);
    const Line line = std::move(first);
    waiting_.pop_front();
    Settle(line, error);
    if (IsReaderGone(error)) return GiveUpWaiting(error);
  }
}

void LineOutput::WaitForRoom() {
  waits_for_room_ = true;
  if (stopping_) LosePatience();
  file_.WaitForRoom([this] {
    waits_for_room_ = false;
    patience_.cancel();
    WriteWaiting();
  });
}

void LineOutput::CommitWaiting() {
  if (committing_ || waiting_.empty()) return;
  committing_ = true;
  const auto batch = std::make_shared<Batch>(std::make_move_iterator(waiting_.begin()),
                                             std::make_move_iterator(waiting_.end()));
  waiting_.clear();
  asio::post(committer_, [this, batch, work = asio::make_work_guard(context_)] {
    const std::error_code error = Commit(*batch);
    asio::post(context_, [this, batch, error] {
      committing_ = false;
      if (reopen_) ReopenNow();
      // Taken out, because the committer may drop its hold of the batch later than we do ours, and
      // those who wait must be let go on this thread.
      for (const Line& line : Batch(std::move(*batch))) Settle(line, error);
      CommitWaiting();
    });
  });
}

// On the committer's thread; nobody else uses the file meanwhile.
std::error_code LineOutput::Commit(const Batch& batch) {
  std::string text;
  bool attachments = false;
  for (const Line& line : batch) {
    text += line.text;
    attachments = attachments || line.has_attachments;
  }
  std::error_code error = attachments ? store_.SyncFolder() : std::error_code();
  if (error) return error;
  std::size_t written = 0;
  error = file_.Write(text, written);
  if (!error && written < text.size()) {
    error = std::make_error_code(std::errc::resource_unavailable_try_again);
  }
  if (!error) error = file_.Sync();
  // Their peers are told that they are not kept, so they go: none of them twice.
  if (error) static_cast<void>(file_.TakeBack(written));
  return error;
}

void LineOutput::Settle(const Line& line, const std::error_code& error) {
  EndWaiting(line.text.size(), [&] {
    if (error) Explain(Topic::kNotKept, "a record is lost: the output: " + error.message());
    line.done(error ? Outcome::kNotKept : Outcome::kKept);
    if (IsReaderGone(error)) on_reader_gone_();
  });
}

void LineOutput::GiveUpWaiting(const std::error_code& error) {
  for (const Line& line : std::exchange(waiting_, {})) Settle(line, error);
}

void LineOutput::Reopen() {
  reopen_ = true;
  if (!committing_) ReopenNow();
}

void LineOutput::ReopenNow() {
  reopen_ = false;
  const std::error_code error = file_.Open();
  if (error) Explain(Topic::kService, "--output cannot be opened anew: " + error.message());
}

void LineOutput::Stop() {
  stopping_ = true;
  if (waits_for_room_) LosePatience();
}

void LineOutput::LosePatience() {
  patience_.expires_after(kStopPatience);
  patience_.async_wait([this](const std::error_code& cancelled) {
    if (cancelled) return;
    gave_up_ = true;
    file_.CancelWait();
    GiveUpWaiting(std::make_error_code(std::errc::timed_out));
  });
}

}  // namespace TAVU::collector
