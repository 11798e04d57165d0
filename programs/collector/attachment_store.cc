#include "attachment_store.h"

#include <cstdio>
#include <random>

namespace TAVU::collector {

AttachmentStore::AttachmentStore() {
  // Tells apart what several collectors put into one store.
  char token[16];
  std::snprintf(token, sizeof(token), "%08x", static_cast<unsigned>(std::random_device{}()));
  process_token_ = token;
}

std::string AttachmentStore::NameRecord(UtcTime time) {
  return FormatUtcForFileName(time) + '-' + process_token_ + '-' + std::to_string(++records_);
}

}  // namespace TAVU::collector
