// Where the lines go: standard output, or a file of our own. output_file_posix.cc and
// output_file_windows.cc; the build chooses one.
#pragma once

#include <asio/io_context.hpp>
#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <system_error>

namespace TAVU::collector {

// Used by one thread at a time.
class OutputFile {
 public:
  OutputFile(asio::io_context& context, std::string path);  // UTF-8; empty: standard output
  ~OutputFile();
  OutputFile(const OutputFile&) = delete;
  OutputFile& operator=(const OutputFile&) = delete;

  // Opens the file, or opens it anew after somebody has renamed it; nothing to do for standard
  // output. It is made when missing, and appended to. When a collector was stopped in the middle of
  // a line, which nobody was told to be kept, that line is cut off (but not on Windows). After a
  // failure the file that was open before stays in use.
  [[nodiscard]] std::error_code Open();

  // Writes as much as the other end takes without letting us wait; `written` counts the bytes. On
  // Windows it waits.
  [[nodiscard]] std::error_code Write(std::string_view text, std::size_t& written);

  // Takes the last `count` bytes back, if it can: false when they are with a reader already.
  [[nodiscard]] bool TakeBack(std::size_t count) noexcept;

  // Returns when what was written would outlast a power failure.
  [[nodiscard]] std::error_code Sync();

  // Calls `ready` once when the other end takes more, or has gone; never after CancelWait.
  void WaitForRoom(std::function<void()> ready);
  void CancelWait();

 private:
  struct State;

  const std::string path_;
  std::unique_ptr<State> state_;
};

}  // namespace TAVU::collector
