// What a client's operations return, and the texts for it.
#pragma once

#include <cstdint>

namespace TAVU::QTC {

enum class ResultCode : std::uint32_t {
  kSuccess = 0,
  kConnectFailed = 12288,
  kServerError = 12289,
  kReplyTimeout = 12290,  // has a text but no operation returns it: a late reply is kStreamFault
  kStreamFault = 12291,
  kAlreadyOpen = 12292,
};

// The text for a code: "" for success, null for a code that has none. Static.
[[nodiscard]] const char* ResultText(ResultCode code) noexcept;

}  // namespace TAVU::QTC
