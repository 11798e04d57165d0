// One remote call over a connection of its own.
#pragma once

#include "lumo/text/basic_string.h"
#include "lumo/value/value.h"
#include "net/client/endpoint.h"
#include "net/wire/protocol.h"
#include "net/wire/result_code.h"

namespace TAVU::QTC {

// Opens, calls, releases. The call is made after a failed open too, and its code replaces the
// open's. A client that never opened expects no reply, so a call to a server that cannot be reached
// can end as kSuccess, and kConnectFailed is never the result.
// `error_text` gets the final code's text (cleared for kSuccess, left as it is for a code without a
// text or when memory for it is exhausted). Always returns true. Never throws; without memory for a
// client the code is kStreamFault.
bool CallOnce(const Endpoint& server, Protocol protocol, const char* method,
              const lumo::Value& argument, lumo::BasicString<char>& error_text,
              ResultCode& code) noexcept;

}  // namespace TAVU::QTC
