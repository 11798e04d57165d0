// Contents that are kept as files of their own instead of in a line.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <optional>
#include <span>
#include <string>

#include "sha256.h"
#include "utc_time.h"

namespace TAVU::collector {

// A content to keep. `bytes` are borrowed. `suffix` ends the file's name and must not come from a
// peer.
struct Attachment {
  std::span<const std::byte> bytes;
  std::string suffix;
};

struct KeptAttachment {
  std::optional<std::string> name;  // of the file in the store; nothing when it is in none
  std::uint64_t size = 0;
  std::string sha256;
  std::string error;  // why it could not be stored; empty when all is well
};

// The folder of --store, or none: then attachments are only measured. The folder is made when it is
// needed, so that one that cannot be used now is found again when it can.
class AttachmentStore {
 public:
  // `folder` in UTF-8; empty for none.
  explicit AttachmentStore(const std::string& folder);

  // Empty when files can be stored as far as can be seen (or no folder is wanted), else the reason.
  [[nodiscard]] std::string Prepare() const;

  // The beginning of the file names of one record, the same for all its attachments, so that those
  // of one record stand together. No two records have the same, in this process or another.
  [[nodiscard]] std::string NameRecord(UtcTime time);

  [[nodiscard]] bool has_folder() const noexcept { return !folder_.empty(); }
  [[nodiscard]] const std::filesystem::path& folder() const noexcept { return folder_; }

 private:
  std::filesystem::path folder_;
  std::string process_token_;
  std::uint64_t records_ = 0;
};

// Measures and stores one attachment piece by piece, so that a large one does not keep everybody
// waiting. The file appears under its name when it is complete; one that is given up leaves
// nothing.
class AttachmentKeeper {
 public:
  static constexpr std::size_t kPiece = 1 << 20;

  AttachmentKeeper(const AttachmentStore& store, const std::string& record_name,
                   const Attachment& attachment);
  AttachmentKeeper(const AttachmentKeeper&) = delete;
  AttachmentKeeper& operator=(const AttachmentKeeper&) = delete;
  ~AttachmentKeeper();

  // Does one piece. True when that was the last.
  [[nodiscard]] bool Step();
  [[nodiscard]] KeptAttachment Finish();  // once, after the last step

 private:
  struct FileClose {
    void operator()(std::FILE* file) const noexcept { std::fclose(file); }
  };

  void Fail(const std::error_code& error);
  void Complete();
  void RemovePartial();

  std::span<const std::byte> rest_;
  Sha256 sha256_;
  KeptAttachment kept_;
  std::filesystem::path path_;
  std::filesystem::path partial_path_;
  std::unique_ptr<std::FILE, FileClose> file_;
  bool partial_exists_ = false;
};

}  // namespace TAVU::collector
