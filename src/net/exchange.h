// Whole messages on a connection: transport header, packets, envelope, values.
#pragma once

#include <cstdint>
#include <string_view>

#include "lumo/byte_stream.h"
#include "lumo/value.h"
#include "net/message.h"
#include "net/transport.h"

namespace TAVU::QTC {

// --- The calling side -------------------------------------------------------------------------

// Writes a call of `method` with one argument. Kept on purpose: the result tells of everything up to
// the last packet of the body; the end packet and the last send behind it are not looked at, so that
// a request which fits into the buffers counts as written even when its send fails.
[[nodiscard]] bool WriteRequest(Transport& connection, std::string_view method,
                                const lumo::Value& argument);

// Reads the next message on the connection, a reply's result value included (which is dropped). A
// reply with a fault is read to the fault's own end and no further, because peers differ in whether
// a result follows, and none must be waited for. False when the bytes are no message.
[[nodiscard]] bool ReadReply(Transport& connection, Message& reply);

// --- The answering side -----------------------------------------------------------------------

// Reads a call: header, body (packets or, with header field 0, none), method, one argument and the
// end tag. False when the bytes are no such call.
[[nodiscard]] bool ReadRequest(lumo::ByteSource& connection, Message& request,
                               lumo::Value& argument);

// Write a whole reply, end packet included.
[[nodiscard]] bool WriteResultReply(lumo::ByteSink& connection, const lumo::Value& result);
[[nodiscard]] bool WriteFaultReply(lumo::ByteSink& connection, const Fault& fault);

}  // namespace TAVU::QTC
