// What the command line says.
#pragma once

#include <asio/ip/address.hpp>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <set>
#include <string>

#include "folder_store.h"

namespace TAVU::collector {

struct FaultAnswer {
  std::int32_t code;
  std::string message;
};

struct Options {
  std::string host = "127.0.0.1";
  std::uint16_t port = 7000;
  std::string store;  // folder, in UTF-8; empty for none
  StoreLimits store_limits = {0, 0, std::uint64_t{64} << 20};
  std::string output;  // file, in UTF-8; empty for standard output
  bool durable = false;
  std::string nats_servers;  // URLs, with commas between them; empty: no stream
  std::string stream;        // and the bucket of the same name
  // Less than the 2 seconds for which hosts wait after a script dump, the most impatient ones.
  std::chrono::milliseconds nats_patience = std::chrono::milliseconds(1800);
  std::optional<FaultAnswer> fault;  // instead of success
  std::uint64_t count = 0;           // records after which to end; 0: no end
  // By default a block of 256 MiB gets through, with a mebibyte for its framing and other fields.
  std::size_t max_request = (std::size_t{256} << 20) + (std::size_t{1} << 20);
  std::size_t max_memory = std::size_t{1} << 30;
  std::chrono::milliseconds idle_timeout = std::chrono::seconds(60);
  std::chrono::milliseconds request_time = std::chrono::seconds(30);
  std::size_t least_rate = 1024;    // bytes a second; 0: none
  std::size_t max_connections = 0;  // 0: as many as the system allows
  std::size_t address_connections = 1000;
  std::size_t address_memory = std::size_t{512} << 20;
  std::set<asio::ip::address> balancers;
  std::optional<std::uint16_t> metrics_port;
  std::string metrics_host = "127.0.0.1";
};

// Nothing when the process has to end, with `exit_code`: help was asked for, or the command line is
// wrong, which has been explained.
[[nodiscard]] std::optional<Options> ParseOptions(int argc, char** argv, int& exit_code);

}  // namespace TAVU::collector
