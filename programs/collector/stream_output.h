// Records as messages of a stream: a line is a message of the subject STREAM.KIND.SOFTWARE.
#pragma once

#include <asio/io_context.hpp>
#include <cstddef>
#include <memory>
#include <string>
#include <string_view>

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

  [[nodiscard]] bool congested() const noexcept override { return waiting_bytes_ > kCongestion; }
  [[nodiscard]] std::size_t waiting_bytes() const noexcept override { return waiting_bytes_; }

 private:
  void Settle(std::size_t size, const std::string& error, const Done& done);

  asio::io_context& context_;
  const std::shared_ptr<StreamPublisher> publisher_;
  const std::string stream_;
  std::size_t waiting_bytes_ = 0;
};

// A record's subject. Of the software's identifier, which is a peer's, letters, digits, "-" and "_"
// stand for themselves, everything else is "_", and 64 characters are enough.
[[nodiscard]] std::string RecordSubject(std::string_view stream, std::string_view kind,
                                        std::string_view software);

}  // namespace TAVU::collector
