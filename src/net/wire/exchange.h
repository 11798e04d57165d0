// Whole messages on a connection: transport header, packets, envelope, values.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

#include "lumo/codec/byte_stream.h"
#include "lumo/value/value.h"
#include "net/wire/message.h"
#include "net/wire/protocol.h"
#include "net/wire/transport.h"

namespace TAVU::QTC {

// All of these throw std::bad_alloc when memory is exhausted, and only then.

// --- The calling side -------------------------------------------------------------------------

// Writes a call of `method` with one argument. The bytes are the same over both protocols.
//
// Two things to know:
// - The result tells of every whole 2048 bytes of the request before its last ones, and not of
//   those nor of the end packet: a request of one such buffer counts as written even when its send
//   fails. Over TCP the missing reply then tells; over UDP it is as good as a lost datagram.
// - A request that fails on the way, say over an argument without an encoding, still gets its end
//   packet: the server sees a broken request at once instead of waiting for the rest of one.
[[nodiscard]] bool WriteRequest(Transport& connection, std::string_view method,
                                const lumo::Value& argument, Protocol protocol);

// Reads the next message on the connection as far as its answer needs, see ReadAnswer: a reply with
// a fault to the fault's own end and no further, because peers differ in whether a result follows,
// and none must be waited for. Nothing when the bytes are no message. A reply may be of any size:
// it is read past on constant memory.
//
// The time-out of the connection bounds each receive and not the whole reply: a peer that sends a
// byte now and then keeps the reader waiting as long as it likes.
[[nodiscard]] std::optional<Answer> ReadReply(Transport& connection);

// --- The answering side -----------------------------------------------------------------------

// Reads a call: header, body (packets or, with header field 0, none), method, one argument and the
// end tag, and the end packet after packets. False when the bytes are no such call. Safe for any
// bytes; the caller bounds how many it lets come.
[[nodiscard]] bool ReadRequest(lumo::ByteSource& connection, Message& request,
                               lumo::Value& argument);

// Write a whole reply, end packet included. A fault's entries are closed by an end tag, after
// which a null result and the message's own end tag follow: a reader that takes the fault for the
// whole message stops at the first, one that expects a result in every reply finds it.
[[nodiscard]] bool WriteResultReply(lumo::ByteSink& connection, const lumo::Value& result);
[[nodiscard]] bool WriteFaultReply(lumo::ByteSink& connection, const Fault& fault);

}  // namespace TAVU::QTC
