// Why an export failed, as the host learns it from TAVU_GetLastError.
#pragma once

#include <cstdint>

#include "tavu/tavu.h"

namespace TAVU::api {

enum class ErrorCode : std::uint32_t {
  kInvalidHandle = TAVU_ERROR_INVALID_HANDLE,
  kCrashHandler = TAVU_ERROR_CRASH_HANDLER,
  kBadVersion = TAVU_ERROR_BAD_VERSION,
  kNoServer = TAVU_ERROR_NO_SERVER,
  kInvalidArgument = TAVU_ERROR_INVALID_ARGUMENT,
  kCallFailed = TAVU_ERROR_CALL_FAILED,
  kConnectFailed = TAVU_ERROR_CONNECT_FAILED,
  kNoUserId = TAVU_ERROR_NO_USER_ID,
  kFileRead = TAVU_ERROR_FILE_READ,
  kModulePath = TAVU_ERROR_MODULE_PATH,
};

}  // namespace TAVU::api
