// Contents that are kept by themselves instead of in a line: in a folder (folder_store.h) or in a
// bucket of a stream's servers (object_bucket.h).
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "lumo/value/value.h"
#include "utc_time.h"

namespace TAVU::collector {

enum class AttachmentForm : std::uint8_t {
  kContent,  // the bytes of a text or a binary
  kEncoded,  // the whole value, encoded as on the wire
};

// A content to keep. `suffix` ends its name and must not come from a peer.
struct Attachment {
  const lumo::Value* value;  // not owned
  AttachmentForm form;
  std::string suffix;
};

struct KeptAttachment {
  std::optional<std::string> name;  // in the store; nothing when it is in none
  std::uint64_t size = 0;
  std::string sha256;
  std::string error;  // why it could not be stored; empty when all is well
};

// What is stored appears under its name when it is complete; what is given up leaves no name.
//
// Prepare is called first, by one thread; the others but bytes() and files() by one thread at a
// time.
class AttachmentStore {
 public:
  AttachmentStore();
  AttachmentStore(const AttachmentStore&) = delete;
  AttachmentStore& operator=(const AttachmentStore&) = delete;
  virtual ~AttachmentStore() = default;

  // Empty when attachments can be stored as far as can be seen (or none are wanted), else the
  // reason.
  [[nodiscard]] virtual std::string Prepare() = 0;

  // The beginning of the names of one record's attachments, so that they stand together. No two
  // records have the same, in this process or another.
  [[nodiscard]] std::string NameRecord(UtcTime time);

  // Measures the attachment and stores it. May wait for a disk or a network.
  [[nodiscard]] virtual KeptAttachment Keep(const std::string& record_name,
                                            const Attachment& attachment) = 0;

  // In the store, as far as is known. From any thread.
  [[nodiscard]] virtual std::uint64_t bytes() const noexcept = 0;
  [[nodiscard]] virtual std::uint64_t files() const noexcept = 0;

 private:
  std::string process_token_;
  std::uint64_t records_ = 0;
};

}  // namespace TAVU::collector
