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

#include "lumo/value/map.h"
#include "lumo/value/value.h"
#include "pairs.h"
#include "requests.h"

namespace TAVU::bench {
namespace {

using asio::ip::tcp;
using lumo::Value;

constexpr std::size_t kReplySize = 13;

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
