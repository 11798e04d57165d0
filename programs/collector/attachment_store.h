// Contents that are kept as files of their own instead of in a line.
#pragma once

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <system_error>

#include "lumo/value/value.h"
#include "utc_time.h"

namespace TAVU::collector {

enum class AttachmentForm : std::uint8_t {
  kContent,  // the bytes of a text or a binary
  kEncoded,  // the whole value, encoded as on the wire
};

// A content to keep. `suffix` ends the file's name and must not come from a peer.
struct Attachment {
  const lumo::Value* value;  // not owned
  AttachmentForm form;
  std::string suffix;
};

struct KeptAttachment {
  std::optional<std::string> name;  // of the file in the store; nothing when it is in none
  std::uint64_t size = 0;
  std::string sha256;
  std::string error;  // why it could not be stored; empty when all is well
};

// How far the store may go. Zero: no bound.
struct StoreLimits {
  std::uint64_t most_bytes = 0;  // of all files in the folder
  std::uint64_t most_files = 0;
  std::uint64_t least_free = 0;  // bytes that must stay free on its disk
};

// The folder of --store, or none: then attachments are only measured. The folder is made when it is
// needed, so that one that cannot be used now is found again when it can. Files appear under their
// names when they are complete; one that is given up leaves nothing.
//
// What the folder holds is counted when the collector starts, and again when a bound seems to be
// reached, at most once in a while: somebody may have made room, and other collectors may share it.
//
// Prepare is called first, by one thread; the others but bytes() and files() by one thread at a
// time.
class AttachmentStore {
 public:
  // `folder` in UTF-8; empty for none. With `durable` a file is synced before it gets its name.
  AttachmentStore(const std::string& folder, StoreLimits limits, bool durable);

  // Empty when files can be stored as far as can be seen (or no folder is wanted), else the reason.
  [[nodiscard]] std::string Prepare();

  // The beginning of the file names of one record, the same for all its attachments, so that those
  // of one record stand together. No two records have the same, in this process or another.
  [[nodiscard]] std::string NameRecord(UtcTime time);

  // Measures the attachment, and stores it if there is a folder.
  [[nodiscard]] KeptAttachment Keep(const std::string& record_name, const Attachment& attachment);

  // Makes the names of the files stored so far outlast a power failure. From any thread.
  [[nodiscard]] std::error_code SyncFolder() const;

  [[nodiscard]] bool has_folder() const noexcept { return !folder_.empty(); }
  // In the folder, as far as is known. From any thread.
  [[nodiscard]] std::uint64_t bytes() const noexcept { return bytes_; }
  [[nodiscard]] std::uint64_t files() const noexcept { return files_; }

 private:
  class FileSink;

  void CountFolder();
  [[nodiscard]] std::string FindRoom(std::uint64_t bytes, std::uint64_t files);
  [[nodiscard]] std::string Missing(std::uint64_t bytes, std::uint64_t files) const;

  const std::filesystem::path folder_;
  const StoreLimits limits_;
  const bool durable_;
  std::string process_token_;
  std::uint64_t records_ = 0;
  std::atomic<std::uint64_t> bytes_ = 0;
  std::atomic<std::uint64_t> files_ = 0;
  std::chrono::steady_clock::time_point counted_;
};

}  // namespace TAVU::collector
