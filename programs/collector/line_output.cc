#include "line_output.h"

#include <cstddef>
#include <string>
#include <system_error>

#include "explain.h"
#include "platform.h"

namespace TAVU::collector {

bool LineOutput::Print(const Json& object) {
  std::string text = inside_line_ ? "\n" : "";
  // Bytes of a peer that are no UTF-8 show as U+FFFD.
  text += object.dump(-1, ' ', false, Json::error_handler_t::replace);
  text += '\n';
  std::size_t written = 0;
  const std::error_code error = WriteStandardOutput(text, written);
  if (written > 0) inside_line_ = text[written - 1] != '\n';
  if (!error) return true;
  Explain("a record is lost: standard output: " + error.message());
  if (error == std::errc::broken_pipe || error == std::errc::invalid_argument) on_reader_gone_();
  return false;
}

}  // namespace TAVU::collector
