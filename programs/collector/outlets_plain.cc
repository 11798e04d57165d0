#include "outlets.h"

namespace TAVU::collector {

bool HasStreams() noexcept {
  return false;
}

Outlets StreamOutlets(asio::io_context&, const Options&) {
  return {};  // never called: there is no option that asks for it
}

}  // namespace TAVU::collector
