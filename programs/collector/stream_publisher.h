// Publishes messages to streams of NATS JetStream, and tells for each whether its stream has it.
//
// A stream acknowledges a message when a majority of its servers have it. A message that is not
// acknowledged in time, or that nobody takes because the stream is between two leaders, is sent
// again until its time is over: under the same identifier, by which the stream knows it again and
// keeps it once. What the servers answer, good or bad, is final.
//
// One thread of its own sends, so that a server that takes nothing holds up nobody else, and so
// many messages are on their way at once at the most; the others wait their turn.
#pragma once

#include <asio/io_context.hpp>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <deque>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <unordered_map>

#include "nats_handles.h"

namespace TAVU::collector {

struct StreamMessage {
  std::string stream;
  std::string subject;
  std::string data;
  bool replaces_subject = false;  // what the stream has of the subject goes, when this is there
};

// Life: Open, then Publish; destroyed when all messages are done.
class StreamPublisher {
 public:
  // Told on one of the publisher's threads, once for each message, and destroyed there; empty: the
  // stream has it.
  using Done = std::function<void(std::string error)>;

  // `servers`: URLs, with commas between them. A message is tried for `patience`. What happens to
  // the connection is explained on the thread that runs the io_context.
  StreamPublisher(asio::io_context& context, std::string servers,
                  std::chrono::milliseconds patience);
  ~StreamPublisher();
  StreamPublisher(const StreamPublisher&) = delete;
  StreamPublisher& operator=(const StreamPublisher&) = delete;

  // Connects; servers that are not there yet are looked for until they are. Empty, or what is wrong
  // with the settings.
  [[nodiscard]] std::string Open();

  // From any thread.
  void Publish(StreamMessage message, Done done);
  // The same, from any thread that may wait. Returns the error.
  [[nodiscard]] std::string PublishAndWait(StreamMessage message);

  // Asks the servers. Empty when there is such a stream, or what there is to complain of. Waits.
  [[nodiscard]] std::string FindStream(const std::string& name) const;

  // Drops what a stream has of a subject. Waits; what cannot be dropped stays.
  void Purge(const std::string& stream, const std::string& subject) const;

 private:
  using Clock = std::chrono::steady_clock;

  struct Pending {
    NatsMessage message;  // the library's while it is on its way
    std::string id;
    std::string stream;
    Clock::time_point deadline;
    Clock::time_point due;
    std::string error;  // of the latest try
    Done done;
  };

  void SendUntilStopped();
  void Send(Pending pending);
  void SendLater(Pending pending, const std::string& error, Clock::duration pause);
  void WatchConnection();
  void TakeAnswer(natsMsg* message, const jsPubAck* acknowledged, const jsPubAckErr* failed);
  static void OnAnswer(jsCtx* stream, natsMsg* message, jsPubAck* acknowledged, jsPubAckErr* failed,
                       void* publisher);

  asio::io_context& context_;
  const std::string servers_;
  const std::chrono::milliseconds patience_;
  NatsConnection connection_;
  NatsJetStream jet_stream_;
  bool connected_ = false;  // as explained; the sender's

  std::mutex mutex_;  // guards what follows
  std::condition_variable wake_;
  std::deque<Pending> fresh_;
  std::deque<Pending> again_;  // the one that is due first in front
  std::unordered_map<natsMsg*, Pending> on_their_way_;
  bool stopping_ = false;

  std::thread sender_;
};

}  // namespace TAVU::collector
