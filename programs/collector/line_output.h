// Standard output as JSON Lines.
#pragma once

#include <functional>
#include <utility>

#include "value_json.h"

namespace TAVU::collector {

class LineOutput {
 public:
  // `on_reader_gone` is called when nobody reads the output any more.
  explicit LineOutput(std::function<void()> on_reader_gone)
      : on_reader_gone_(std::move(on_reader_gone)) {}

  // Writes one line at once. False, with an explanation, when it could not be written whole; what
  // follows begins a line of its own then.
  [[nodiscard]] bool Print(const Json& object);

 private:
  std::function<void()> on_reader_gone_;
  bool inside_line_ = false;  // after a line that broke off
};

}  // namespace TAVU::collector
