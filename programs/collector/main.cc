// tavu_collector: receives what TAVU sends and prints it as JSON Lines. See README.md.

#include <asio/io_context.hpp>
#include <asio/signal_set.hpp>
#include <csignal>
#include <cstdio>
#include <exception>
#include <memory>
#include <new>
#include <string>
#include <string_view>

#include "attachment_store.h"
#include "explain.h"
#include "intake.h"
#include "line_output.h"
#include "listening.h"
#include "lumo/codec/memory_writer.h"
#include "lumo/value/value.h"
#include "memory_budget.h"
#include "net/wire/exchange.h"
#include "options.h"
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

TcpSettings TcpSettingsFrom(const Options& options) {
  TcpSettings settings{options.max_request, options.idle_timeout, SuccessReply(),
                       FaultReply(kNotKeptCode, kNotKeptMessage)};
  if (options.fault) {
    settings.success_reply = FaultReply(options.fault->code, options.fault->message);
    settings.failure_reply = settings.success_reply;
  }
  return settings;
}

// The collector's parts, and how they end together.
class Collector {
 public:
  Collector(asio::io_context& context, ListeningSockets sockets, const Options& options)
      : store_(options.store),
        output_([this] { StopWith(kExitFailure); }),
        budget_(options.max_memory),
        intake_(context, store_, output_, options.count, [this] { StopWith(0); }),
        tcp_(context, std::move(sockets.acceptor), intake_, budget_, TcpSettingsFrom(options)),
        udp_(context, std::move(sockets.datagrams), intake_, options.max_request),
        signals_(context, SIGINT, SIGTERM) {}

  void Start() {
    const std::string complaint = store_.Prepare();
    if (!complaint.empty()) {
      Explain("--store: " + complaint + "; attachments are lost until this is mended");
    }
    signals_.async_wait([this](const std::error_code& cancelled, int) {
      if (!cancelled) StopWith(0);
    });
    tcp_.Start();
    udp_.Start();
  }

  [[nodiscard]] int exit_code() const noexcept { return exit_code_; }

 private:
  // What is under way is finished; the io_context runs out of work then. A further Ctrl-C ends the
  // process at once.
  void StopWith(int exit_code) {
    if (stopped_) return;
    stopped_ = true;
    exit_code_ = exit_code;
    tcp_.Stop();
    udp_.Stop();
    std::error_code ignored;  // then the further Ctrl-C does nothing
    signals_.cancel(ignored);
    signals_.clear(ignored);
  }

  AttachmentStore store_;
  LineOutput output_;
  MemoryBudget budget_;
  Intake intake_;
  TcpServer tcp_;
  UdpReceiver udp_;
  asio::signal_set signals_;
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
      Explain("not enough memory: a connection is given up");
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
  // The one line that scripts read, too.
  const std::string listening = "listening on " + options->host + " tcp " +
                                std::to_string(sockets->acceptor.local_endpoint().port()) +
                                " udp " +
                                std::to_string(sockets->datagrams.local_endpoint().port());
  Collector collector(context, std::move(*sockets), *options);
  collector.Start();
  Explain(listening);
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
