#include "stream_output.h"

#include <asio/post.hpp>
#include <new>
#include <utility>

#include "explain.h"
#include "record_subject.h"

namespace TAVU::collector {

StreamOutput::StreamOutput(asio::io_context& context, std::shared_ptr<StreamPublisher> publisher,
                           std::string stream)
    : context_(context), publisher_(std::move(publisher)), stream_(std::move(stream)) {}

std::string StreamOutput::Open() {
  std::string error = publisher_->Open();
  if (!error.empty()) return error;
  const std::string complaint = publisher_->FindStream(stream_);
  if (!complaint.empty()) {
    Explain(Topic::kService,
            "--stream: " + complaint + "; records are answered with faults until this is mended");
  }
  return {};
}

void StreamOutput::Put(FinishedRecord record, Done done) {
  const std::uint64_t number = ++numbers_;
  const std::size_t size = record.line.size();
  std::string subject = RecordSubject(stream_, record.kind, record.software);
  waiting_.emplace(number, Waiting{size, std::move(done), asio::make_work_guard(context_)});
  try {
    publisher_->Publish({stream_, std::move(subject), std::move(record.line)},
                        [this, number](const std::string& error) {
                          asio::post(context_, [this, number, error] { Settle(number, error); });
                        });
  } catch (const std::bad_alloc&) {
    waiting_.erase(number);
    throw;
  }
  AddWaiting(size);  // its end comes to this thread, and so later
}

void StreamOutput::Settle(std::uint64_t number, const std::string& error) {
  const Waiting waiting = std::move(waiting_.extract(number).mapped());
  EndWaiting(waiting.size, [&] {
    if (!error.empty()) {
      Explain(Topic::kNotKept, "a record is not acknowledged: the stream: " + error);
    }
    waiting.done(error.empty() ? Outcome::kKept : Outcome::kUnacknowledged);
  });
}

}  // namespace TAVU::collector
