#include "attachment_store.h"

#include <algorithm>
#include <random>
#include <system_error>
#include <utility>

#include "platform.h"

namespace TAVU::collector {
namespace {

std::filesystem::path PathFromUtf8(const std::string& text) {
  return std::filesystem::path(std::u8string(text.begin(), text.end()));
}

}  // namespace

AttachmentStore::AttachmentStore(const std::string& folder) : folder_(PathFromUtf8(folder)) {
  // Tells apart the files of several collectors that share a folder.
  char token[16];
  std::snprintf(token, sizeof(token), "%08x", static_cast<unsigned>(std::random_device{}()));
  process_token_ = token;
}

std::string AttachmentStore::Prepare() const {
  if (!has_folder()) return {};
  std::error_code error;
  std::filesystem::create_directories(folder_, error);
  return error ? error.message() : std::string();
}

std::string AttachmentStore::NameRecord(UtcTime time) {
  return FormatUtcForFileName(time) + '-' + process_token_ + '-' + std::to_string(++records_);
}

AttachmentKeeper::AttachmentKeeper(const AttachmentStore& store, const std::string& record_name,
                                   const Attachment& attachment)
    : rest_(attachment.bytes) {
  kept_.size = attachment.bytes.size();
  if (!store.has_folder()) return;
  kept_.name = record_name + '-' + attachment.suffix;
  path_ = store.folder() / PathFromUtf8(*kept_.name);
  partial_path_ = store.folder() / PathFromUtf8(*kept_.name + ".part");
  std::error_code error;
  std::filesystem::create_directories(store.folder(), error);
  if (!error) file_.reset(CreateNewFile(partial_path_, error));
  partial_exists_ = file_ != nullptr;
  if (error) Fail(error);
}

AttachmentKeeper::~AttachmentKeeper() {
  RemovePartial();
}

bool AttachmentKeeper::Step() {
  const std::span<const std::byte> piece = rest_.first(std::min(rest_.size(), kPiece));
  rest_ = rest_.subspan(piece.size());
  sha256_.Update(piece);
  if (file_ && !piece.empty() &&
      std::fwrite(piece.data(), 1, piece.size(), file_.get()) != piece.size()) {
    Fail(LastError());
  }
  if (!rest_.empty()) return false;
  kept_.sha256 = sha256_.FinishHex();
  if (file_) Complete();
  return true;
}

KeptAttachment AttachmentKeeper::Finish() {
  return std::move(kept_);
}

void AttachmentKeeper::Complete() {
  // What was written may only fail now, when the last of it leaves the buffer.
  if (std::fflush(file_.get()) != 0) return Fail(LastError());
  if (std::fclose(file_.release()) != 0) return Fail(LastError());
  std::error_code error;
  std::filesystem::rename(partial_path_, path_, error);
  if (error) return Fail(error);
  partial_exists_ = false;
}

void AttachmentKeeper::Fail(const std::error_code& error) {
  RemovePartial();
  kept_.error = error.message();
  kept_.name.reset();
}

void AttachmentKeeper::RemovePartial() {
  file_.reset();
  if (!std::exchange(partial_exists_, false)) return;
  std::error_code ignored;  // nothing more can be done about a file that does not go away
  std::filesystem::remove(partial_path_, ignored);
}

}  // namespace TAVU::collector
