// The requests that collectors are loaded with.
#pragma once

#include <cstddef>
#include <utility>
#include <vector>

#include "lumo/value/map.h"
#include "lumo/value/value.h"
#include "net/wire/exchange.h"
#include "net/wire/transport.h"
#include "pairs.h"

namespace TAVU::bench {

using Bytes = std::vector<std::byte>;

// Keeps what is sent.
class Recorder final : public QTC::Transport {
 public:
  std::ptrdiff_t Send(const std::byte* data, std::size_t size) override {
    bytes.insert(bytes.end(), data, data + size);
    return static_cast<std::ptrdiff_t>(size);
  }
  std::ptrdiff_t Receive(std::byte*, std::size_t) override { return 0; }

  Bytes bytes;
};

inline Bytes Request(const lumo::Map& record) {
  Recorder recorder;
  const bool written = QTC::WriteRequest(recorder, "tavu_server", lumo::Value::BorrowMap(record),
                                         QTC::Protocol::kTcp);
  Require(written, "writing a request");
  return std::move(recorder.bytes);
}

// Those of a log record of usual length; `kind` is that of the record.
inline void AddFields(lumo::Map& record, const char* kind) {
  const std::pair<int, const char*> fields[] = {
      {5, kind},
      {0, "0"},
      {1, "my-game"},
      {2, "1.0.3"},
      {3, "3"},
      {4, "net"},
      {6, "kim%20lee"},
      {7, "10.0.0.9"},
      {8, "connection%20to%20the%20lobby%20was%20lost%20after%2020%20seconds"}};
  for (const auto& [key, text] : fields)
    record.Insert(lumo::Value::Int(key), lumo::Value::BorrowString(text));
}

inline Bytes LogRequest() {
  lumo::Map record;
  AddFields(record, "0");
  return Request(record);
}

}  // namespace TAVU::bench
