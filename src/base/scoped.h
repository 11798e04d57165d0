// A resource of the system that closes itself. Traits name its type `Handle`, the value `kInvalid`
// that stands for none, and `Close`, the one way to give it back.
#pragma once

#include <utility>

namespace TAVU::base {

template <typename Traits>
class Scoped {
 public:
  using Handle = typename Traits::Handle;

  Scoped() noexcept = default;
  explicit Scoped(Handle handle) noexcept : handle_(handle) {}
  Scoped(Scoped&& other) noexcept : handle_(other.Release()) {}
  Scoped& operator=(Scoped&& other) noexcept {
    if (this != &other) {
      Reset();
      handle_ = other.Release();
    }
    return *this;
  }
  ~Scoped() { Reset(); }

  [[nodiscard]] Handle get() const noexcept { return handle_; }
  explicit operator bool() const noexcept { return handle_ != Traits::kInvalid; }
  // Gives the resource away: the caller closes it.
  [[nodiscard]] Handle Release() noexcept { return std::exchange(handle_, Traits::kInvalid); }
  void Reset() noexcept {
    if (*this) Traits::Close(Release());
  }

 private:
  Handle handle_ = Traits::kInvalid;
};

}  // namespace TAVU::base
