// The abstract sink that lumo's formatting engine writes through.
#pragma once

#include <cstddef>

namespace TAVU::lumo {

// Offers the engine one buffer after the other. Used by one thread; not owned by the engine.
class Formatter {
 public:
  // The engine's calls, in this order: begin once; for each buffer that got full end(its capacity)
  // and grow; end once more with what the last buffer holds. After a begin or grow that returns
  // false there is no buffer, the rest of the text is lost, and the last end gets 0.
  virtual bool begin() = 0;                   // offers a first buffer
  virtual bool grow() = 0;                    // offers a further one
  virtual void end(std::size_t written) = 0;  // commits that many bytes of the last buffer
  virtual ~Formatter() = default;

  [[nodiscard]] char* buffer() const noexcept { return buffer_; }
  [[nodiscard]] std::size_t capacity() const noexcept { return capacity_; }

 protected:
  char* buffer_ = nullptr;
  std::size_t capacity_ = 0;  // bytes; at least 1 in an offered buffer
};

}  // namespace TAVU::lumo
