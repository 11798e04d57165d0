#include "net/wire/exchange.h"

#include <string>

#include "lumo/codec/codec.h"
#include "net/wire/connection_buffers.h"
#include "net/wire/packet_stream.h"
#include "net/wire/transport_header.h"

namespace TAVU::QTC {

using lumo::Value;
using lumo::ValueType;

namespace {

constexpr std::size_t kMostHeld = std::size_t{768} << 10;

bool ReadRequestBody(lumo::ByteSource& body, Message& request, Value& argument) {
  std::uint8_t end = 0;
  return request.ReadCallHead(body) && lumo::ReadValue(body, argument) &&
         argument.type() != ValueType::kEnd && body.ReadByte(end) && end == lumo::tag::kEnd;
}

// `head` up to its values, then `value` and the end tag, in packets not yet closed.
bool WriteBody(PacketWriter& body, const Message& head, const Value& value) {
  return head.WriteHead(body) && lumo::WriteValue(body, value) && lumo::EndContainer(body) &&
         body.Flush();
}

}  // namespace

bool WriteRequest(Transport& connection, std::string_view method, const Value& argument,
                  Protocol protocol) {
  Message call;
  call.kind = MessageKind::kCall;
  call.method = method;
  ConnectionWriter writer(connection, protocol == Protocol::kTcp ? kMostHeld : kBufferSize);
  PacketWriter body(writer);
  const bool written = TransportHeader().Write(writer) && WriteBody(body, call, argument);
  // What a writer of kBufferSize bytes has sent by now. It holds the rest, of which no failure
  // shows; the larger buffer of a stream must not hide more.
  const std::uint64_t must_be_sent = (writer.written() - 1) / kBufferSize * kBufferSize;
  // On every way out: see WriteRequest.
  static_cast<void>(body.Close());
  static_cast<void>(writer.Flush());
  return written && writer.sent() >= must_be_sent;
}

std::optional<Answer> ReadReply(Transport& connection) {
  BufferedReader reader(connection);
  TransportHeader header;
  if (!header.Read(reader)) return std::nullopt;
  if (header.HasUnpacketedBody()) return ReadAnswer(reader);
  PacketReader body(reader);
  return ReadAnswer(body);
}

bool ReadRequest(lumo::ByteSource& connection, Message& request, Value& argument) {
  TransportHeader header;
  if (!header.Read(connection)) return false;
  if (header.HasUnpacketedBody()) return ReadRequestBody(connection, request, argument);
  PacketReader body(connection);
  return ReadRequestBody(body, request, argument) && body.ReadEnd();
}

bool WriteResultReply(lumo::ByteSink& connection, const Value& result) {
  Message reply;
  reply.kind = MessageKind::kReply;
  PacketWriter body(connection);
  return TransportHeader().Write(connection) && WriteBody(body, reply, result) && body.Close();
}

bool WriteFaultReply(lumo::ByteSink& connection, const Fault& fault) {
  Message reply;
  reply.kind = MessageKind::kReply;
  reply.is_fault = true;
  reply.fault.code = fault.code;
  reply.fault.message = fault.message;  // shallow: `fault` outlives the reply
  reply.fault.detail = fault.detail;
  PacketWriter body(connection);
  return TransportHeader().Write(connection) && reply.WriteHead(body) && lumo::EndContainer(body) &&
         lumo::WriteValue(body, Value()) && lumo::EndContainer(body) && body.Flush() &&
         body.Close();
}

}  // namespace TAVU::QTC
