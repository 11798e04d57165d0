#include "intake.h"

#include <algorithm>
#include <asio/post.hpp>
#include <new>
#include <optional>
#include <utility>
#include <vector>

#include "explain.h"
#include "net/wire/exchange.h"
#include "record_line.h"

namespace TAVU::collector {
namespace {

// Above this many bytes a request waits in the queue of the large ones.
constexpr std::size_t kLargeRequest = AttachmentKeeper::kPiece;

// A call with more is kept without the rest of them, so that no peer fills the store with files of
// a few bytes.
constexpr std::size_t kMostAttachments = 100;

// Notes what has to be kept. The line that it is asked for is thrown away.
class CollectingSink final : public AttachmentSink {
 public:
  [[nodiscard]] Json Take(Attachment attachment) override {
    if (attachments.size() == kMostAttachments) {
      too_many = true;
      return nullptr;
    }
    const auto same = std::count_if(attachments.begin(), attachments.end(),
                                    [&attachment](const Attachment& other) {
                                      return other.suffix.ends_with(attachment.suffix);
                                    });
    if (same > 0) attachment.suffix = std::to_string(same + 1) + '-' + attachment.suffix;
    attachments.push_back(std::move(attachment));
    return nullptr;
  }

  std::vector<Attachment> attachments;
  bool too_many = false;
};

// Tells what has become of them, in the order in which they were noted.
class ReportingSink final : public AttachmentSink {
 public:
  explicit ReportingSink(const std::vector<KeptAttachment>& kept) : kept_(kept) {}

  [[nodiscard]] Json Take(Attachment attachment) override {
    Json json;
    if (next_ == kept_.size()) {
      json["size"] = attachment.bytes.size();
      json["error"] = "too many attachments in one call";
      return json;
    }
    const KeptAttachment& kept = kept_[next_++];
    if (kept.name) json["name"] = *kept.name;
    json["size"] = kept.size;
    json["sha256"] = kept.sha256;
    if (!kept.error.empty()) json["error"] = kept.error;
    return json;
  }

 private:
  const std::vector<KeptAttachment>& kept_;
  std::size_t next_ = 0;
};

}  // namespace

// One decoded call on its way to its line.
class Intake::Work {
 public:
  Work(CallFacts facts, lumo::Value argument, AttachmentStore& store)
      : facts_(std::move(facts)), argument_(std::move(argument)), store_(store) {
    line_ = DescribeCall(facts_, argument_, found_);
    if (!found_.attachments.empty()) name_ = store_.NameRecord(facts_.time);
  }

  // Keeps the next piece of an attachment. True when there is nothing left to keep.
  [[nodiscard]] bool Step() {
    if (!keeper_) {
      if (kept_.size() == found_.attachments.size()) return true;
      keeper_.emplace(store_, name_, found_.attachments[kept_.size()]);
    }
    if (keeper_->Step()) {
      kept_.push_back(keeper_->Finish());
      keeper_.reset();
    }
    return false;
  }

  [[nodiscard]] Json Line() {
    if (found_.attachments.empty()) return std::move(line_);
    ReportingSink report(kept_);
    return DescribeCall(facts_, argument_, report);
  }

  // Why not everything was kept; empty when it was.
  [[nodiscard]] std::string Complaint() const {
    if (found_.too_many) return "attachments not kept: too many in one call";
    for (const KeptAttachment& kept : kept_) {
      if (!kept.error.empty()) return "attachment not stored: " + kept.error;
    }
    return {};
  }

  [[nodiscard]] const CallFacts& facts() const noexcept { return facts_; }

 private:
  CallFacts facts_;
  lumo::Value argument_;
  AttachmentStore& store_;
  CollectingSink found_;
  Json line_;
  std::string name_;
  std::vector<KeptAttachment> kept_;
  std::optional<AttachmentKeeper> keeper_;
};

Intake::Intake(asio::io_context& context, AttachmentStore& store, LineOutput& output,
               std::uint64_t count, std::function<void()> on_enough)
    : context_(context),
      store_(store),
      output_(output),
      count_(count),
      on_enough_(std::move(on_enough)) {}

Intake::~Intake() = default;

void Intake::Take(Request request, Completion completion) {
  if (ended_) return completion(Outcome::kEnded);
  if (request.size > kLargeRequest) {
    large_.push_back({std::move(request), std::move(completion), nullptr});
    if (large_.size() == 1) ScheduleLargeRequest();
    return;
  }
  std::unique_ptr<Work> work;
  std::optional<Outcome> outcome;
  while (!outcome) outcome = DoPiece(request, work);
  completion(*outcome);
}

std::optional<Outcome> Intake::DoPiece(const Request& request, std::unique_ptr<Work>& work) {
  if (ended_) return Outcome::kEnded;
  try {
    if (!work) {
      work = Begin(request);
      return work ? std::nullopt : std::optional(Outcome::kRefused);
    }
    return work->Step() ? std::optional(End(*work)) : std::nullopt;
  } catch (const std::bad_alloc&) {
    ExplainPeer(request.transport, request.peer, "not enough memory for this request");
    return Outcome::kNotKept;
  }
}

std::unique_ptr<Intake::Work> Intake::Begin(const Request& request) {
  CallFacts facts{UtcNow(), request.transport, request.peer, {}};
  QTC::Message message;
  lumo::Value argument;
  ByteChainReader reader(*request.bytes, request.size);
  if (!QTC::ReadRequest(reader, message, argument)) {
    ExplainPeer(request.transport, request.peer, "values that cannot be decoded");
    return nullptr;
  }
  facts.service = std::move(message.method);
  return std::make_unique<Work>(std::move(facts), std::move(argument), store_);
}

Outcome Intake::End(Work& work) {
  const std::string complaint = work.Complaint();
  if (!complaint.empty()) ExplainPeer(work.facts().transport, work.facts().peer, complaint);
  if (!output_.Print(work.Line())) return Outcome::kNotKept;
  if (++printed_ == count_) {
    ended_ = true;
    on_enough_();
  }
  return complaint.empty() ? Outcome::kKept : Outcome::kNotKept;
}

void Intake::ScheduleLargeRequest() {
  asio::post(context_, [this] { DoLargeRequest(); });
}

void Intake::DoLargeRequest() {
  Waiting& first = large_.front();
  const std::optional<Outcome> outcome = DoPiece(first.request, first.work);
  if (!outcome) return ScheduleLargeRequest();
  const Completion completion = std::move(first.completion);
  large_.pop_front();
  if (!large_.empty()) ScheduleLargeRequest();
  completion(*outcome);
}

}  // namespace TAVU::collector
