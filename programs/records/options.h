// What the command line says.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace TAVU::records {

struct Options {
  std::string servers;  // URLs, with commas between them
  std::string stream;
  std::string durable = "records";
  std::string filter;       // of subjects; empty for all of the stream
  std::string attachments;  // folder; empty for none
  bool follow = false;
  std::int64_t replicas = 0;  // of a stream and a bucket to make; 0: read instead
  std::int64_t max_bytes = -1;
  double max_age_days = 0;
};

// Nothing when the process has to end, with `exit_code`.
[[nodiscard]] std::optional<Options> ParseOptions(int argc, char** argv, int& exit_code);

}  // namespace TAVU::records
