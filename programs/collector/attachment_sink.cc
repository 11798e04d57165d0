#include "attachment_sink.h"

#include <algorithm>

#include "hex_text.h"
#include "lumo/codec/codec.h"

namespace TAVU::collector {

AttachmentSink::AttachmentSink(KeptAttachment& kept) : kept_(kept) {
  window_ = buffer_.data();
  window_end_ = window_ + buffer_.size();
}

void AttachmentSink::Take(const Attachment& attachment) {
  // The sink takes everything, and what came out of the decoder has an encoding.
  if (attachment.form == AttachmentForm::kContent) {
    static_cast<void>(Write(attachment.value->bytes()));
  } else {
    static_cast<void>(lumo::WriteValue(*this, *attachment.value));
  }
  Flush();
  digest_ = sha256_.Finish();
  kept_.sha256 = HexText(digest_);
}

std::ptrdiff_t AttachmentSink::Accept(const std::byte* data, std::size_t size) {
  Flush();
  Measure({data, size});
  return static_cast<std::ptrdiff_t>(size);
}

void AttachmentSink::Flush() {
  Measure({buffer_.data(), window_});
  window_ = buffer_.data();
}

void AttachmentSink::Measure(std::span<const std::byte> bytes) {
  // In pieces, which stay in the processor's cache between the two.
  while (!bytes.empty()) {
    const std::span<const std::byte> piece = bytes.first(std::min(bytes.size(), buffer_.size()));
    bytes = bytes.subspan(piece.size());
    kept_.size += piece.size();
    sha256_.Update(piece);
    Store(piece);
  }
}

}  // namespace TAVU::collector
