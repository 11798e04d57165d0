// Loads the collector and a bare server in turn: tavu_collector_bench COLLECTOR_PORT BARE_PORT.
#include <array>
#include <asio/buffer.hpp>
#include <asio/io_context.hpp>
#include <asio/ip/tcp.hpp>
#include <asio/read.hpp>
#include <asio/write.hpp>
#include <cstddef>
#include <string>
#include <thread>
#include <vector>

#include "lumo/value/map.h"
#include "lumo/value/value.h"
#include "net/wire/exchange.h"
#include "net/wire/transport.h"
#include "pairs.h"

namespace TAVU::bench {
namespace {

using asio::ip::tcp;
using lumo::Value;
using Bytes = std::vector<std::byte>;

constexpr std::size_t kReplySize = 13;

// Keeps what is sent.
class Recorder final : public QTC::Transport {
 public:
  std::ptrdiff_t Send(const std::byte* data, std::size_t size) override {
    bytes.insert(bytes.end(), data, data + size);
    return static_cast<std::ptrdiff_t>(size);
  }
  std::ptrdiff_t Receive(std::byte*, std::size_t) override { return 0; }

  Bytes bytes;
};

Bytes Request(const lumo::Map& record) {
  Recorder recorder;
  const bool written =
      QTC::WriteRequest(recorder, "tavu_server", Value::BorrowMap(record), QTC::Protocol::kTcp);
  Require(written, "writing a request");
  return std::move(recorder.bytes);
}

void AddFields(lumo::Map& record, const char* kind) {
  const std::pair<int, const char*> fields[] = {
      {5, kind},
      {0, "0"},
      {1, "my-game"},
      {2, "1.0.3"},
      {3, "3"},
      {4, "net"},
      {6, "kim%20lee"},
      {7, "10.0.0.9"},
      {8, "connection%20to%20the%20lobby%20was%20lost%20after%2020%20seconds"}};
  for (const auto& [key, text] : fields) record.Insert(Value::Int(key), Value::BorrowString(text));
}

Bytes LogRequest() {
  lumo::Map record;
  AddFields(record, "0");
  return Request(record);
}

Bytes UploadRequest(std::size_t size) {
  const Bytes content(size, std::byte{'x'});
  lumo::Map record;
  AddFields(record, "1");
  record.Insert(Value::Int(101), Value::BorrowString("bench"));
  record.Insert(Value::Int(102), Value::BorrowString("<root></root>"));
  record.Insert(Value::Int(103), Value::BorrowBinary(content));
  return Request(record);
}

class Peer {
 public:
  explicit Peer(const char* port)
      : server_(asio::ip::address_v4::loopback(), static_cast<std::uint16_t>(std::stoul(port))) {}

  // Seconds for `count` requests over a connection each, from two callers at once.
  [[nodiscard]] double Short(const Bytes& request, int count) const {
    const auto call = [&] {
      for (int i = 0; i < count / 2; ++i) {
        asio::io_context context(1);
        tcp::socket socket(context);
        Connect(socket);
        Exchange(socket, request);
        socket.set_option(asio::socket_base::linger(true, 0));
      }
    };
    return SecondsOf([&] {
      std::thread other(call);
      call();
      other.join();
    });
  }

  // Seconds for `count` requests over one connection.
  [[nodiscard]] double Long(const Bytes& request, int count) const {
    asio::io_context context(1);
    tcp::socket socket(context);
    Connect(socket);
    return SecondsOf([&] {
      for (int i = 0; i < count; ++i) Exchange(socket, request);
    });
  }

 private:
  void Connect(tcp::socket& socket) const {
    socket.connect(server_);
    socket.set_option(tcp::no_delay(true));
  }
  static void Exchange(tcp::socket& socket, const Bytes& request) {
    std::array<char, kReplySize> reply;
    asio::write(socket, asio::buffer(request));
    asio::read(socket, asio::buffer(reply));
  }

  tcp::endpoint server_;
};

// Seconds are turned into records or bytes a second by the one who makes the table.
int Main(const char* collector_port, const char* bare_port) {
  const Peer collector(collector_port);
  const Peer bare(bare_port);
  const Bytes log = LogRequest();
  constexpr int kShort = 400;
  ComparePairs(
      "collector/short", 41, 1e6 / kShort, "us a record",
      [&] { return collector.Short(log, kShort); }, [&] { return bare.Short(log, kShort); });
  constexpr int kLong = 1000;
  ComparePairs(
      "collector/records", 41, 1e6 / kLong, "us a record",
      [&] { return collector.Long(log, kLong); }, [&] { return bare.Long(log, kLong); });
  constexpr std::size_t kMebibytes = 64;
  const Bytes upload = UploadRequest(kMebibytes << 20);
  ComparePairs(
      "collector/upload", 11, 1e3, "ms for 64 MiB", [&] { return collector.Long(upload, 1); },
      [&] { return bare.Long(upload, 1); });
  return 0;
}

}  // namespace
}  // namespace TAVU::bench

int main(int argc, char** argv) {
  TAVU::bench::Require(argc == 3, "usage: tavu_collector_bench COLLECTOR_PORT BARE_PORT; it");
  return TAVU::bench::Main(argv[1], argv[2]);
}
