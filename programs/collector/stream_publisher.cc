#include "stream_publisher.h"

#include <algorithm>
#include <asio/post.hpp>
#include <future>
#include <memory>
#include <new>
#include <utility>

#include "explain.h"
#include "identifier.h"
#include "nats_connecting.h"

namespace TAVU::collector {
namespace {

using namespace std::chrono_literals;

constexpr std::size_t kMostOnTheirWay = 4096;

// For an answer, before the message is sent again.
constexpr auto kAnswerTime = 600ms;

// Before trying again what could not be sent, or found no leader of its stream.
constexpr auto kPause = 100ms;

constexpr auto kConnectionCheck = 500ms;
template <typename Duration>
std::int64_t Milliseconds(Duration duration) {
  return std::chrono::duration_cast<std::chrono::milliseconds>(duration).count();
}

NatsMessage MakeMessage(const StreamMessage& message) {
  NatsMessage made;
  natsStatus status = Receive(made, [&](natsMsg** out) {
    return natsMsg_Create(out, message.subject.c_str(), nullptr, message.data.data(),
                          static_cast<int>(message.data.size()));
  });
  if (status == NATS_OK && message.replaces_subject) {
    status = natsMsgHeader_Set(made.get(), "Nats-Rollup", "sub");
  }
  if (status != NATS_OK) throw std::bad_alloc();  // nothing else is wrong with it
  return made;
}

}  // namespace

StreamPublisher::StreamPublisher(asio::io_context& context, std::string servers,
                                 std::chrono::milliseconds patience)
    : context_(context), servers_(std::move(servers)), patience_(patience) {}

StreamPublisher::~StreamPublisher() {
  if (!sender_.joinable()) return;
  {
    const std::scoped_lock lock(mutex_);
    stopping_ = true;
  }
  wake_.notify_one();
  sender_.join();
  jet_stream_.reset();
  natsConnection_Close(connection_.get());
  connection_.reset();
  nats_CloseAndWait(0);  // for the threads that call OnAnswer
}

std::string StreamPublisher::Open() {
  NatsOptions options;
  natsStatus status = Receive(options, natsOptions_Create);
  if (status == NATS_OK) status = SetServers(options.get(), servers_, "tavu_collector");
  if (status == NATS_OK) {
    status = natsOptions_SetRetryOnFailedConnect(options.get(), true, nullptr, nullptr);
  }
  // While there is no connection a message waits here, where its time is watched.
  if (status == NATS_OK) status = natsOptions_SetReconnectBufSize(options.get(), 1);
  if (status == NATS_OK) {
    status = Receive(connection_, [&](natsConnection** out) {
      return natsConnection_Connect(out, options.get());
    });
  }
  if (status == NATS_NOT_YET_CONNECTED) status = NATS_OK;
  if (status != NATS_OK) return "--nats: " + NatsReason(status);
  jsOptions settings;
  jsOptions_Init(&settings);
  settings.PublishAsync.AckHandler = OnAnswer;
  settings.PublishAsync.AckHandlerClosure = this;
  status = Receive(jet_stream_, [&](jsCtx** out) {
    return natsConnection_JetStream(out, connection_.get(), &settings);
  });
  if (status != NATS_OK) return "--nats: " + NatsReason(status);
  sender_ = std::thread([this] { SendUntilStopped(); });
  return {};
}

void StreamPublisher::Publish(StreamMessage message, Done done) {
  const Clock::time_point now = Clock::now();
  Pending pending{
      MakeMessage(message), NewIdentifier(), std::move(message.stream), now + patience_, now, {},
      std::move(done)};
  {
    const std::scoped_lock lock(mutex_);
    fresh_.push_back(std::move(pending));
  }
  wake_.notify_one();
}

std::string StreamPublisher::PublishAndWait(StreamMessage message) {
  const auto result = std::make_shared<std::promise<std::string>>();
  std::future<std::string> error = result->get_future();
  Publish(std::move(message), [result](std::string told) { result->set_value(std::move(told)); });
  return error.get();
}

void StreamPublisher::SendUntilStopped() {
  std::unique_lock lock(mutex_);
  while (!stopping_) {
    const auto is_due = [this] { return !again_.empty() && again_.front().due <= Clock::now(); };
    const auto has_fresh = [this] {
      return !fresh_.empty() && on_their_way_.size() < kMostOnTheirWay;
    };
    if (!is_due() && !has_fresh()) {
      const Clock::time_point check = Clock::now() + kConnectionCheck;
      wake_.wait_until(lock, again_.empty() ? check : std::min(check, again_.front().due));
      lock.unlock();
      WatchConnection();
      lock.lock();
      continue;
    }
    std::deque<Pending>& queue = is_due() ? again_ : fresh_;
    Pending pending = std::move(queue.front());
    queue.pop_front();
    lock.unlock();
    Send(std::move(pending));
    lock.lock();
  }
}

// On the sender's thread.
void StreamPublisher::Send(Pending pending) {
  const Clock::time_point now = Clock::now();
  if (now >= pending.deadline) {
    return pending.done(pending.error.empty() ? "it came to no turn in time" : pending.error);
  }
  const std::string id = pending.id;
  const std::string stream = pending.stream;
  jsPubOptions options;
  jsPubOptions_Init(&options);
  options.MsgId = id.c_str();
  options.ExpectStream = stream.c_str();
  options.MaxWait = Milliseconds(kAnswerTime);

  // Its answer may come before the call returns.
  natsMsg* message = pending.message.release();
  {
    const std::scoped_lock lock(mutex_);
    on_their_way_.emplace(message, std::move(pending));
  }
  natsMsg* rest = message;
  const natsStatus status = js_PublishMsgAsync(jet_stream_.get(), &rest, &options);
  if (status == NATS_OK) return;
  const std::string reason =
      status == NATS_INSUFFICIENT_BUFFER ? "no connection to its servers" : NatsReason(status);
  std::unique_lock lock(mutex_);
  Pending back = std::move(on_their_way_.extract(message).mapped());
  lock.unlock();
  back.message.reset(rest);
  if (status == NATS_MAX_PAYLOAD) {
    return back.done("it is larger than the servers take (their max_payload)");
  }
  SendLater(std::move(back), reason, kPause);
}

void StreamPublisher::SendLater(Pending pending, const std::string& error, Clock::duration pause) {
  pending.error = error;
  pending.due = Clock::now() + pause;
  {
    const std::scoped_lock lock(mutex_);
    const auto later = std::upper_bound(
        again_.begin(), again_.end(), pending.due,
        [](Clock::time_point due, const Pending& other) { return due < other.due; });
    again_.insert(later, std::move(pending));
  }
  wake_.notify_one();
}

// On a thread of the library.
void StreamPublisher::OnAnswer(jsCtx*, natsMsg* message, jsPubAck* acknowledged,
                               jsPubAckErr* failed, void* publisher) {
  static_cast<StreamPublisher*>(publisher)->TakeAnswer(message, acknowledged, failed);
}

void StreamPublisher::TakeAnswer(natsMsg* message, const jsPubAck* acknowledged,
                                 const jsPubAckErr* failed) {
  std::unique_lock lock(mutex_);
  Pending pending = std::move(on_their_way_.extract(message).mapped());
  const bool has_waiting = !fresh_.empty();
  lock.unlock();
  if (has_waiting) wake_.notify_one();
  pending.message.reset(message);
  if (acknowledged != nullptr) return pending.done({});
  if (failed->ErrCode != 0) {
    return pending.done(failed->ErrText != nullptr ? failed->ErrText : "refused");
  }
  if (failed->Err == NATS_NO_RESPONDERS) {
    const std::string error = "nobody answers for the stream " + pending.stream;
    return SendLater(std::move(pending), error, kPause);
  }
  SendLater(std::move(pending), "the stream does not answer", Clock::duration::zero());
}

// On the sender's thread.
void StreamPublisher::WatchConnection() {
  const bool connected = natsConnection_Status(connection_.get()) == NATS_CONN_STATUS_CONNECTED;
  if (connected == std::exchange(connected_, connected)) return;
  std::string news = "nats: no connection";
  if (connected) {
    char url[256] = {};
    natsConnection_GetConnectedUrl(connection_.get(), url, sizeof url);
    news = std::string("nats: connected to ") + url;
  }
  asio::post(context_, [news] { Explain(Topic::kService, news); });
}

std::string StreamPublisher::FindStream(const std::string& name) const {
  NatsStreamInfo info;
  jsErrCode code{};
  const natsStatus status = Receive(info, [&](jsStreamInfo** out) {
    return js_GetStreamInfo(out, jet_stream_.get(), name.c_str(), nullptr, &code);
  });
  if (status == NATS_OK) return {};
  if (code == JSStreamNotFoundErr) return "there is no stream " + name;
  return "the stream " + name + ": " + NatsReason(status);
}

void StreamPublisher::Purge(const std::string& stream, const std::string& subject) const {
  jsOptions options;
  jsOptions_Init(&options);
  options.Stream.Purge.Subject = subject.c_str();
  static_cast<void>(js_PurgeStream(jet_stream_.get(), stream.c_str(), &options, nullptr));
}

}  // namespace TAVU::collector
