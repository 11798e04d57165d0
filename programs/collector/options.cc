#include "options.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <charconv>
#include <chrono>
#include <system_error>
#include <vector>

#include "outlets.h"
#include "platform.h"
#include "record_subject.h"

namespace TAVU::collector {
namespace {

constexpr double kLongestTime = 1e6;  // seconds

// CODE or CODE:MESSAGE.
std::optional<FaultAnswer> ParseFault(const std::string& text) {
  const std::size_t colon = std::min(text.find(':'), text.size());
  FaultAnswer fault{0, colon < text.size() ? text.substr(colon + 1) : std::string()};
  const auto [end, error] = std::from_chars(text.data(), text.data() + colon, fault.code);
  if (error != std::errc() || end != text.data() + colon) return std::nullopt;
  return fault;
}

// The parser of unsigned numbers would take -1 for the largest one.
std::string CheckUnsigned(const std::string& text) {
  return text.find('-') == std::string::npos ? std::string() : "less than zero: " + text;
}

// Bytes, as 65536, 64K or 1G.
template <typename Size>
CLI::Option* AddSize(CLI::App& app, const std::string& name, Size& size, const std::string& help) {
  return app.add_option(name, size, help)
      ->transform(CLI::AsSizeValue(false))
      ->check(CheckUnsigned)
      ->type_name("BYTES");
}

template <typename Number>
CLI::Option* AddNumber(CLI::App& app, const std::string& name, Number& number,
                       const std::string& help) {
  return app.add_option(name, number, help)->check(CheckUnsigned)->capture_default_str();
}

// Seconds, with a fraction if one likes.
void AddTime(CLI::App& app, const std::string& name, std::chrono::milliseconds& time,
             const std::string& help) {
  app.add_option_function<double>(
         name,
         [&time](const double& seconds) {
           time = std::chrono::duration_cast<std::chrono::milliseconds>(
               std::chrono::duration<double>(seconds));
         },
         help)
      ->check(CLI::Range(0.0, kLongestTime))
      ->type_name("SECONDS")
      ->default_str(CLI::detail::to_string(std::chrono::duration<double>(time).count()));
}

void AddSources(CLI::App& app, Options& options) {
  app.add_option("-p,--port", options.port, "TCP and UDP port; 0 takes a free one")
      ->capture_default_str();
  app.add_option("--host,--bind", options.host,
                 "address to listen on; 0.0.0.0 for all that this machine has")
      ->capture_default_str();
  app.add_option_function<std::vector<std::string>>(
         "--proxy",
         [&options](const std::vector<std::string>& texts) {
           for (const std::string& text : texts) {
             options.balancers.insert(asio::ip::make_address(text));
           }
         },
         "address of a balancer whose connections begin with a PROXY header, version 1 or 2; may "
         "be given several times")
      ->check([](const std::string& text) {
        std::error_code error;
        asio::ip::make_address(text, error);
        return error ? "no address: " + text : std::string();
      })
      ->type_name("ADDRESS");
  app.add_option("--metrics-port", options.metrics_port,
                 "port to answer GET /metrics on, for Prometheus; 0 takes a free one");
  app.add_option("--metrics-host", options.metrics_host, "address of that port")
      ->capture_default_str();
}

void AddResults(CLI::App& app, Options& options) {
  app.add_option("--output", options.output,
                 "file to append the records to, instead of standard output; SIGHUP opens it anew")
      ->type_name("FILE");
  app.add_option("--store", options.store,
                 "folder for files, dumps and other attachments; without it only their size and "
                 "SHA-256 are told")
      ->type_name("FOLDER");
  AddSize(app, "--max-store", options.store_limits.most_bytes,
          "most bytes of all files in the store; 0: no bound")
      ->capture_default_str();
  AddNumber(app, "--max-files", options.store_limits.most_files,
            "most files in the store; 0: no bound");
  AddSize(app, "--min-free", options.store_limits.least_free,
          "bytes that must stay free on the store's disk; 0: none")
      ->default_str("64M");
  app.add_flag("--durable", options.durable,
               "answer only when record and attachments would outlast a power failure; needs "
               "--output");
  AddNumber(app, "--count", options.count, "end after this many records; 0: do not");
}

void AddStream(CLI::App& app, Options& options) {
  CLI::Option* const nats =
      app.add_option("--nats", options.nats_servers,
                     "publish the records to NATS JetStream instead, and answer when it has them")
          ->type_name("URL[,URL...]");
  CLI::Option* const stream =
      app.add_option("--stream", options.stream,
                     "the stream, and the object bucket of that name for attachments; both must "
                     "be there")
          ->check([](const std::string& name) {
            const bool plain = std::all_of(name.begin(), name.end(), IsNameCharacter);
            return plain && !name.empty() ? std::string()
                                          : "not of letters, digits, - and _: " + name;
          })
          ->type_name("NAME");
  nats->needs(stream);
  stream->needs(nats);
  for (const char* local : {"--output", "--store", "--durable"}) {
    nats->excludes(app.get_option(local));
  }
  AddTime(app, "--nats-time", options.nats_patience,
          "time for a record to be acknowledged, before its sender gets a fault");
}

void AddBounds(CLI::App& app, Options& options) {
  AddSize(app, "--max-request", options.max_request,
          "largest request, in bytes or with a unit (64K, 16M); unless told, a block of 256 MiB "
          "gets through");
  AddSize(app, "--max-memory", options.max_memory,
          "most bytes of unfinished requests over TCP, all peers together")
      ->default_str("1G");
  AddSize(app, "--address-memory", options.address_memory, "the same of one address; 0: no bound")
      ->default_str("512M");
  AddNumber(app, "--max-connections", options.max_connections,
            "most connections of all peers together; 0: as many as the system allows");
  AddNumber(app, "--address-connections", options.address_connections,
            "most connections of one address; 0: no bound");
  AddTime(app, "--idle-timeout", options.idle_timeout,
          "time after which a silent TCP peer is let go; 0: never");
  AddTime(app, "--request-time", options.request_time,
          "time that a TCP peer has for a request, besides that for its bytes at --least-rate");
  AddSize(app, "--least-rate", options.least_rate,
          "bytes a second at which a request has to come in the long run; 0: as slowly as it likes")
      ->default_str("1K");
}

}  // namespace

std::optional<Options> ParseOptions(int argc, char** argv, int& exit_code) {
  Options options;
  std::string fault;
  CLI::App app(
      "Receives what TAVU sends, over TCP and UDP, and prints one JSON object per line for each "
      "record on standard output. Standard error says on which ports it listens, and why what came "
      "was not taken. Ends with Ctrl-C.",
      "tavu_collector");
  AddSources(app, options);
  AddResults(app, options);
  if (HasStreams()) AddStream(app, options);
  AddBounds(app, options);
  app.add_option("--fault", fault, "answer with this fault instead of success")
      ->type_name("CODE[:MESSAGE]")
      ->check([](const std::string& text) {
        return ParseFault(text) ? std::string() : "not a CODE or CODE:MESSAGE: " + text;
      });
  try {
    std::vector<std::string> arguments = ArgumentsInUtf8(argc, argv);
    std::reverse(arguments.begin(), arguments.end());  // as the library wants a list
    app.parse(std::move(arguments));
    if (options.durable && options.output.empty()) {
      throw CLI::RequiresError("--durable", "--output");
    }
  } catch (const CLI::ParseError& error) {
    exit_code = app.exit(error);
    if (exit_code != 0) exit_code = 2;
    return std::nullopt;
  }
  if (!fault.empty()) options.fault = ParseFault(fault);
  return options;
}

}  // namespace TAVU::collector
