#include "object_bucket.h"

#include <algorithm>
#include <span>
#include <utility>

#include "attachment_sink.h"
#include "identifier.h"
#include "object_layout.h"

namespace TAVU::collector {

// One attachment on its way into its object.
class ObjectBucket::ObjectSink final : public AttachmentSink {
 public:
  ObjectSink(StreamPublisher& publisher, const std::string& bucket, KeptAttachment& kept,
             const std::string& name)
      : AttachmentSink(kept), publisher_(publisher), bucket_(bucket) {
    kept_.name = name;
    facts_.name = name;
    facts_.identifier = NewIdentifier();
    chunk_.reserve(kObjectChunk);
  }

  void Finish() {
    if (!chunk_.empty()) PublishChunk();
    if (!kept_.name) return;
    facts_.size = kept_.size;
    facts_.digest = digest();
    std::string error =
        publisher_.PublishAndWait({BucketStream(bucket_), FactsSubject(bucket_, facts_.name),
                                   DescribeObject(bucket_, facts_), true});
    if (!error.empty()) Fail(std::move(error));
  }

 private:
  void Store(std::span<const std::byte> piece) override {
    if (!kept_.name) return;
    const auto* bytes = reinterpret_cast<const char*>(piece.data());
    const std::size_t fits = std::min(piece.size(), kObjectChunk - chunk_.size());
    chunk_.append(bytes, fits);
    if (chunk_.size() < kObjectChunk) return;
    PublishChunk();
    chunk_.append(bytes + fits, piece.size() - fits);
  }

  void PublishChunk() {
    std::string error =
        publisher_.PublishAndWait({BucketStream(bucket_), ChunkSubject(bucket_, facts_.identifier),
                                   std::exchange(chunk_, std::string())});
    if (!error.empty()) return Fail(std::move(error));
    ++facts_.chunks;
  }

  void Fail(std::string error) {
    kept_.name.reset();
    kept_.error = std::move(error);
    publisher_.Purge(BucketStream(bucket_), ChunkSubject(bucket_, facts_.identifier));
  }

  StreamPublisher& publisher_;
  const std::string& bucket_;
  ObjectFacts facts_;
  std::string chunk_;
};

ObjectBucket::ObjectBucket(std::shared_ptr<StreamPublisher> publisher, std::string bucket)
    : publisher_(std::move(publisher)), bucket_(std::move(bucket)) {}

std::string ObjectBucket::Prepare() {
  const std::string complaint = publisher_->FindStream(BucketStream(bucket_));
  return complaint.empty() ? complaint : "--stream: " + complaint;
}

KeptAttachment ObjectBucket::Keep(const std::string& record_name, const Attachment& attachment) {
  KeptAttachment kept;
  ObjectSink sink(*publisher_, bucket_, kept, record_name + '-' + attachment.suffix);
  sink.Take(attachment);
  sink.Finish();
  if (kept.name) {
    bytes_ += kept.size;
    ++files_;
  }
  return kept;
}

}  // namespace TAVU::collector
