// Many clients of a collector at once: tavu_clients PORT CLIENTS SECONDS. Each sends one log record
// after the other, over a connection each, as the library does. Prints one line: records a second,
// then median, 99th percentile and maximum of the time from connecting to the reply, in
// milliseconds, then the number of records and of failures.
#include <algorithm>
#include <array>
#include <asio/buffer.hpp>
#include <asio/io_context.hpp>
#include <asio/ip/tcp.hpp>
#include <asio/read.hpp>
#include <asio/write.hpp>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <string_view>
#include <vector>

#include "requests.h"

namespace {

using asio::ip::tcp;
using Clock = std::chrono::steady_clock;
using TAVU::bench::Bytes;

constexpr std::string_view kSuccess{"\xCF\x10\x00\x04\x00\x05r\x01\x00Nz\x00\x00", 13};

struct Figures {
  std::vector<double> milliseconds;
  std::uint64_t failures = 0;
};

class Client {
 public:
  Client(asio::io_context& context, const tcp::endpoint& server, const Bytes& request,
         Clock::time_point end, Figures& figures)
      : socket_(context), server_(server), request_(request), end_(end), figures_(figures) {}

  void Call() {
    begun_ = Clock::now();
    if (begun_ >= end_) return;
    socket_.async_connect(server_, [this](const std::error_code& failed) {
      if (failed) return Done(false);
      std::error_code ignored;  // it is a little slower then
      socket_.set_option(tcp::no_delay(true), ignored);
      asio::async_write(socket_, asio::buffer(request_),
                        [this](const std::error_code& error, std::size_t) {
                          if (error) return Done(false);
                          ReadReply();
                        });
    });
  }

 private:
  void ReadReply() {
    asio::async_read(socket_, asio::buffer(reply_),
                     [this](const std::error_code& error, std::size_t size) {
                       Done(!error && std::string_view(reply_.data(), size) == kSuccess);
                     });
  }

  void Done(bool success) {
    const std::chrono::duration<double, std::milli> taken = Clock::now() - begun_;
    if (success) {
      figures_.milliseconds.push_back(taken.count());
    } else {
      ++figures_.failures;
    }
    std::error_code ignored;  // it is gone in any case; with a reset, as the library leaves
    socket_.set_option(asio::socket_base::linger(true, 0), ignored);
    socket_.close(ignored);
    Call();
  }

  tcp::socket socket_;
  const tcp::endpoint server_;
  const Bytes& request_;
  const Clock::time_point end_;
  Figures& figures_;
  Clock::time_point begun_;
  std::array<char, kSuccess.size()> reply_;
};

}  // namespace

int main(int argc, char** argv) {
  if (argc != 4) {
    std::fprintf(stderr, "usage: tavu_clients PORT CLIENTS SECONDS\n");
    return 2;
  }
  const tcp::endpoint server(asio::ip::address_v4::loopback(),
                             static_cast<std::uint16_t>(std::atoi(argv[1])));
  const double seconds = std::atof(argv[3]);
  asio::io_context context(1);
  const Bytes request = TAVU::bench::LogRequest();
  const Clock::time_point begun = Clock::now();
  const auto end = begun + std::chrono::milliseconds(static_cast<std::int64_t>(seconds * 1000));
  Figures figures;
  std::deque<Client> clients;
  for (int i = 0; i < std::atoi(argv[2]); ++i) {
    clients.emplace_back(context, server, request, end, figures).Call();
  }
  context.run();
  const std::chrono::duration<double> taken = Clock::now() - begun;

  std::vector<double>& times = figures.milliseconds;
  std::sort(times.begin(), times.end());
  if (times.empty()) {
    std::fprintf(stderr, "tavu_clients: no record was taken\n");
    return 1;
  }
  std::printf("%.0f %.2f %.2f %.2f %zu %llu\n", static_cast<double>(times.size()) / taken.count(),
              times[times.size() / 2], times[times.size() * 99 / 100], times.back(), times.size(),
              static_cast<unsigned long long>(figures.failures));
}
