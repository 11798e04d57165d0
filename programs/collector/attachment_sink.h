// Takes the bytes of one attachment, measures them, and hands them to whoever stores them.
#pragma once

#include <array>
#include <cstddef>
#include <span>

#include "attachment_store.h"
#include "lumo/codec/byte_stream.h"
#include "sha256.h"

namespace TAVU::collector {

// Attachments are measured even when storing them has failed.
class AttachmentSink : public lumo::ByteSink {
 public:
  explicit AttachmentSink(KeptAttachment& kept);  // not owned

  // Takes the whole attachment. Its size and SHA-256 are known then, to `kept` too.
  void Take(const Attachment& attachment);

 protected:
  // In pieces of the buffer's size at the most, in their order.
  virtual void Store(std::span<const std::byte> piece) = 0;

  [[nodiscard]] const Sha256::Digest& digest() const noexcept { return digest_; }

  KeptAttachment& kept_;

 private:
  [[nodiscard]] std::ptrdiff_t Accept(const std::byte* data, std::size_t size) final;
  void Flush();
  void Measure(std::span<const std::byte> bytes);

  Sha256 sha256_;
  Sha256::Digest digest_ = {};
  std::array<std::byte, 65536> buffer_;
};

}  // namespace TAVU::collector
