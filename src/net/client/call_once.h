// One remote call over a connection of its own.
#pragma once

#include "lumo/text/basic_string.h"
#include "lumo/value/value.h"
#include "net/client/endpoint.h"
#include "net/wire/result_code.h"

namespace TAVU::QTC {

// Opens, calls, releases. Kept on purpose: the call is made after a failed open too, and its code
// replaces the open's, so that a failed open with a call that reports no error ends as kSuccess.
// `error_text` gets the final code's text (cleared for kSuccess, left as it is for a code without a
// text or when memory for it is exhausted). Always returns true. Never throws; without memory for a
// client the code is kStreamFault.
bool CallOnce(const Endpoint& server, Protocol protocol, const char* method,
              const lumo::Value& argument, lumo::BasicString<char>& error_text,
              ResultCode& code) noexcept;

}  // namespace TAVU::QTC
