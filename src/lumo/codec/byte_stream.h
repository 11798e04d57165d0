// Where encoded bytes go to and come from. The codec, the packets and the buffers over a connection
// are all written against these two classes.
//
// Both hold a window onto memory of the derived class, so that the many small items of an encoding
// cost no virtual call each. A derived class without a window leaves it empty.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>

namespace TAVU::lumo {

// Takes bytes. Not copyable; used by one thread at a time.
class ByteSink {
 public:
  ByteSink() = default;
  ByteSink(const ByteSink&) = delete;
  ByteSink& operator=(const ByteSink&) = delete;
  virtual ~ByteSink() = default;

  // Writes all `size` bytes. False when the sink refused: a sink that took no byte at all leaves
  // the thread error kErrorBrokenPipe, one that reported an error leaves what it set itself.
  [[nodiscard]] bool Write(const void* data, std::size_t size) {
    if (size <= static_cast<std::size_t>(window_end_ - window_)) {
      if (size != 0) std::memcpy(window_, data, size);
      window_ += size;
      return true;
    }
    return WriteThrough(static_cast<const std::byte*>(data), size);
  }
  [[nodiscard]] bool Write(std::span<const std::byte> bytes) {
    return Write(bytes.data(), bytes.size());
  }
  [[nodiscard]] bool WriteByte(std::uint8_t byte) {
    if (window_ != window_end_) {
      *window_++ = static_cast<std::byte>(byte);
      return true;
    }
    return Write(&byte, 1);
  }

  // The room in the window. An encoder of many small items fills it from the front and commits
  // where it stopped.
  [[nodiscard]] std::span<std::byte> room() const noexcept { return {window_, window_end_}; }
  void Commit(std::byte* end) noexcept { window_ = end; }

 protected:
  // Takes bytes that do not fit into the window. Returns how many of the `size` (at least 1) were
  // taken; 0 when the sink is closed, negative on an error. Bytes that went through the window
  // come first; the implementation resets the window as it needs.
  [[nodiscard]] virtual std::ptrdiff_t Accept(const std::byte* data, std::size_t size) = 0;

  std::byte* window_ = nullptr;      // the next byte goes here
  std::byte* window_end_ = nullptr;  // room ends here

 private:
  [[nodiscard]] bool WriteThrough(const std::byte* data, std::size_t size);
};

// Gives bytes, with a look at the next one before it is taken. Not copyable; one thread at a time.
class ByteSource {
 public:
  ByteSource() = default;
  ByteSource(const ByteSource&) = delete;
  ByteSource& operator=(const ByteSource&) = delete;
  virtual ~ByteSource() = default;

  // Reads exactly `size` bytes. False at a short input or an error; the end of the input leaves the
  // thread error kErrorBrokenPipe.
  [[nodiscard]] bool Read(void* out, std::size_t size) {
    if (size <= static_cast<std::size_t>(window_end_ - window_)) {
      if (size != 0) std::memcpy(out, window_, size);
      window_ += size;
      return true;
    }
    return ReadThrough(static_cast<std::byte*>(out), size);
  }
  [[nodiscard]] bool ReadByte(std::uint8_t& out) { return Read(&out, 1); }

  // Reads past exactly `size` bytes; result and thread error are those of Read.
  [[nodiscard]] bool Skip(std::size_t size);

  // The next byte, which stays where it is. False at the end or on an error, as Read.
  [[nodiscard]] bool PeekByte(std::uint8_t& out) {
    if (window_ == window_end_ && !FillWindow()) return false;
    out = static_cast<std::uint8_t>(*window_);
    return true;
  }

  // The bytes in the window, which stay there: perhaps none though more will come. A decoder of
  // many small items takes them from the front and commits where it stopped.
  [[nodiscard]] std::span<const std::byte> at_hand() const noexcept {
    return {window_, window_end_};
  }
  void Commit(const std::byte* end) noexcept { window_ = end; }

  // Up to `limit` bytes that are there already, at least one; taken by the call and valid until the
  // next one. Empty at the end or on an error. For consumers that copy in pieces of their own.
  [[nodiscard]] std::span<const std::byte> Take(std::size_t limit);

 protected:
  // Called with the window used up: offers at least one more byte through the window and returns
  // how many; 0 at the end of the input, negative on an error.
  [[nodiscard]] virtual std::ptrdiff_t Refill() = 0;

  const std::byte* window_ = nullptr;      // the next byte comes from here
  const std::byte* window_end_ = nullptr;  // the bytes at hand end here

 private:
  [[nodiscard]] bool FillWindow();
  [[nodiscard]] bool ReadThrough(std::byte* out, std::size_t size);
};

}  // namespace TAVU::lumo
