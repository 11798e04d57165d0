// lumo's printf: an engine that writes through an abstract sink of buffers.
#pragma once

#include <cstdarg>
#include <cstddef>

#include "lumo/basic_string.h"

namespace TAVU::lumo {

// Offers the engine one buffer after the other.
class Formatter {
 public:
  virtual bool begin() = 0;                   // offers a first buffer
  virtual bool grow() = 0;                    // offers a further one; called when the last is full
  virtual void end(std::size_t written) = 0;  // commits that many bytes of the last buffer
  virtual ~Formatter() = default;

  [[nodiscard]] char* buffer() const noexcept { return buffer_; }
  [[nodiscard]] std::size_t capacity() const noexcept { return capacity_; }

 protected:
  char* buffer_ = nullptr;
  std::size_t capacity_ = 0;  // bytes
};

// Writes `format` with its arguments; returns the number of bytes written. See formatter.cc for the
// conversions it knows: integers of 32 and (with l, ll or z) 64 bits, texts, characters, pointers;
// none for floating point. `%n` does not exist.
std::size_t FormatInto(Formatter& sink, const char* format, std::va_list arguments);

// Appends to `target`; returns the number of bytes appended. Throws BadAllocation. The compiler's
// check of printf arguments is not asked for: here "l" means 64 bits on every platform.
std::size_t Format(BasicString<char>& target, const char* format, ...);
std::size_t FormatList(BasicString<char>& target, const char* format, std::va_list arguments);

}  // namespace TAVU::lumo
