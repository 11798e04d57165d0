// Attachments as objects in a bucket of a stream's servers (object_layout.h).
//
// The chunks of an object go one after the other, each when the one before it is acknowledged: sent
// again after a failure, it can neither overtake nor double one. What is given up is taken back, as
// far as the servers can be reached; a collector that is killed leaves its chunks, which no name
// leads to.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>

#include "attachment_store.h"
#include "stream_publisher.h"

namespace TAVU::collector {

class ObjectBucket final : public AttachmentStore {
 public:
  ObjectBucket(std::shared_ptr<StreamPublisher> publisher, std::string bucket);

  [[nodiscard]] std::string Prepare() override;
  [[nodiscard]] KeptAttachment Keep(const std::string& record_name,
                                    const Attachment& attachment) override;

  // Stored by this process.
  [[nodiscard]] std::uint64_t bytes() const noexcept override { return bytes_; }
  [[nodiscard]] std::uint64_t files() const noexcept override { return files_; }

 private:
  class ObjectSink;

  const std::shared_ptr<StreamPublisher> publisher_;
  const std::string bucket_;
  std::atomic<std::uint64_t> bytes_ = 0;
  std::atomic<std::uint64_t> files_ = 0;
};

}  // namespace TAVU::collector
