// Records as messages of a stream (record_subject.h), a line each.
#pragma once

#include <asio/executor_work_guard.hpp>
#include <asio/io_context.hpp>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <unordered_map>

#include "record_sink.h"
#include "stream_publisher.h"

namespace TAVU::collector {

class StreamOutput final : public RecordSink {
 public:
  StreamOutput(asio::io_context& context, std::shared_ptr<StreamPublisher> publisher,
               std::string stream);

  [[nodiscard]] std::string Open() override;
  // Kept is what the stream has acknowledged.
  void Put(FinishedRecord record, Done done) override;
  void Stop() override {}  // what waits has a time anyway

 private:
  // A record that is being published. Whoever waits for it is let go on the io_context's thread
  // alone, so the publisher knows it by a number.
  struct Waiting {
    std::size_t size;
    Done done;
    asio::executor_work_guard<asio::io_context::executor_type> work;
  };

  void Settle(std::uint64_t number, const std::string& error);

  asio::io_context& context_;
  const std::shared_ptr<StreamPublisher> publisher_;
  const std::string stream_;
  std::unordered_map<std::uint64_t, Waiting> waiting_;
  std::uint64_t numbers_ = 0;
};

}  // namespace TAVU::collector
