#include "outlets.h"

#include <utility>

#include "folder_store.h"
#include "line_output.h"

namespace TAVU::collector {

Outlets LocalOutlets(asio::io_context& context, const Options& options,
                     std::function<void()> on_reader_gone) {
  auto store = std::make_unique<FolderStore>(options.store, options.store_limits, options.durable);
  auto output = std::make_unique<LineOutput>(context, *store, options.output, options.durable,
                                             std::move(on_reader_gone));
  return {std::move(store), std::move(output)};
}

}  // namespace TAVU::collector
