// The envelope of a remote call in both directions: a kind, then a method's name and arguments, or
// a reply's result or fault. Both ends use this one: the library writes calls and reads replies,
// a collector reads calls and writes replies.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "lumo/codec/byte_stream.h"
#include "lumo/value/value.h"

namespace TAVU::QTC {

// The bytes of the envelope.
namespace envelope {
inline constexpr std::uint8_t kMessage = 'm';
inline constexpr std::uint8_t kCall = 'c';
inline constexpr std::uint8_t kReply = 'r';
inline constexpr std::uint8_t kVersion[2] = {0x01, 0x00};  // after the kind
inline constexpr std::uint8_t kMethod = 'm';               // of a call, before the name's length
inline constexpr std::uint8_t kFault = 'f';                // of a reply
}  // namespace envelope

enum class MessageKind : std::uint32_t { kMessage = 0, kCall = 1, kReply = 2 };

struct Fault {
  std::int32_t code = 0;
  lumo::Value message;  // a string, or null while absent
  lumo::Value detail;   // of any type; null while absent
};

struct Message {
  MessageKind kind = MessageKind::kCall;
  std::string method;     // of a call; empty otherwise
  bool is_fault = false;  // of a reply
  Fault fault;            // meaningful when is_fault

  void Reset();

  // Writes the part in front of the arguments: kind, version, and a call's method name (its length
  // modulo 65536) or a fault with its three entries. Values and the end tag follow by the caller.
  // A fault ends with its entries: no end tag and no result follows them here.
  [[nodiscard]] bool WriteHead(lumo::ByteSink& sink) const;

  // Reads the part in front of a call's argument. False for a message of another kind, too.
  [[nodiscard]] bool ReadCallHead(lumo::ByteSource& source);
};

// What a caller is told by the message that comes back.
enum class Answer : std::uint8_t {
  kResult,
  kFault,
  kNoReply,  // a message of another kind
};

// Reads past a body as far as its answer needs, and keeps nothing of it: a result to its end, a
// fault to its own end tag, a message of another kind to the end of its head. The entries of a
// fault must have their types ("code" an int, "message" a string); one of another key is passed
// over with its value. Nothing when the bytes are no message.
[[nodiscard]] std::optional<Answer> ReadAnswer(lumo::ByteSource& body);

}  // namespace TAVU::QTC
