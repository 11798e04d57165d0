#include "intake.h"

#include <asio/executor_work_guard.hpp>
#include <asio/post.hpp>
#include <new>
#include <utility>
#include <vector>

#include "explain.h"
#include "net/wire/exchange.h"
#include "record_line.h"

namespace TAVU::collector {
namespace {

// Above this many bytes a request goes to the keeper as it came.
constexpr std::size_t kLargeRequest = std::size_t{16} * 1024;

// Small requests with attachments that may wait for the keeper. Decoded, they take many times the
// bytes that they came in, which nobody has counted.
constexpr std::size_t kMostDecoded = 256;

}  // namespace

// One call on its way to its line.
class Intake::Work {
 public:
  Work(const Request& request, AttachmentStore& store)
      : store_(store), facts_{UtcNow(), request.transport, request.peer, {}} {
    try {
      QTC::Message message;
      ByteChainReader reader(*request.bytes, request.size);
      if (!QTC::ReadRequest(reader, message, argument_)) {
        problem_ = "values that cannot be decoded";
        return;
      }
      facts_.service = std::move(message.method);
      described_ = DescribeCall(facts_, argument_);
      decoded_ = true;
    } catch (const std::bad_alloc&) {
      RunOutOfMemory();
    }
  }

  [[nodiscard]] bool has_attachments() const noexcept { return !described_.slots.empty(); }

  // Keeps the attachments and finishes the line.
  void Keep() {
    if (!decoded_ || !has_attachments()) return;
    try {
      const std::string name = store_.NameRecord(facts_.time);
      std::vector<KeptAttachment> kept;
      for (const AttachmentSlot& slot : described_.slots) {
        kept.push_back(store_.Keep(name, slot.attachment));
        if (!kept.back().error.empty()) problem_ = "attachment not stored: " + kept.back().error;
      }
      described_.line = FinishLine(described_, kept);
    } catch (const std::bad_alloc&) {
      RunOutOfMemory();
    }
  }

  // What there is to tell the operator; empty when all is well.
  [[nodiscard]] const std::string& problem() const noexcept { return problem_; }
  // What became of the request, if its line, when there is one, gets printed.
  [[nodiscard]] Outcome outcome() const noexcept {
    if (out_of_memory_) return Outcome::kNotKept;
    if (!decoded_) return Outcome::kRefused;
    return problem_.empty() ? Outcome::kKept : Outcome::kNotKept;
  }
  [[nodiscard]] bool has_line() const noexcept { return decoded_ && !out_of_memory_; }
  [[nodiscard]] FinishedRecord TakeRecord() noexcept {
    return {std::move(described_.line), described_.kind, std::move(described_.software),
            has_attachments()};
  }

 private:
  void RunOutOfMemory() {
    out_of_memory_ = true;
    problem_ = "not enough memory for this request";
  }

  AttachmentStore& store_;
  CallFacts facts_;
  lumo::Value argument_;
  DescribedCall described_;
  std::string problem_;
  bool decoded_ = false;
  bool out_of_memory_ = false;
};

Intake::Intake(asio::io_context& context, AttachmentStore& store, RecordSink& output,
               Metrics& metrics, std::uint64_t count, std::function<void()> on_enough)
    : context_(context),
      store_(store),
      output_(output),
      metrics_(metrics),
      count_(count),
      on_enough_(std::move(on_enough)) {
  output_.set_on_room([this] { KeepNext(); });
}

Intake::~Intake() {
  keeper_.join();
}

void Intake::Take(Request request, Completion completion) {
  Waiting waiting{std::move(request), std::move(completion), nullptr};
  if (waiting.request.size > kLargeRequest || output_.congested()) {
    return Enqueue(std::move(waiting));
  }
  if (ended()) return End(waiting.completion, Outcome::kEnded);
  waiting.work = std::make_unique<Work>(waiting.request, store_);
  if (!waiting.work->has_attachments()) return Print(std::move(waiting));
  if (decoded_in_queue_ == kMostDecoded) {
    ExplainPeer(Topic::kNotKept, waiting.request.transport, waiting.request.peer,
                "too many attachments wait to be stored");
    return End(waiting.completion, Outcome::kNotKept);
  }
  ++decoded_in_queue_;
  Enqueue(std::move(waiting));
}

void Intake::Enqueue(Waiting waiting) {
  queue_.push_back(std::move(waiting));
  KeepNext();
}

void Intake::KeepNext() {
  if (keeper_busy_ || queue_.empty() || output_.congested()) return;
  keeper_busy_ = true;
  const auto waiting = std::make_shared<Waiting>(std::move(queue_.front()));
  queue_.pop_front();
  if (waiting->work) --decoded_in_queue_;
  asio::post(keeper_, [this, waiting, too_late = ended(), work = asio::make_work_guard(context_)] {
    if (!too_late) {
      if (!waiting->work) waiting->work = std::make_unique<Work>(waiting->request, store_);
      waiting->work->Keep();
    }
    asio::post(context_, [this, waiting] {
      keeper_busy_ = false;
      Print(std::move(*waiting));
      KeepNext();
    });
  });
}

void Intake::Print(Waiting waiting) {
  if (ended()) return End(waiting.completion, Outcome::kEnded);
  const std::unique_ptr<Work> work = std::move(waiting.work);
  if (!work->problem().empty()) {
    const Topic topic = work->outcome() == Outcome::kRefused ? Topic::kBadRequest : Topic::kNotKept;
    ExplainPeer(topic, waiting.request.transport, waiting.request.peer, work->problem());
  }
  const Outcome outcome = work->outcome();
  if (!work->has_line()) return End(waiting.completion, outcome);
  ++printing_;
  output_.Put(work->TakeRecord(),
              [this, outcome, completion = std::move(waiting.completion)](Outcome put) {
                const bool printed = put == Outcome::kKept;
                if (!printed) --printing_;
                End(completion, printed ? outcome : put);
                if (printed && ++printed_ == count_) on_enough_();
              });
}

void Intake::End(const Completion& completion, Outcome outcome) {
  metrics_.Count(outcome);
  completion(outcome);
}

}  // namespace TAVU::collector
