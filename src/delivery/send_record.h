// The steps that all senders of a reporting instance share: a fresh connection, the fields that
// need one, the call, the end of the connection.
#pragma once

#include <cstdint>
#include <string_view>

#include "api/frame/api_lock.h"
#include "api/frame/instance_record.h"
#include "lumo/value/map.h"
#include "net/client/endpoint.h"
#include "net/wire/protocol.h"

namespace TAVU::delivery {

enum class SendResult {
  kSent,            // over TCP: and the server answered with success
  kConnectFailed,   // nothing was sent
  kCallFailed,      // the connection was made, the call over it failed
  kFileUnreadable,  // a file to be sent could not be opened or read; no connection was tried
};

// What the common fields get from the caller: see AddCommonFields.
struct CommonTexts {
  std::int32_t level;
  std::string_view logType;
  std::string_view message;
};

// Connects to the instance's server, adds the common fields to `record`, calls the server with it
// and closes the connection. The first connection of an instance settles its local address. The
// record borrows what `common` views. Blocks for up to the instance's time-out to connect and, over
// TCP, as long again for each piece of the reply. Throws std::bad_alloc (the connection is closed
// then), and std::logic_error after process exit has taken the client away.
[[nodiscard]] SendResult SendRecord(const api::ApiLock::Guard& held, lumo::Map& record,
                                    api::InstanceRecord& instance, const CommonTexts& common,
                                    QTC::Protocol protocol);

}  // namespace TAVU::delivery
