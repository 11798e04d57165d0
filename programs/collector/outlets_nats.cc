#include <memory>
#include <utility>

#include "object_bucket.h"
#include "outlets.h"
#include "stream_output.h"
#include "stream_publisher.h"

namespace TAVU::collector {

bool HasStreams() noexcept {
  return true;
}

Outlets StreamOutlets(asio::io_context& context, const Options& options) {
  auto publisher =
      std::make_shared<StreamPublisher>(context, options.nats_servers, options.nats_patience);
  auto store = std::make_unique<ObjectBucket>(publisher, options.stream);
  auto output = std::make_unique<StreamOutput>(context, publisher, options.stream);
  return {std::move(store), std::move(output)};
}

}  // namespace TAVU::collector
