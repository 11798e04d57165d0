#include "object_reader.h"

#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <nlohmann/json.hpp>
#include <span>
#include <utility>

#include "failure.h"
#include "hex_text.h"
#include "object_layout.h"
#include "platform.h"
#include "sha256.h"

namespace TAVU::records {
namespace {

using collector::NatsMessage;
using collector::NatsSubscription;
using collector::Receive;

constexpr std::int64_t kChunkTime = 5000;  // milliseconds

// A name that stays in its folder, whoever wrote the record.
bool IsPlainName(const std::string& name) {
  return !name.empty() && name.front() != '.' && name.size() < 200 &&
         name.find_first_of(std::string("/\0", 2)) == std::string::npos;
}

// A file that is there only when it is whole.
class WholeFile {
 public:
  explicit WholeFile(std::filesystem::path path) : path_(std::move(path)), partial_(path_) {
    partial_ += ".part";
    file_.reset(std::fopen(partial_.c_str(), "wb"));
    if (file_ == nullptr) FailBySystem(partial_);
  }
  WholeFile(const WholeFile&) = delete;
  WholeFile& operator=(const WholeFile&) = delete;
  ~WholeFile() {
    if (file_ == nullptr) return;
    std::error_code ignored;  // nothing more can be done about a file that does not go away
    std::filesystem::remove(partial_, ignored);
  }

  void Write(std::span<const std::byte> bytes) {
    if (std::fwrite(bytes.data(), 1, bytes.size(), file_.get()) != bytes.size()) {
      FailBySystem(partial_);
    }
  }

  void Finish() {
    if (std::fflush(file_.get()) != 0 || ::fsync(::fileno(file_.get())) != 0) {
      FailBySystem(partial_);
    }
    std::filesystem::rename(partial_, path_);
    file_.reset();
  }

 private:
  const std::filesystem::path path_;
  std::filesystem::path partial_;
  collector::ScopedFile file_;
};

std::span<const std::byte> BytesOf(const natsMsg* message) {
  return {reinterpret_cast<const std::byte*>(natsMsg_GetData(message)),
          static_cast<std::size_t>(natsMsg_GetDataLength(message))};
}

}  // namespace

ObjectReader::ObjectReader(jsCtx* jet_stream, std::string bucket, std::filesystem::path folder)
    : jet_stream_(jet_stream), bucket_(std::move(bucket)), folder_(std::move(folder)) {
  std::filesystem::create_directories(folder_);
}

std::string ObjectReader::Fetch(const std::string& name, const std::string& sha256) const {
  if (!IsPlainName(name)) return "not a name for a file";
  const std::string stream = collector::BucketStream(bucket_);
  const std::string facts_subject = collector::FactsSubject(bucket_, name);
  NatsMessage described;
  jsErrCode code{};
  const natsStatus status = Receive(described, [&](natsMsg** out) {
    return js_GetLastMsg(out, jet_stream_, stream.c_str(), facts_subject.c_str(), nullptr, &code);
  });
  if (status == NATS_NOT_FOUND || code == JSNoMessageFoundErr) return "not in the bucket";
  Require(status, name);

  const std::span<const std::byte> json = BytesOf(described.get());
  const auto* text = reinterpret_cast<const char*>(json.data());
  const nlohmann::json facts = nlohmann::json::parse(text, text + json.size());
  if (facts.value("deleted", false)) return "deleted from the bucket";
  const std::string chunks_subject =
      collector::ChunkSubject(bucket_, facts.at("nuid").get<std::string>());
  const auto chunks = facts.at("chunks").get<std::uint64_t>();

  NatsSubscription subscription;
  if (chunks > 0) {
    jsSubOptions options;
    jsSubOptions_Init(&options);
    options.Stream = stream.c_str();
    options.Ordered = true;
    Require(Receive(subscription,
                    [&](natsSubscription** out) {
                      return js_SubscribeSync(out, jet_stream_, chunks_subject.c_str(), nullptr,
                                              &options, nullptr);
                    }),
            name);
  }
  WholeFile file(folder_ / name);
  collector::Sha256 measured;
  for (std::uint64_t i = 0; i < chunks; ++i) {
    NatsMessage chunk;
    Require(Receive(chunk,
                    [&](natsMsg** out) {
                      return natsSubscription_NextMsg(out, subscription.get(), kChunkTime);
                    }),
            name);
    measured.Update(BytesOf(chunk.get()));
    file.Write(BytesOf(chunk.get()));
  }
  const collector::Sha256::Digest digest = measured.Finish();
  if (collector::DigestText(digest) != facts.at("digest").get<std::string>() ||
      collector::HexText(digest) != sha256) {
    return "its bytes are not those that were stored";
  }
  file.Finish();
  return {};
}

}  // namespace TAVU::records
