// Servers for tests, in the test's own process: on 127.0.0.1, on a port that the system chose, and
// as ill-behaved as the test asks for.
//
// All of them work from their construction to their destruction, on threads of their own; the test
// calls them from its one thread. Waiting functions wait for what they are asked for and give up
// only after 60 seconds, which no healthy test reaches. WinSock is started by the first object and
// stays started.
#pragma once

#include <winsock2.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

namespace TAVU::test {

using Bytes = std::vector<std::byte>;

Bytes SuccessReply();  // a whole reply with a null result
Bytes FaultReply();    // a whole reply with a fault without entries

// What the server does with a connection: it reads a whole request (not with kAnswerEarly,
// kResetAtOnce and kStopReading), acts, and then reads on until the client ends the connection.
enum class Act {
  kAnswer,           // sends `reply` and keeps the connection open
  kAnswerThenClose,  // sends `reply` and closes its half in an orderly way
  kAnswerByByte,     // sends `reply` byte by byte, each a send (and a segment) of its own
  kAnswerEarly,      // sends `reply` before it reads anything
  kAnswerHalf,       // sends the first half of `reply`, then stays silent
  kSilence,          // sends nothing
  kClose,            // closes its half in an orderly way without an answer
  kReset,            // resets the connection
  kResetAtOnce,      // the same right behind the accepting
  kStopReading,      // reads nothing at all and keeps the connection open, until ResetAll()
};

struct Script {
  Act act = Act::kAnswer;
  Bytes reply = SuccessReply();
};

enum class ConnectionEnd {
  kOpen,      // not ended yet
  kOrderly,   // the client closed in an orderly way
  kReset,     // the client reset it (as a close with bytes of the server unread does)
  kByBoth,    // the server had closed its half, then the client ended it, in whatever way
  kByServer,  // the server reset it
};

struct Connection {
  Bytes received;         // all that the client sent so far
  bool complete = false;  // that holds a whole request: header, packets, end packet
  ConnectionEnd end = ConnectionEnd::kOpen;
};

class ScriptedServer {
 public:
  // Listens from here on. `port` 0: the system chooses; another: the port of a server that is gone.
  explicit ScriptedServer(Script script = {}, std::uint16_t port = 0);
  ~ScriptedServer();  // resets what is open
  ScriptedServer(const ScriptedServer&) = delete;
  ScriptedServer& operator=(const ScriptedServer&) = delete;

  [[nodiscard]] std::uint16_t port() const;

  // For the connections accepted from now on; Next() is for one only, and goes before.
  void SetScript(Script script);
  void Next(Script script);

  // Holds all answers (closes and resets too) back until Release(). Requests are read all the same.
  void Hold();
  void Release();
  // Resets every open connection; their scripts end there. Returns when all have ended.
  void ResetAll();

  // Waits until `count` whole requests have come in all, and gives every one so far, in the order
  // of their completion: fewer than `count` when the patience is over.
  [[nodiscard]] std::vector<Bytes> WaitForRequests(std::size_t count);
  // Waits until `count` connections have been accepted in all; gives how many were.
  [[nodiscard]] std::size_t WaitForConnections(std::size_t count);
  // Waits until connection `index` (from 0, in the order of acceptance) has come and ended.
  [[nodiscard]] Connection WaitForEnd(std::size_t index);
  // The connections so far, as they are now.
  [[nodiscard]] std::vector<Connection> Connections();

 private:
  class Impl;
  std::unique_ptr<Impl> impl_;
};

// Takes datagrams and answers none.
class DatagramServer {
 public:
  DatagramServer();
  ~DatagramServer();
  DatagramServer(const DatagramServer&) = delete;
  DatagramServer& operator=(const DatagramServer&) = delete;

  [[nodiscard]] std::uint16_t port() const;
  // Waits until `count` datagrams have come in all, and gives every one so far.
  [[nodiscard]] std::vector<Bytes> WaitForDatagrams(std::size_t count);

 private:
  class Impl;
  std::unique_ptr<Impl> impl_;
};

// A port that nothing listens on, kept from everybody else: a TCP connect is refused.
class RefusingPort {
 public:
  RefusingPort();
  ~RefusingPort();
  RefusingPort(const RefusingPort&) = delete;
  RefusingPort& operator=(const RefusingPort&) = delete;
  [[nodiscard]] std::uint16_t port() const { return port_; }

 private:
  SOCKET socket_;
  std::uint16_t port_;
};

// A port on which a TCP connect neither succeeds nor fails but hangs: its listener accepts nothing
// and its backlog is full. Works under Wine, where the system drops what comes on top; Windows
// itself refuses it, which Hangs() tells by trying.
class HangingPort {
 public:
  HangingPort();
  ~HangingPort();
  HangingPort(const HangingPort&) = delete;
  HangingPort& operator=(const HangingPort&) = delete;
  [[nodiscard]] std::uint16_t port() const { return port_; }
  [[nodiscard]] bool Hangs() const { return hangs_; }

 private:
  SOCKET listener_;
  std::vector<SOCKET> waiting_;
  std::uint16_t port_;
  bool hangs_ = false;
};

}  // namespace TAVU::test
