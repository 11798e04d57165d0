// The least that can stand at the far end: reads over TCP whatever comes and answers success when a
// request is complete, which it tells by the three bytes that end each one. It looks at nothing
// else, so its callers see to it that no piece of a request ends like that. Datagrams are thrown
// away.
#include <array>
#include <asio/buffer.hpp>
#include <asio/io_context.hpp>
#include <asio/ip/tcp.hpp>
#include <asio/ip/udp.hpp>
#include <asio/write.hpp>
#include <cstdio>
#include <cstring>
#include <memory>
#include <utility>
#include <vector>

namespace {

using asio::ip::tcp;
using asio::ip::udp;

constexpr std::array<unsigned char, 3> kEnd = {'z', 0, 0};
constexpr std::array<unsigned char, 11> kSuccess = {0xCF, 0x10, 0, 4, 0, 5, 'r', 1, 0, 'N', 'z'};
constexpr std::array<unsigned char, 2> kEndPacket = {0, 0};

class Session : public std::enable_shared_from_this<Session> {
 public:
  explicit Session(tcp::socket socket) : socket_(std::move(socket)), buffer_(64 * 1024) {}

  void Read() {
    socket_.async_read_some(
        asio::buffer(buffer_),
        [self = shared_from_this()](const std::error_code& error, std::size_t count) {
          if (error) return;
          self->Look(count);
        });
  }

 private:
  void Look(std::size_t count) {
    // The last bytes seen, whatever the cuts between reads.
    for (std::size_t i = count - std::min(count, last_.size()); i < count; ++i) {
      last_ = {last_[1], last_[2], buffer_[i]};
    }
    if (last_ != kEnd) return Read();
    last_ = {};
    asio::async_write(socket_, std::array{asio::buffer(kSuccess), asio::buffer(kEndPacket)},
                      [self = shared_from_this()](const std::error_code& error, std::size_t) {
                        if (!error) self->Read();
                      });
  }

  tcp::socket socket_;
  std::vector<unsigned char> buffer_;
  std::array<unsigned char, 3> last_ = {};
};

void Accept(tcp::acceptor& acceptor) {
  acceptor.async_accept([&acceptor](const std::error_code& error, tcp::socket socket) {
    if (!error) std::make_shared<Session>(std::move(socket))->Read();
    Accept(acceptor);
  });
}

void Drain(udp::socket& socket, std::vector<char>& buffer) {
  socket.async_receive(asio::buffer(buffer),
                       [&](const std::error_code&, std::size_t) { Drain(socket, buffer); });
}

}  // namespace

int main() {
  asio::io_context context(1);
  tcp::acceptor acceptor(context, {asio::ip::address_v4::loopback(), 0});
  udp::socket datagrams(context, {asio::ip::address_v4::loopback(), 0});
  std::vector<char> buffer(64 * 1024);
  // As the collector says it.
  std::fprintf(stderr, "listening on 127.0.0.1 tcp %u udp %u\n", acceptor.local_endpoint().port(),
               datagrams.local_endpoint().port());
  Accept(acceptor);
  Drain(datagrams, buffer);
  context.run();
}
