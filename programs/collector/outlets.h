// Where finished records and their attachments go.
//
// outlets_nats.cc, where the build has NATS's client library, or outlets_plain.cc; the build
// chooses one.
#pragma once

#include <asio/io_context.hpp>
#include <functional>
#include <memory>
#include <string_view>

#include "attachment_store.h"
#include "options.h"
#include "record_sink.h"

namespace TAVU::collector {

struct Outlets {
  std::unique_ptr<AttachmentStore> store;
  std::unique_ptr<RecordSink> output;  // may use the store
};

// A file or standard output, and a folder. `on_reader_gone` is called when nobody reads the output
// any more.
[[nodiscard]] Outlets LocalOutlets(asio::io_context& context, const Options& options,
                                   std::function<void()> on_reader_gone);

// Whether this build knows streams.
[[nodiscard]] bool HasStreams() noexcept;

// The stream of the options, and the bucket of its name. Only where HasStreams.
[[nodiscard]] Outlets StreamOutlets(asio::io_context& context, const Options& options);

}  // namespace TAVU::collector
