#include "base/thread_error.h"

namespace TAVU::base {

namespace {
thread_local std::uint32_t thread_error = 0;
}  // namespace

void SetThreadError(std::uint32_t code) noexcept {
  thread_error = code;
}
std::uint32_t GetThreadError() noexcept {
  return thread_error;
}

}  // namespace TAVU::base
