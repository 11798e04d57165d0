// A server for tests, in the test's own process: on 127.0.0.1, on a port that the system chose, and
// as ill-behaved as the test asks for. It works from its construction to its destruction, on a
// thread of its own, and keeps nothing after that. The test calls it from its one thread; what
// waits gives up only after a minute, which no healthy test reaches.
#pragma once

#include <winsock2.h>

#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <string_view>
#include <utility>
#include <vector>

#include "support/threads.h"

namespace TAVU::test {

using Bytes = std::vector<std::byte>;

Bytes BytesOfText(std::string_view text);
Bytes SuccessReply();  // a whole reply with a null result
Bytes FaultReply();    // a whole reply with a fault without entries

// What the server does with a connection; after it, it reads on until the client ends. "Sends":
// `reply`.
enum class Act {
  kAnswer,          // reads a whole request, then sends
  kAnswerByByte,    // the same as kAnswer, each byte a send (and a segment) of its own
  kAnswerEarly,     // sends before it reads anything
  kAnswerHalf,      // reads a request and sends the first half of `reply`
  kSilence,         // reads a request
  kClose,           // reads a request and closes its half in an orderly way
  kReset,           // reads a request and resets the connection
  kResetInside,     // reads up to 1,000 bytes and resets the connection
  kLeaveAtOnce,     // closes the connection right after accepting it, with all unread
  kLeaveInside,     // reads up to 1,000 bytes and closes the connection, with the rest unread
  kAnswerAndLeave,  // sends before it reads anything and closes the connection, with all unread
  kAnswerUrgently,  // sends an urgent byte right after accepting, then as kAnswer
  kStopReading,     // reads nothing at all and keeps the connection open, until ResetAll()
};

struct Script {
  Act act = Act::kAnswer;
  Bytes reply = SuccessReply();
};

enum class ConnectionEnd {
  kOpen,     // not ended yet
  kOrderly,  // the client closed in an orderly way
  kReset,    // either reset it, or the client ended it when the server had closed its half
};

struct Connection {
  Bytes received;         // all that the client sent so far
  bool complete = false;  // that holds a whole request: header, packets, end packet
  ConnectionEnd end = ConnectionEnd::kOpen;
};

class ScriptedServer {
 public:
  explicit ScriptedServer(Script script = {});  // listens from here on
  ~ScriptedServer();                            // resets what is open
  ScriptedServer(const ScriptedServer&) = delete;
  ScriptedServer& operator=(const ScriptedServer&) = delete;

  [[nodiscard]] std::uint16_t port() const { return port_; }

  // For the connections accepted from now on; Next() is for one only, and goes before.
  void SetScript(Script script) {
    monitor_.Do([&] { script_ = std::move(script); });
  }
  void Next(Script script) {
    monitor_.Do([&] { next_.push_back(std::move(script)); });
  }
  // Resets every open connection; their scripts end there.
  void ResetAll();

  // Wait until `count` have come in all, and give all that came: fewer when the patience is over.
  // Requests are whole ones, in the order of their completion. Datagrams come to the same port.
  [[nodiscard]] std::vector<Bytes> WaitForRequests(std::size_t count) {
    return WaitFor(count, requests_);
  }
  [[nodiscard]] std::vector<Bytes> WaitForDatagrams(std::size_t count) {
    return WaitFor(count, datagrams_);
  }
  [[nodiscard]] std::size_t WaitForConnections(std::size_t count) {
    return WaitFor(count, connections_).size();
  }
  [[nodiscard]] std::deque<Connection> Connections() { return WaitFor(0, connections_); }
  // Waits until connection `index` (from 0, in the order of acceptance) has come and ended.
  [[nodiscard]] Connection WaitForEnd(std::size_t index) {
    const auto ended = [&] {
      return connections_.size() > index && connections_[index].end != ConnectionEnd::kOpen;
    };
    return monitor_.When(ended, [&] { return ended() ? connections_[index] : Connection{}; });
  }

 private:
  class Impl;

  template <typename Things>
  Things WaitFor(std::size_t count, const Things& things) {
    return monitor_.When([&] { return things.size() >= count; }, [&] { return things; });
  }

  std::uint16_t port_ = 0;
  Monitor monitor_;  // of all that follows but the last
  Script script_;
  std::deque<Script> next_;
  std::deque<Connection> connections_;  // never move
  std::vector<Bytes> requests_;
  std::vector<Bytes> datagrams_;
  std::unique_ptr<Impl> impl_;
};

// A port that nothing listens on, kept from everybody else: a TCP connect is refused.
class RefusingPort {
 public:
  RefusingPort();
  [[nodiscard]] std::uint16_t port() const { return port_; }

 protected:
  std::shared_ptr<void> kept_;
  std::uint16_t port_ = 0;
};

// A port on which a TCP connect neither succeeds nor fails but hangs, because the queue of its
// listener is full. Windows itself refuses such a connect, which Hangs() tells.
class HangingPort : public RefusingPort {
 public:
  HangingPort();
  [[nodiscard]] bool Hangs() const { return hanging_ > 0; }

 private:
  int hanging_ = 0;
};

}  // namespace TAVU::test
