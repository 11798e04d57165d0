// Prints what a stream has for a durable consumer.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "nats_handles.h"
#include "object_reader.h"
#include "options.h"

namespace TAVU::records {

// The stream is told that a record is printed only when its line has been flushed, and synced where
// the output is a file, and its attachments are in their folder. A reader that is killed before
// that prints the record once more when it runs again.
class StreamReader {
 public:
  // Makes the consumer when it is not there. `jet_stream` is not owned.
  StreamReader(natsConnection* connection, jsCtx* jet_stream, const Options& options);

  // Returns when the stream has nothing more, or never, as the options say. Throws Failure.
  void Run();

  // Whether some attachment could not be had.
  [[nodiscard]] bool incomplete() const noexcept { return incomplete_; }

 private:
  using Batch = std::vector<collector::NatsMessage>;

  [[nodiscard]] Batch FetchBatch();
  [[nodiscard]] bool IsAtEnd();
  void Print(std::string_view line);
  void FetchAttachments(std::string_view line);
  void Acknowledge(const Batch& batch);

  natsConnection* const connection_;
  jsCtx* const jet_stream_;
  const std::string stream_;
  const std::string durable_;
  const bool follow_;
  collector::NatsSubscription subscription_;
  std::optional<ObjectReader> attachments_;
  bool incomplete_ = false;
};

}  // namespace TAVU::records
