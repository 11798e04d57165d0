// What the collector counts of itself, for those who watch it.
#pragma once

#include <array>
#include <cstdint>
#include <string>

#include "outcome.h"

namespace TAVU::collector {

// Used by the one thread that runs the io_context.
struct Metrics {
  void Count(Outcome outcome) noexcept { ++requests[static_cast<std::size_t>(outcome)]; }

  // Since the start.
  std::array<std::uint64_t, kOutcomes> requests = {};  // by Outcome
  std::uint64_t bad_requests = 0;                      // refused before they were whole
  std::uint64_t given_up = 0;   // unfinished, to make room or after their time
  std::uint64_t tcp_bytes = 0;  // received
  std::uint64_t udp_bytes = 0;
  std::uint64_t accepted = 0;  // connections
};

// What is so now.
struct Gauges {
  std::uint64_t connections;
  std::uint64_t tcp_memory;  // bytes of unfinished requests
  std::uint64_t udp_memory;
  std::uint64_t queue_length;  // requests that wait to be kept
  std::uint64_t output_bytes;  // of lines that wait to be written
  std::uint64_t store_bytes;
  std::uint64_t store_files;
  std::uint64_t lines_left_out;  // on standard error, since the start
};

// Both in the text format of Prometheus.
[[nodiscard]] std::string MetricsText(const Metrics& metrics, const Gauges& gauges);

}  // namespace TAVU::collector
