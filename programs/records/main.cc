// tavu_records: prints what collectors have put into a stream. See docs/fleet.md.
#include <csignal>
#include <cstdio>
#include <exception>
#include <optional>

#include "failure.h"
#include "nats_connecting.h"
#include "options.h"
#include "stream_reader.h"
#include "stream_setup.h"

namespace TAVU::records {
namespace {

using collector::Receive;

int Main(int argc, char** argv) {
  std::signal(SIGPIPE, SIG_IGN);  // a reader that ends is a failed write
  int exit_code = 0;
  const std::optional<Options> options = ParseOptions(argc, argv, exit_code);
  if (!options) return exit_code;

  collector::NatsOptions settings;
  Require(Receive(settings, natsOptions_Create), "--nats");
  Require(collector::SetServers(settings.get(), options->servers, "tavu_records"), "--nats");
  collector::NatsConnection connection;
  Require(
      Receive(connection,
              [&](natsConnection** out) { return natsConnection_Connect(out, settings.get()); }),
      "--nats");
  collector::NatsJetStream jet_stream;
  Require(Receive(jet_stream,
                  [&](jsCtx** out) {
                    return natsConnection_JetStream(out, connection.get(), nullptr);
                  }),
          "--nats");

  if (options->replicas > 0) {
    MakeStreamAndBucket(jet_stream.get(), *options);
    return 0;
  }
  StreamReader reader(connection.get(), jet_stream.get(), *options);
  reader.Run();
  return reader.incomplete() ? 1 : 0;
}

}  // namespace
}  // namespace TAVU::records

int main(int argc, char** argv) {
  try {
    return TAVU::records::Main(argc, argv);
  } catch (const std::exception& failure) {
    std::fprintf(stderr, "tavu_records: %s\n", failure.what());
    return 1;
  }
}
