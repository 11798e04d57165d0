#include "folder_store.h"

#include <cstdio>
#include <memory>
#include <span>
#include <utility>

#include "attachment_sink.h"
#include "platform.h"

namespace TAVU::collector {
namespace {

using namespace std::chrono_literals;

constexpr auto kCountPause = 5s;
constexpr std::string_view kPartial = ".part";

std::filesystem::path PathFromUtf8(const std::string& text) {
  return std::filesystem::path(std::u8string(text.begin(), text.end()));
}

}  // namespace

// One attachment on its way into its file.
class FolderStore::FileSink final : public AttachmentSink {
 public:
  FileSink(FolderStore& store, KeptAttachment& kept) : AttachmentSink(kept), store_(store) {}
  ~FileSink() override { RemovePartial(); }

  void Open(const std::string& name) {
    path_ = store_.folder_ / PathFromUtf8(name);
    partial_path_ = path_;
    partial_path_ += kPartial;
    kept_.name = name;
    std::string reason = store_.FindRoom(0, 1);
    std::error_code error;
    if (reason.empty()) {
      std::filesystem::create_directories(store_.folder_, error);
      if (!error) file_ = CreateNewFile(partial_path_, error);
      if (file_ == nullptr) reason = error.message();
    }
    if (!reason.empty()) return Fail(std::move(reason));
    ++store_.files_;
  }

  void Finish() {
    if (file_ == nullptr) return;
    // What was written may only fail now, when the last of it leaves the buffer.
    std::error_code error;
    if (std::fflush(file_.get()) != 0) error = LastError();
    if (!error && store_.durable_) error = SyncFile(file_.get());
    if (std::fclose(file_.release()) != 0 && !error) error = LastError();
    open_ended_ = true;
    if (!error) std::filesystem::rename(partial_path_, path_, error);
    if (error) return Fail(error.message());
    open_ended_ = false;
  }

 private:
  void Store(std::span<const std::byte> piece) override {
    if (file_ == nullptr) return;
    std::string reason = store_.FindRoom(piece.size(), 0);
    if (!reason.empty()) return Fail(std::move(reason));
    store_.bytes_ += piece.size();
    stored_ += piece.size();
    if (std::fwrite(piece.data(), 1, piece.size(), file_.get()) != piece.size()) {
      Fail(LastError().message());
    }
  }

  void Fail(std::string reason) {
    RemovePartial();
    kept_.error = std::move(reason);
    kept_.name.reset();
  }

  void RemovePartial() {
    if (file_ == nullptr && !open_ended_) return;
    file_.reset();
    open_ended_ = false;
    std::error_code ignored;  // nothing more can be done about a file that does not go away
    std::filesystem::remove(partial_path_, ignored);
    store_.bytes_ -= stored_;
    --store_.files_;
  }

  FolderStore& store_;
  std::filesystem::path path_;
  std::filesystem::path partial_path_;
  ScopedFile file_;
  bool open_ended_ = false;  // closed, and not under its name yet
  std::uint64_t stored_ = 0;
};

FolderStore::FolderStore(const std::string& folder, StoreLimits limits, bool durable)
    : folder_(PathFromUtf8(folder)), limits_(limits), durable_(durable) {}

std::string FolderStore::Prepare() {
  if (!has_folder()) return {};
  std::error_code error;
  std::filesystem::create_directories(folder_, error);
  if (error) return "--store: " + error.message();
  CountFolder();
  const std::string missing = Missing(0, 0);
  return missing.empty() ? missing : "--store: " + missing;
}

KeptAttachment FolderStore::Keep(const std::string& record_name, const Attachment& attachment) {
  KeptAttachment kept;
  const auto sink = std::make_unique<FileSink>(*this, kept);
  if (has_folder()) sink->Open(record_name + '-' + attachment.suffix);
  sink->Take(attachment);
  sink->Finish();
  return kept;
}

std::error_code FolderStore::SyncFolder() const {
  return has_folder() ? collector::SyncFolder(folder_) : std::error_code();
}

// Empty when there is room for so much more, else the reason.
std::string FolderStore::FindRoom(std::uint64_t bytes, std::uint64_t files) {
  std::string missing = Missing(bytes, files);
  if (missing.empty() || std::chrono::steady_clock::now() < counted_ + kCountPause) return missing;
  CountFolder();
  return Missing(bytes, files);
}

std::string FolderStore::Missing(std::uint64_t bytes, std::uint64_t files) const {
  const auto exceeds = [](std::uint64_t limit, std::uint64_t used, std::uint64_t more) {
    return limit != 0 && (used > limit || more > limit - used);
  };
  if (exceeds(limits_.most_bytes, bytes_, bytes)) return "the store is full (--max-store)";
  if (exceeds(limits_.most_files, files_, files)) return "the store is full (--max-files)";
  if (limits_.least_free == 0) return {};
  std::error_code error;
  const std::filesystem::space_info space = std::filesystem::space(folder_, error);
  // A disk that does not tell is found full when it is.
  if (error || space.available == static_cast<std::uintmax_t>(-1)) return {};
  const bool room = space.available >= bytes && space.available - bytes >= limits_.least_free;
  return room ? "" : "too little space is left on the store's disk (--min-free)";
}

void FolderStore::CountFolder() {
  counted_ = std::chrono::steady_clock::now();
  std::uint64_t bytes = 0;
  std::uint64_t files = 0;
  std::error_code error;
  std::filesystem::directory_iterator entry(folder_, error);
  while (!error && entry != std::filesystem::directory_iterator()) {
    std::error_code gone;  // by now
    const std::uintmax_t size = entry->file_size(gone);
    if (!gone) {
      bytes += size;
      ++files;
    }
    entry.increment(error);
  }
  bytes_ = bytes;
  files_ = files;
}

}  // namespace TAVU::collector
