// Requests, replies and headers against the reference vectors, natively under sanitizers: in both
// directions, in pieces of every size, cut at every byte.
#include "net/wire/exchange.h"

#include "base/thread_error.h"
#include "lumo/codec/memory_reader.h"
#include "lumo/codec/memory_writer.h"
#include "lumo/reference.h"
#include "lumo/value/list.h"
#include "lumo/value/map.h"
#include "net/memory_transport.h"
#include "net/wire/packet_stream.h"
#include "net/wire/transport_header.h"

namespace TAVU::test {
namespace {

using lumo::Cases;
using lumo::MemoryReader;
using lumo::MemoryWriter;
using lumo::Value;
using QTC::Message;
using QTC::Protocol;
using QTC::TransportHeader;

using Bytes = std::vector<std::byte>;

std::string HexOf(std::span<const std::byte> bytes) {
  return Hex(bytes.data(), bytes.size());
}

// Hexadecimal digits with spaces where they help reading.
Bytes FromHex(std::string digits) {
  std::erase(digits, ' ');
  return BytesOf(digits);
}

constexpr int kServerError = 12289;
constexpr int kStreamFault = 12291;

int CodeOfReply(std::span<const std::byte> bytes, std::size_t piece) {
  MemoryTransport transport({bytes.begin(), bytes.end()}, piece);
  const std::optional<QTC::Answer> answer = QTC::ReadReply(transport);
  if (!answer) return kStreamFault;
  return *answer == QTC::Answer::kResult ? 0 : kServerError;
}

bool IsRequest(std::span<const std::byte> bytes, std::string_view method, const Value& argument) {
  MemoryReader reader(bytes);
  Message request;
  Value read;
  return QTC::ReadRequest(reader, request, read) && request.method == method &&
         lumo::Compare(read, argument) == 0 && reader.remaining() == 0;
}

TEST(Requests, AreWrittenAsTheVectorsHaveThem) {
  for (const Json& c : lumo::Vectors("framing.json", "requests")) {
    SCOPED_TRACE(c["name"]);
    const std::string method = c["method"];
    const Value argument = ValueOf(c["argument"]);
    const Bytes expected = BytesOf(c["bytes"]);
    EXPECT_TRUE(IsRequest(expected, method, argument));
    MemoryTransport datagrams;
    ASSERT_TRUE(QTC::WriteRequest(datagrams, method, argument, Protocol::kUdp));
    EXPECT_EQ(HexOf(datagrams.sent), HexOf(expected));
    EXPECT_EQ(Json(datagrams.sends), c["datagrams"]);
    MemoryTransport stream;
    ASSERT_TRUE(QTC::WriteRequest(stream, method, argument, Protocol::kTcp));
    EXPECT_EQ(HexOf(stream.sent), HexOf(expected));
  }
  MemoryTransport unencodable;  // fails, and is closed all the same
  EXPECT_FALSE(QTC::WriteRequest(unencodable, "m", ValueOf({"bigint", "5"}), Protocol::kTcp));
  EXPECT_EQ(HexOf(unencodable.sent), "cf1000040000");
}

TEST(Requests, CountAsWrittenUpToTheLast2048Bytes) {
  const Bytes block(300'000);
  // Size of the argument, bytes that are taken, result of the send after that; written?, thread
  // error
  for (const Json& c : Cases(R"([
    // What fits into 2048 bytes is sent at the end only.
    ["udp", 10, 0, -1, true, 7],
    ["udp", 10, 0, 0, true, 109],
    ["udp", 5000, 0, -1, false, 7],
    ["udp", 5000, 0, 0, false, 109],
    ["udp", 5000, 2048, -1, false, 7],
    ["udp", 5000, 4096, -1, true, 7],
    // And a larger buffer hides no more: 2021 bytes, with 27 around them, end where it would.
    ["tcp", 10, 0, 0, true, 109],
    ["tcp", 2021, 0, -1, true, 7],
    ["tcp", 2022, 2047, -1, false, 7],
    ["tcp", 2022, 2048, -1, true, 7],
    ["tcp", 300000, 299007, 0, false, 109],
    ["tcp", 300000, 299008, 0, true, 109]
  ])")) {
    MemoryTransport transport;
    transport.good_bytes = c[2];
    transport.bad_send = c[3];
    base::SetThreadError(7);
    const Value argument = Value::BorrowBinary(std::span(block).first(c[1]));
    const Protocol protocol = c[0] == "udp" ? Protocol::kUdp : Protocol::kTcp;
    EXPECT_EQ(QTC::WriteRequest(transport, "tavu_server", argument, protocol), c[4]) << c;
    EXPECT_EQ(base::GetThreadError(), c[5]) << c;
    EXPECT_TRUE(transport.bad_sends == 1 && transport.sent.size() == transport.good_bytes) << c;
  }
}

TEST(Requests, CarryANameOfAnyLength) {
  const std::string name(65'536 + 3, 'n');  // all of it, after a length that wraps
  MemoryTransport transport;
  ASSERT_TRUE(QTC::WriteRequest(transport, name, Value(), Protocol::kTcp));
  EXPECT_EQ(HexOf(std::span(transport.sent).first(14)), "cf10000408006301006d00036e6e");
  EXPECT_EQ(transport.sent.size(), 4 + 6 + name.size() + 2 + 33 * 2 + 2);
  EXPECT_EQ(HexOf(std::span(transport.sent).last(8)), "6e6e6e6e4e7a0000");
}

TEST(Packets, ThatAreEndedTakeNoMore) {
  MemoryWriter connection;
  QTC::PacketWriter body(connection);
  EXPECT_TRUE(body.Write("ab", 2) && body.Close() && body.Close());
  base::SetThreadError(0);
  EXPECT_FALSE(body.Write("c", 1));
  EXPECT_EQ(base::GetThreadError(), base::kErrorBrokenPipe);
  EXPECT_TRUE(body.Flush());
  EXPECT_EQ(HexOf(connection.bytes()), "0000");
}

TEST(Requests, ThatAreBrokenAreRefused) {
  const std::pair<const char*, bool> kCases[] = {
      {"cf100004 0009 630100 6d000161 4e 7a 0000", true},      // in packets
      {"cf10000980000000 00 630100 6d000161 4e 7a", true},     // without packets
      {"cf100004 0009 630100 6d000161 4e 7a", false},          // no end packet
      {"cf100004 0009 630100 6d000161 4e 7a 0001 7a", false},  // another one in its place
      {"cf100004 000a 630100 6d000161 4e 7a 7a 0000", false},  // bytes after the end tag
      {"cf100004 000a 630100 6d000161 4e 4e 7a 0000", false},  // two arguments
      {"cf100004 0008 630100 6d000161 7a 0000", false},        // none
      {"cf100004 0009 630100 6d000161 7a 7a 0000", false},     // none, and two end tags
      {"cf100004 0005 720100 4e 7a 0000", false},              // a reply
      {"cf100004 0005 6d0100 4e 7a 0000", false},              // a message
      {"cf100004 0009 630100 6dffff61 4e 7a 0000", false},     // a name longer than all
  };
  for (const auto& [hex, accepted] : kCases) {
    const Bytes bytes = FromHex(hex);
    EXPECT_EQ(IsRequest(bytes, "a", Value()), accepted) << hex;
    for (std::size_t cut = 0; cut < bytes.size(); ++cut)
      EXPECT_FALSE(IsRequest(std::span(bytes).first(cut), "a", Value())) << hex << cut;
  }
}

TEST(Replies, GiveTheirCodesInPiecesOfAnySizeAndCutAnywhere) {
  for (const Json& c : lumo::Vectors("replies.json", "replies")) {
    SCOPED_TRACE(c["name"]);
    const Bytes bytes = BytesOf(c["bytes"]);
    const int code = c["code"];
    for (const std::size_t piece : {1u, 2u, 3u, 5u, 2048u})
      EXPECT_EQ(CodeOfReply(bytes, piece), code);
    // Broken until all that is needed of it is there, and good from then on.
    bool whole = false;
    for (std::size_t cut = 0; cut < bytes.size(); ++cut) {
      const int got = CodeOfReply(std::span(bytes).first(cut), 2048);
      whole = whole || got != kStreamFault;
      ASSERT_EQ(got, whole ? code : kStreamFault) << "cut to " << cut;
    }
  }
  const std::pair<const char*, int> kCases[] = {
      // These end where the fault ends: one byte more read would make them stream faults.
      {"cf100004 0005 720100 66 7a", kServerError},
      {"cf100009 80000000 00 720100 66 530004636f6465 4900000007 7a", kServerError},
      // An end tag is no result and no entry's value; an entry of another key is passed over.
      {"cf100004 0004 720100 7a 0000", kStreamFault},
      {"cf100004 000c 720100 66 530004636f6465 7a 0000", kStreamFault},
      {"cf100004 000a 720100 66 53000161 4e 7a 0000", kServerError},
      // Keys are compared up to a zero byte, in however many chunks they come; longer ones differ.
      {"cf100004 000f 720100 66 530006636f64650078 4e 7a 0000", kStreamFault},
      {"cf100004 0010 720100 66 730002636f 5300026465 4e 7a 0000", kStreamFault},
      {"cf100004 0011 720100 66 5300086d65737361676573 4e 7a 0000", kServerError},
      // A call or a message in a reply's place is told by its head alone.
      {"cf100004 0008 630100 6d000161 ff 0000", kServerError},
      {"cf100004 0007 630100 6d000261 0000", kStreamFault},
  };
  for (const auto& [hex, code] : kCases) EXPECT_EQ(CodeOfReply(FromHex(hex), 1), code) << hex;
}

TEST(Replies, MayBeOfAnySizeAndNestEqualKeys) {
  const auto packet = [](const Json& payload) {
    const std::size_t size = BytesOf(payload).size();
    const std::byte length[] = {std::byte(size >> 8), std::byte(size)};
    return Json{Hex(length, sizeof length), payload};
  };
  const auto reply = [&](const Json& first, const Json& repeated, int times, const Json& last) {
    Bytes bytes = BytesOf({"cf100004", packet("720100"), packet(first)});
    const Bytes middle = BytesOf(packet(repeated));
    for (int i = 0; i < times; ++i) bytes.insert(bytes.end(), middle.begin(), middle.end());
    const Bytes end = BytesOf({packet(last), "0000"});
    bytes.insert(bytes.end(), end.begin(), end.end());
    return bytes;
  };
  // Eight megabytes each, in a text and in entries of a map, and what decoding would compare.
  for (const Bytes& bytes :
       {reply("566cffffffff", {"738000", {"repeat", "61", 0x8000}}, 250,
              "530000"
              "7a"),
        reply("4d", {"repeat", "44000000000000000a4e", 6'000}, 133, "7a"),
        reply("4d", {{"repeat", "4d", 40}, "4e", {"repeat", "4e7a", 40}, "4e"}, 2, "7a"),
        reply("4d", {{"repeat", "4d", 400}, "4e", {"repeat", "4e7a", 400}, "4e"}, 2, "7a")}) {
    EXPECT_EQ(CodeOfReply(bytes, 2048), 0);
    MemoryTransport endless({bytes.begin(), bytes.end() - 3});  // without the result's end tag
    EXPECT_FALSE(QTC::ReadReply(endless));
    EXPECT_EQ(endless.position, endless.incoming.size()) << "it ends with the server only";
  }
}

TEST(Headers, AreAsTheVectorsHaveThem) {
  for (const Json& c : lumo::Vectors("framing.json", "headers")) {
    TransportHeader header;
    header.major = c["major"];
    header.minor = c["minor"];
    for (const auto& [member, list] :
         {std::pair("first", &header.first), {"second", &header.second}}) {
      for (const auto& [number, hex] : c[member].items()) {
        std::string& field = (*list)[std::stoul(number)].emplace();
        for (const std::byte byte : BytesOf(hex)) field += static_cast<char>(byte);
      }
    }
    MemoryWriter written;
    ASSERT_TRUE(header.Write(written));
    EXPECT_EQ(HexOf(written.bytes()), HexOf(BytesOf(c["bytes"])));
    MemoryReader reader(written.bytes());
    TransportHeader read;
    read.first[7] = "left from before";
    ASSERT_TRUE(read.Read(reader) && reader.remaining() == 0);
    EXPECT_TRUE(read.first == header.first && read.second == header.second);
    EXPECT_TRUE(read.major == header.major && read.minor == header.minor);
  }
  TransportHeader header;
  MemoryWriter written;
  header.second[3] = std::string(256, 'x');  // one too long
  EXPECT_TRUE(!header.Write(written) && written.size() == 0);
}

TEST(Headers, FromStrangers) {
  const std::string rest(2 * (0xFFFF - 4 - 8), '0');
  const std::pair<std::string, bool> kCases[] = {
      {"cf10000800000001", true},                   // a bit that stands for no field
      {"cf10000e 00000000 00000000 5858", true},    // bytes after both lists
      {"cf10ffff 00000000 00000000" + rest, true},  // as long as can be, hardly any of it used
      {"cf100008fffffffe", false},                  // all fields, none there
      {"cf10000b 00000002 0361 62", false},         // the last field is one byte short
      {"cf10000c 00000000 80000000", false},        // the second list has no room for its field
      {"cf10ffff", false},                          // as long as can be, nothing there
  };
  for (const auto& [hex, accepted] : kCases) {
    const Bytes bytes = FromHex(hex);
    MemoryReader reader(bytes);
    TransportHeader header;
    EXPECT_EQ(header.Read(reader) && reader.remaining() == 0, accepted) << hex.substr(0, 60);
  }
}

}  // namespace
}  // namespace TAVU::test
