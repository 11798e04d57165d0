#include "stream_output.h"

#include <algorithm>
#include <asio/executor_work_guard.hpp>
#include <asio/post.hpp>
#include <utility>

#include "explain.h"

namespace TAVU::collector {
namespace {

constexpr std::size_t kLongestSoftware = 64;

bool StandsForItself(char character) noexcept {
  return (character >= 'a' && character <= 'z') || (character >= 'A' && character <= 'Z') ||
         (character >= '0' && character <= '9') || character == '-' || character == '_';
}

}  // namespace

std::string RecordSubject(std::string_view stream, std::string_view kind,
                          std::string_view software) {
  std::string token(software.substr(0, kLongestSoftware));
  std::replace_if(
      token.begin(), token.end(), [](char character) { return !StandsForItself(character); }, '_');
  if (token.empty()) token = "_";
  std::string subject(stream);
  ((subject += '.') += kind) += '.';
  return subject += token;
}

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
  const std::size_t size = record.line.size();
  waiting_bytes_ += size;
  std::string subject = RecordSubject(stream_, record.kind, record.software);
  publisher_->Publish({stream_, std::move(subject), std::move(record.line)},
                      [this, size, done = std::move(done),
                       work = asio::make_work_guard(context_)](std::string error) {
                        asio::post(context_, [this, size, done, error = std::move(error)] {
                          Settle(size, error, done);
                        });
                      });
}

void StreamOutput::Settle(std::size_t size, const std::string& error, const Done& done) {
  const bool was_congested = congested();
  waiting_bytes_ -= size;
  if (!error.empty()) {
    Explain(Topic::kNotKept, "a record is not acknowledged: the stream: " + error);
  }
  done(error.empty() ? Outcome::kKept : Outcome::kUnacknowledged);
  if (was_congested && !congested() && on_room_) on_room_();
}

}  // namespace TAVU::collector
