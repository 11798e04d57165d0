#include "api/frame/export_frame.h"

#include <new>

namespace TAVU::api {

void FailWithCaught(ErrorCode outOfMemory) noexcept {
  try {
    throw;
  } catch (const std::bad_alloc&) {
    Fail(outOfMemory);
  } catch (...) {
    Fail(ErrorCode::kInvalidHandle);
  }
}

}  // namespace TAVU::api
