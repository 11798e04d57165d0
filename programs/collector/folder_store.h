// Attachments as files in a folder.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <filesystem>
#include <string>
#include <system_error>

#include "attachment_store.h"

namespace TAVU::collector {

// How far the store may go. Zero: no bound.
struct StoreLimits {
  std::uint64_t most_bytes = 0;  // of all files in the folder
  std::uint64_t most_files = 0;
  std::uint64_t least_free = 0;  // bytes that must stay free on its disk
};

// The folder of --store, or none: then attachments are only measured. The folder is made when it is
// needed, so that one that cannot be used now is found again when it can.
//
// What the folder holds is counted when the collector starts, and again when a bound seems to be
// reached, at most once in a while: somebody may have made room, and other collectors may share it.
class FolderStore final : public AttachmentStore {
 public:
  // `folder` in UTF-8; empty for none. With `durable` a file is synced before it gets its name.
  FolderStore(const std::string& folder, StoreLimits limits, bool durable);

  [[nodiscard]] std::string Prepare() override;
  [[nodiscard]] KeptAttachment Keep(const std::string& record_name,
                                    const Attachment& attachment) override;

  // Makes the names of the files stored so far outlast a power failure. From any thread.
  [[nodiscard]] std::error_code SyncFolder() const;

  [[nodiscard]] std::uint64_t bytes() const noexcept override { return bytes_; }
  [[nodiscard]] std::uint64_t files() const noexcept override { return files_; }

 private:
  class FileSink;

  [[nodiscard]] bool has_folder() const noexcept { return !folder_.empty(); }
  void CountFolder();
  [[nodiscard]] std::string FindRoom(std::uint64_t bytes, std::uint64_t files);
  [[nodiscard]] std::string Missing(std::uint64_t bytes, std::uint64_t files) const;

  const std::filesystem::path folder_;
  const StoreLimits limits_;
  const bool durable_;
  std::atomic<std::uint64_t> bytes_ = 0;
  std::atomic<std::uint64_t> files_ = 0;
  std::chrono::steady_clock::time_point counted_;
};

}  // namespace TAVU::collector
