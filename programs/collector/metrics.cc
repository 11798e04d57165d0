#include "metrics.h"

#include <string_view>

namespace TAVU::collector {
namespace {

void Describe(std::string& text, std::string_view name, std::string_view type,
              std::string_view help) {
  ((((((text += "# HELP ") += name) += ' ') += help) += "\n# TYPE ") += name) += ' ';
  (text += type) += '\n';
}

void Put(std::string& text, std::string_view name, std::string_view labels, std::uint64_t value) {
  (((text += name) += labels) += ' ') += std::to_string(value);
  text += '\n';
}

void PutOne(std::string& text, std::string_view name, std::string_view type, std::string_view help,
            std::uint64_t value) {
  Describe(text, name, type, help);
  Put(text, name, "", value);
}

}  // namespace

std::string MetricsText(const Metrics& metrics, const Gauges& gauges) {
  const auto count = [&](Outcome outcome) {
    return metrics.requests[static_cast<std::size_t>(outcome)];
  };
  std::string text;
  constexpr std::string_view kRequests = "tavu_collector_requests_total";
  Describe(text, kRequests, "counter", "Requests by what became of them.");
  Put(text, kRequests, "{outcome=\"kept\"}", count(Outcome::kKept));
  Put(text, kRequests, "{outcome=\"fault\"}", count(Outcome::kNotKept));
  Put(text, kRequests, "{outcome=\"unacknowledged\"}", count(Outcome::kUnacknowledged));
  Put(text, kRequests, "{outcome=\"refused\"}", count(Outcome::kRefused) + metrics.bad_requests);
  Put(text, kRequests, "{outcome=\"given_up\"}", metrics.given_up);
  constexpr std::string_view kBytes = "tavu_collector_received_bytes_total";
  Describe(text, kBytes, "counter", "Bytes received.");
  Put(text, kBytes, "{transport=\"tcp\"}", metrics.tcp_bytes);
  Put(text, kBytes, "{transport=\"udp\"}", metrics.udp_bytes);
  PutOne(text, "tavu_collector_accepted_total", "counter", "Connections accepted.",
         metrics.accepted);
  PutOne(text, "tavu_collector_lines_left_out_total", "counter",
         "Lines that were not written to standard error.", gauges.lines_left_out);
  PutOne(text, "tavu_collector_connections", "gauge", "Connections open.", gauges.connections);
  constexpr std::string_view kMemory = "tavu_collector_unfinished_bytes";
  Describe(text, kMemory, "gauge", "Memory that unfinished requests hold.");
  Put(text, kMemory, "{transport=\"tcp\"}", gauges.tcp_memory);
  Put(text, kMemory, "{transport=\"udp\"}", gauges.udp_memory);
  PutOne(text, "tavu_collector_queue_length", "gauge", "Requests that wait to be kept.",
         gauges.queue_length);
  PutOne(text, "tavu_collector_output_waiting_bytes", "gauge", "Lines that wait to be written.",
         gauges.output_bytes);
  PutOne(text, "tavu_collector_store_bytes", "gauge", "Bytes in the store, as far as is known.",
         gauges.store_bytes);
  PutOne(text, "tavu_collector_store_files", "gauge", "Files in the store, as far as is known.",
         gauges.store_files);
  return text;
}

}  // namespace TAVU::collector
