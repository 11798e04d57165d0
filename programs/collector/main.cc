// tavu_collector: receives what TAVU sends and prints it as JSON Lines. See README.md.

#include <algorithm>
#include <asio/io_context.hpp>
#include <asio/signal_set.hpp>
#include <csignal>
#include <cstdio>
#include <exception>
#include <limits>
#include <new>
#include <optional>
#include <string>
#include <string_view>

#include "explain.h"
#include "intake.h"
#include "listening.h"
#include "lumo/codec/memory_writer.h"
#include "lumo/value/value.h"
#include "memory_budget.h"
#include "metrics.h"
#include "metrics_server.h"
#include "net/wire/exchange.h"
#include "options.h"
#include "outlets.h"
#include "platform.h"
#include "tcp_server.h"
#include "udp_receiver.h"

namespace TAVU::collector {
namespace {

// Nobody reads the output any more, the ports cannot be had, or the like.
constexpr int kExitFailure = 1;

// The answer to a request that could not be kept: its sender must not take it for safe.
constexpr std::int32_t kNotKeptCode = 1;
constexpr std::string_view kNotKeptMessage = "the collector could not keep this record";
constexpr std::string_view kUnacknowledgedMessage = "the stream did not acknowledge this record";

std::string BytesOf(const lumo::MemoryWriter& writer) {
  return std::string(reinterpret_cast<const char*>(writer.data()), writer.size());
}

// Writing into memory cannot fail but by throwing, so the results tell nothing.
std::string SuccessReply() {
  lumo::MemoryWriter writer;
  static_cast<void>(QTC::WriteResultReply(writer, lumo::Value()));
  return BytesOf(writer);
}

std::string FaultReply(std::int32_t code, std::string_view message) {
  QTC::Fault fault;
  fault.code = code;
  fault.message = lumo::Value::BorrowString(message);
  lumo::MemoryWriter writer;
  static_cast<void>(QTC::WriteFaultReply(writer, fault));
  return BytesOf(writer);
}

// Descriptors for everything but peers: ports, output, attachments, the metrics' peers.
constexpr std::size_t kOtherDescriptors = 64;

std::size_t MostConnections(const Options& options) {
  const std::size_t limit = ConnectionLimit();
  const std::size_t possible =
      limit > 2 * kOtherDescriptors ? limit - kOtherDescriptors : limit / 2;
  return options.max_connections == 0 ? possible : std::min(options.max_connections, possible);
}

// Of options that say "no bound" with a zero.
std::size_t BoundFrom(std::size_t option) {
  return option == 0 ? std::numeric_limits<std::size_t>::max() : option;
}

TcpSettings TcpSettingsFrom(const Options& options) {
  TcpSettings settings{
      .max_request = options.max_request,
      .idle_timeout = options.idle_timeout,
      .request_time = options.request_time,
      .least_rate = options.least_rate,
      .most_connections = MostConnections(options),
      .most_connections_of_address = BoundFrom(options.address_connections),
      .most_memory_of_address = BoundFrom(options.address_memory),
      .balancers = options.balancers,
      .success_reply = SuccessReply(),
      .failure_reply = FaultReply(kNotKeptCode, kNotKeptMessage),
      .unacknowledged_reply = FaultReply(kNotKeptCode, kUnacknowledgedMessage),
  };
  if (options.fault) {
    settings.success_reply = FaultReply(options.fault->code, options.fault->message);
    settings.failure_reply = settings.success_reply;
    settings.unacknowledged_reply = settings.success_reply;
  }
  return settings;
}

// The collector's parts, and how they end together.
class Collector {
 public:
  Collector(asio::io_context& context, ListeningSockets sockets, const Options& options)
      : has_output_file_(!options.output.empty()),
        outlets_(options.nats_servers.empty()
                     ? LocalOutlets(context, options, [this] { StopWith(kExitFailure); })
                     : StreamOutlets(context, options)),
        store_(*outlets_.store),
        output_(*outlets_.output),
        budget_(options.max_memory),
        intake_(context, store_, output_, metrics_, options.count, [this] { StopWith(0); }),
        tcp_(context, std::move(sockets.acceptor), intake_, budget_, metrics_,
             TcpSettingsFrom(options)),
        udp_(context, std::move(sockets.datagrams), intake_, metrics_, options.max_request),
        signals_(context, SIGINT, SIGTERM),
        reopen_signal_(context) {}

  // False, with an explanation, when the output cannot be had.
  [[nodiscard]] bool Start() {
    if (const std::string error = output_.Open(); !error.empty()) {
      Explain(Topic::kService, error);
      return false;
    }
    signals_.async_wait([this](const std::error_code& cancelled, int) {
      if (!cancelled) StopWith(0);
    });
    if (has_output_file_) WatchReopenSignal();
    tcp_.Start();
    udp_.Start();
    return true;
  }

  void PrepareStore() {
    const std::string complaint = store_.Prepare();
    if (complaint.empty()) return;
    Explain(Topic::kService, complaint + "; attachments are lost until this is mended");
  }

  void ServeMetrics(asio::ip::tcp::acceptor acceptor) {
    metrics_server_.emplace(std::move(acceptor), [this] { return DescribeMetrics(); });
    metrics_server_->Start();
  }

  [[nodiscard]] int exit_code() const noexcept { return exit_code_; }

 private:
  // What is under way is finished; the io_context runs out of work then. A further Ctrl-C ends the
  // process at once.
  void StopWith(int exit_code) {
    if (stopped_) return;
    stopped_ = true;
    exit_code_ = exit_code;
    NotifyServiceManager("STOPPING=1");
    tcp_.Stop();
    udp_.Stop();
    output_.Stop();
    if (metrics_server_) metrics_server_->Stop();
    std::error_code ignored;  // then the further Ctrl-C does nothing
    signals_.cancel(ignored);
    signals_.clear(ignored);
    reopen_signal_.cancel(ignored);
  }

  void WatchReopenSignal() {
#ifdef SIGHUP
    std::error_code ignored;  // then the signal ends the process, as it does by itself
    reopen_signal_.add(SIGHUP, ignored);
    reopen_signal_.async_wait([this](const std::error_code& cancelled, int) {
      if (cancelled) return;
      output_.Reopen();
      WatchReopenSignal();
    });
#endif
  }

  [[nodiscard]] std::string DescribeMetrics() const {
    return MetricsText(metrics_, {.connections = tcp_.connections(),
                                  .tcp_memory = budget_.used(),
                                  .udp_memory = udp_.memory(),
                                  .queue_length = intake_.queue_length(),
                                  .output_bytes = output_.waiting_bytes(),
                                  .store_bytes = store_.bytes(),
                                  .store_files = store_.files(),
                                  .lines_left_out = LinesLeftOut()});
  }

  const bool has_output_file_;
  Metrics metrics_;
  const Outlets outlets_;
  AttachmentStore& store_;
  RecordSink& output_;
  MemoryBudget budget_;
  Intake intake_;
  TcpServer tcp_;
  UdpReceiver udp_;
  std::optional<MetricsServer> metrics_server_;
  asio::signal_set signals_;
  asio::signal_set reopen_signal_;
  bool stopped_ = false;
  int exit_code_ = 0;
};

void Run(asio::io_context& context) {
  for (;;) {
    try {
      context.run();
      return;
    } catch (const std::bad_alloc&) {
      // Costs the peer that needed the memory its connection, and nobody else anything.
      Explain(Topic::kConnections, "not enough memory: a connection is given up");
    }
  }
}

int Main(int argc, char** argv) {
  PrepareProcess();
  int exit_code = 0;
  const std::optional<Options> options = ParseOptions(argc, argv, exit_code);
  if (!options) return exit_code;
  RaiseConnectionLimit();

  asio::io_context context(1);
  std::optional<ListeningSockets> sockets = Listen(context, options->host, options->port);
  if (!sockets) return kExitFailure;
  std::optional<asio::ip::tcp::acceptor> metrics;
  if (options->metrics_port) {
    metrics = ListenTcp(context, options->metrics_host, *options->metrics_port);
    if (!metrics) return kExitFailure;
  }
  // The one line that scripts read, too.
  std::string listening = "listening on " + options->host + " tcp " +
                          std::to_string(sockets->acceptor.local_endpoint().port()) + " udp " +
                          std::to_string(sockets->datagrams.local_endpoint().port());
  if (metrics) listening += " metrics " + std::to_string(metrics->local_endpoint().port());
  Collector collector(context, std::move(*sockets), *options);
  if (!collector.Start()) return kExitFailure;
  if (metrics) collector.ServeMetrics(std::move(*metrics));
  Explain(Topic::kService, listening);
  collector.PrepareStore();
  NotifyServiceManager("READY=1");
  Run(context);
  return collector.exit_code();
}

}  // namespace
}  // namespace TAVU::collector

int main(int argc, char** argv) {
  try {
    return TAVU::collector::Main(argc, argv);
  } catch (const std::exception& failure) {
    std::fprintf(stderr, "tavu_collector: %s\n", failure.what());
    return TAVU::collector::kExitFailure;
  }
}
