#include "options.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <charconv>
#include <vector>

#include "platform.h"

namespace TAVU::collector {
namespace {

constexpr double kLongestIdleTimeout = 1e6;  // seconds

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

}  // namespace

std::optional<Options> ParseOptions(int argc, char** argv, int& exit_code) {
  Options options;
  std::string fault;
  double idle_seconds = std::chrono::duration<double>(options.idle_timeout).count();

  CLI::App app(
      "Receives what TAVU sends, over TCP and UDP, and prints one JSON object per line for each "
      "record on standard output. Standard error says on which ports it listens, and why what came "
      "was not taken. Ends with Ctrl-C.",
      "tavu_collector");
  app.add_option("-p,--port", options.port, "TCP and UDP port; 0 takes a free one")
      ->capture_default_str();
  app.add_option("--host,--bind", options.host,
                 "address to listen on; 0.0.0.0 for all that this machine has")
      ->capture_default_str();
  app.add_option("--store", options.store,
                 "folder for files, dumps and other attachments; without it only their size and "
                 "SHA-256 are told")
      ->type_name("FOLDER");
  app.add_option("--fault", fault, "answer with this fault instead of success")
      ->type_name("CODE[:MESSAGE]")
      ->check([](const std::string& text) {
        return ParseFault(text) ? std::string() : "not a CODE or CODE:MESSAGE: " + text;
      });
  app.add_option("--count", options.count, "end after this many records; 0: do not")
      ->check(CheckUnsigned)
      ->capture_default_str();
  app.add_option("--max-request", options.max_request,
                 "largest request, in bytes or with a unit (64K, 16M); unless told, a block of "
                 "256 MiB gets through")
      ->transform(CLI::AsSizeValue(false))
      ->check(CheckUnsigned)
      ->type_name("BYTES");
  app.add_option("--max-memory", options.max_memory,
                 "most bytes of unfinished requests over TCP, all peers together")
      ->transform(CLI::AsSizeValue(false))
      ->check(CheckUnsigned)
      ->type_name("BYTES")
      ->default_str("1G");
  app.add_option("--idle-timeout", idle_seconds,
                 "seconds after which a silent TCP peer is let go; 0: never")
      ->check(CLI::Range(0.0, kLongestIdleTimeout))
      ->type_name("SECONDS")
      ->capture_default_str();
  try {
    std::vector<std::string> arguments = ArgumentsInUtf8(argc, argv);
    std::reverse(arguments.begin(), arguments.end());  // as the library wants a list
    app.parse(std::move(arguments));
  } catch (const CLI::ParseError& error) {
    exit_code = app.exit(error);
    if (exit_code != 0) exit_code = 2;
    return std::nullopt;
  }
  if (!fault.empty()) options.fault = ParseFault(fault);
  options.idle_timeout = std::chrono::duration_cast<std::chrono::milliseconds>(
      std::chrono::duration<double>(idle_seconds));
  return options;
}

}  // namespace TAVU::collector
