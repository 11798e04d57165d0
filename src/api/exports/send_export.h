// What the exports that send a record of an instance have in common.
#pragma once

#include <utility>

#include "api/frame/export_frame.h"
#include "delivery/send_record.h"

namespace TAVU::api {

// What becomes of the call's pin on an instance that has no report server.
enum class PinWithoutServer { kRelease, kKeep };

// The result of the export for the result of its sender.
inline bool Report(delivery::SendResult result) noexcept {
  switch (result) {
    case delivery::SendResult::kSent:
      return true;
    case delivery::SendResult::kConnectFailed:
      return Fail(ErrorCode::kConnectFailed);
    case delivery::SendResult::kCallFailed:
      return Fail(ErrorCode::kCallFailed);
    case delivery::SendResult::kFileUnreadable:
      return Fail(ErrorCode::kFileRead);
  }
  return Fail(ErrorCode::kCallFailed);
}

// The part of a sender's export after the checks that need no instance: finds the instance, checks
// that it has a report server and runs send(instance), which converts the host's texts and sends.
template <typename Send>
bool SendFor(const ApiLock::Guard& held, TAVU_HANDLE handle, PinWithoutServer pin, Send&& send) {
  PinnedInstance instance(held, HandleOf(handle));
  if (!instance) return Fail(ErrorCode::kInvalidHandle);
  if (!instance->HasServer()) {
    if (pin == PinWithoutServer::kKeep) instance.KeepPinned();
    return Fail(ErrorCode::kNoServer);
  }
  return Report(std::forward<Send>(send)(*instance));
}

}  // namespace TAVU::api
