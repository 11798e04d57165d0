// Requests, replies and headers against the reference vectors, natively under sanitizers: in both
// directions, in pieces of every size, cut and damaged at every byte.
#include "net/exchange.h"

#include <gtest/gtest.h>

#include "lumo/big_int.h"
#include "lumo/list.h"
#include "lumo/map.h"
#include "lumo/memory_reader.h"
#include "lumo/memory_writer.h"
#include "lumo/thread_error.h"
#include "net/memory_transport.h"
#include "net/packet_stream.h"
#include "net/transport_header.h"
#include "support/vectors.h"

namespace TAVU::test {
namespace {

using lumo::MemoryReader;
using lumo::MemoryWriter;
using lumo::Value;
using QTC::Carrier;
using QTC::Message;
using QTC::MessageKind;
using QTC::TransportHeader;

using Bytes = std::vector<std::byte>;

std::string HexOf(std::span<const std::byte> bytes) {
  return Hex(bytes.data(), bytes.size());
}
std::string HexOf(const MemoryWriter& writer) {
  return HexOf(writer.bytes());
}

// Hexadecimal digits with spaces where they help reading.
Bytes FromHex(std::string digits) {
  std::erase(digits, ' ');
  return BytesOf(digits);
}

Json VectorsOf(const char* file, const char* member) {
  return LoadVectors(file)[member];
}

constexpr int kSuccess = 0;
constexpr int kServerError = 12289;
constexpr int kStreamFault = 12291;

int CodeOfReply(const Bytes& bytes, std::size_t piece) {
  MemoryTransport transport(bytes, piece);
  Message reply;
  if (!QTC::ReadReply(transport, reply)) return kStreamFault;
  return reply.kind == MessageKind::kReply && !reply.is_fault ? kSuccess : kServerError;
}

bool IsRequest(const Bytes& bytes) {
  MemoryReader reader(bytes);
  Message request;
  Value argument;
  return QTC::ReadRequest(reader, request, argument);
}

TEST(Requests, AreWrittenAsTheVectorsHaveThem) {
  for (const Json& c : VectorsOf("framing.json", "requests")) {
    SCOPED_TRACE(c["name"].get<std::string>());
    const auto method = c["method"].get<std::string>();
    const Value argument = ValueOf(c["argument"]);
    const Bytes expected = BytesOf(c["bytes"]);

    MemoryTransport datagrams;
    ASSERT_TRUE(QTC::WriteRequest(datagrams, method, argument, Carrier::kDatagrams));
    EXPECT_EQ(HexOf(datagrams.Sent()), HexOf(expected));
    Json sizes = Json::array();
    for (const Bytes& send : datagrams.sends) sizes.push_back(send.size());
    EXPECT_EQ(sizes, c["datagrams"]);

    MemoryTransport stream;
    ASSERT_TRUE(QTC::WriteRequest(stream, method, argument, Carrier::kStream));
    EXPECT_EQ(HexOf(stream.Sent()), HexOf(expected));
    EXPECT_EQ(stream.sends.size(), 1u);

    MemoryReader reader(expected);
    Message request;
    Value read;
    ASSERT_TRUE(QTC::ReadRequest(reader, request, read));
    EXPECT_EQ(request.method, method);
    EXPECT_EQ(lumo::Compare(read, argument), 0);
    EXPECT_EQ(reader.remaining(), 0u);
  }
}

TEST(Requests, ThatAreDamagedAreRefused) {
  struct Case {
    const char* what;
    const char* hex;
    bool accepted;
  };
  const Case cases[] = {
      {"in packets", "cf100004 0009 630100 6d000161 4e 7a 0000", true},
      {"without packets", "cf10000980000000 00 630100 6d000161 4e 7a", true},
      {"no end packet", "cf100004 0009 630100 6d000161 4e 7a", false},
      {"another packet instead of the end packet", "cf100004 0009 630100 6d000161 4e 7a 0001 7a",
       false},
      {"bytes between end tag and end packet", "cf100004 000a 630100 6d000161 4e 7a 7a 0000",
       false},
      {"two arguments", "cf100004 000a 630100 6d000161 4e 4e 7a 0000", false},
      {"no argument", "cf100004 0008 630100 6d000161 7a 0000", false},
      {"no argument, two end tags", "cf100004 0009 630100 6d000161 7a 7a 0000", false},
      {"a reply", "cf100004 0005 720100 4e 7a 0000", false},
      {"a message", "cf100004 0005 6d0100 4e 7a 0000", false},
      {"a name longer than all", "cf100004 0009 630100 6dffff61 4e 7a 0000", false},
  };
  for (const Case& c : cases) {
    const Bytes bytes = FromHex(c.hex);
    EXPECT_EQ(IsRequest(bytes), c.accepted) << c.what;
    for (std::size_t cut = 0; cut < bytes.size(); ++cut) {
      EXPECT_FALSE(IsRequest({bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(cut)}))
          << c.what << ", cut to " << cut;
    }
    // Whatever a damaged byte makes of it: no overrun (the sanitizers watch), no refusal to end.
    for (std::size_t at = 0; at < bytes.size(); ++at) {
      for (int value = 0; value < 256; ++value) {
        Bytes damaged = bytes;
        damaged[at] = static_cast<std::byte>(value);
        static_cast<void>(IsRequest(damaged));
        static_cast<void>(CodeOfReply(damaged, 3));
      }
    }
  }
}

TEST(Requests, CountAsWrittenUpToTheLastPacket) {
  const Bytes block(5'000'000);
  struct Case {
    Carrier carrier;
    std::size_t size;  // of the argument
    std::size_t good_sends;
    std::ptrdiff_t bad_send;
    bool written;
    std::uint32_t thread_error;
  };
  const Case cases[] = {
      // Fits into the buffers: its only send comes at the end.
      {Carrier::kDatagrams, 10, 0, -1, true, 7},
      {Carrier::kDatagrams, 10, 0, 0, true, 109},
      {Carrier::kDatagrams, 2000, 0, -1, true, 7},
      {Carrier::kDatagrams, 5000, 0, -1, false, 7},
      {Carrier::kDatagrams, 5000, 0, 0, false, 109},
      {Carrier::kDatagrams, 5000, 1, -1, false, 7},
      {Carrier::kDatagrams, 5000, 2, -1, true, 7},  // only the last send fails
      {Carrier::kStream, 10, 0, 0, true, 109},
      {Carrier::kStream, 1'000'000, 0, -1, true, 7},
      {Carrier::kStream, 5'000'000, 0, -1, false, 7},
      {Carrier::kStream, 5'000'000, 0, 0, false, 109},
      {Carrier::kStream, 5'000'000, 4, -1, true, 7},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::Message() << c.size << " bytes, sends " << c.good_sends);
    MemoryTransport transport;
    transport.good_sends = c.good_sends;
    transport.bad_send = c.bad_send;
    lumo::SetThreadError(7);
    const Value argument = Value::BorrowBinary(std::span(block).first(c.size));
    EXPECT_EQ(QTC::WriteRequest(transport, "tavu_server", argument, c.carrier), c.written);
    EXPECT_EQ(lumo::GetThreadError(), c.thread_error);
    EXPECT_EQ(transport.sends.size(), c.good_sends);
  }
}

// Texts and binaries of all sizes around those that are borrowed, chunked or cut into packets.
TEST(Requests, AreTheSameOnBothCarriers) {
  Bytes block(2'000'000);
  for (std::size_t i = 0; i < block.size(); ++i) block[i] = static_cast<std::byte>(i * 7 / 3);
  lumo::List list;
  for (const std::size_t size : {0u, 1u, 1023u, 1024u, 1025u, 2047u, 2048u, 2049u, 4095u, 4096u,
                                 32767u, 32768u, 32769u, 65536u, 1048576u, 2000000u}) {
    list.Append(Value::BorrowBinary(std::span(block).first(size)));
    for (int i = 0; i < 300; ++i) list.Append(Value::Int(i));
  }
  const Value argument = Value::BorrowList(list);
  MemoryTransport datagrams;
  MemoryTransport stream;
  ASSERT_TRUE(QTC::WriteRequest(datagrams, "tavu_server", argument, Carrier::kDatagrams));
  ASSERT_TRUE(QTC::WriteRequest(stream, "tavu_server", argument, Carrier::kStream));
  const Bytes sent = stream.Sent();
  EXPECT_TRUE(sent == datagrams.Sent());
  EXPECT_LE(stream.most_pieces, 1024u);
  EXPECT_LE(stream.sends.size(), 4u);

  MemoryReader reader(sent);
  Message request;
  Value read;
  ASSERT_TRUE(QTC::ReadRequest(reader, request, read));
  EXPECT_EQ(lumo::Compare(read, argument), 0);
}

TEST(Requests, WithAnArgumentThatHasNoEncodingFailAndAreStillClosed) {
  MemoryTransport transport;
  EXPECT_FALSE(QTC::WriteRequest(transport, "tavu_server",
                                 Value::AdoptBigInt(std::make_unique<lumo::BigInt>(5)),
                                 Carrier::kStream));
  EXPECT_EQ(HexOf(transport.Sent()), "cf1000040000");
}

TEST(Packets, AreNotTakenBehindTheEndPacket) {
  MemoryWriter connection;
  QTC::PacketWriter writer(connection);
  ASSERT_TRUE(writer.WriteByte('x'));
  ASSERT_TRUE(writer.Flush());
  ASSERT_TRUE(writer.Close());
  lumo::SetThreadError(0);
  EXPECT_FALSE(writer.WriteByte('y'));
  EXPECT_EQ(lumo::GetThreadError(), lumo::kErrorBrokenPipe);
  EXPECT_EQ(HexOf(connection), "0001780000");
}

TEST(Replies, GiveTheirCodesInPiecesOfAnySize) {
  for (const Json& c : VectorsOf("replies.json", "replies")) {
    SCOPED_TRACE(c["name"].get<std::string>());
    const Bytes bytes = BytesOf(c["bytes"]);
    const int code = c["code"].get<int>();
    for (const std::size_t piece : {1u, 2u, 3u, 5u, 2048u})
      EXPECT_EQ(CodeOfReply(bytes, piece), code);

    // Cut anywhere, a reply is broken until all that is needed of it is there, and good from then on.
    bool whole = false;
    for (std::size_t cut = 0; cut < bytes.size(); ++cut) {
      const Bytes part(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(cut));
      const int got = CodeOfReply(part, 2048);
      whole = whole || got != kStreamFault;
      ASSERT_EQ(got, whole ? code : kStreamFault) << "cut to " << cut;
    }
  }
}

TEST(Replies, AnswerAFaultAtItsEndTagWithoutWaitingForMore) {
  // These end where the fault ends: one byte more read would make them stream faults.
  EXPECT_EQ(CodeOfReply(FromHex("cf100004 0005 720100 66 7a"), 1), kServerError);
  EXPECT_EQ(CodeOfReply(FromHex("cf100009 80000000 00 720100 66 530004636f6465 4900000007 7a"), 1),
            kServerError);
  // An end tag is no result and no entry's value; an entry of another key is passed over.
  EXPECT_EQ(CodeOfReply(FromHex("cf100004 0004 720100 7a 0000"), 1), kStreamFault);
  EXPECT_EQ(CodeOfReply(FromHex("cf100004 000c 720100 66 530004636f6465 7a 0000"), 1),
            kStreamFault);
  EXPECT_EQ(CodeOfReply(FromHex("cf100004 000a 720100 66 53000161 4e 7a 0000"), 1), kServerError);
}

TEST(Replies, KeepTheEntriesOfAFault) {
  for (const Json& c : VectorsOf("replies.json", "replies")) {
    if (c["name"] != "fault") continue;
    MemoryTransport transport(BytesOf(c["bytes"]));
    Message reply;
    ASSERT_TRUE(QTC::ReadReply(transport, reply));
    EXPECT_EQ(reply.fault.code, 7);
    EXPECT_EQ(reply.fault.message.text(), "no");
    EXPECT_EQ(reply.fault.detail.map().size(), 1u);

    MemoryWriter written;  // and back: the vector shows the ending that every reader understands
    ASSERT_TRUE(QTC::WriteFaultReply(written, reply.fault));
    EXPECT_EQ(HexOf(written), HexOf(BytesOf(c["bytes"])));
  }
}

TEST(Replies, AreWrittenForReadersOfEitherHabit) {
  MemoryWriter result;
  ASSERT_TRUE(QTC::WriteResultReply(result, Value::BorrowString("fine")));
  EXPECT_EQ(HexOf(result), "cf100004000b72010053000466696e657a0000");

  MemoryWriter fault;  // without a message: an empty one, because readers require a string
  ASSERT_TRUE(QTC::WriteFaultReply(fault, {.code = -1, .message = {}, .detail = {}}));
  EXPECT_EQ(HexOf(fault), HexOf(FromHex("cf100004 002a 720100 66 530004636f6465 49ffffffff"
                                        "5300076d657373616765 530000 53000664657461696c 4e 7a"
                                        "4e 7a 0000")));
}

TEST(Headers, AreAsTheVectorsHaveThem) {
  for (const Json& c : VectorsOf("framing.json", "headers")) {
    TransportHeader header;
    header.major = c["major"].get<std::uint8_t>();
    header.minor = c["minor"].get<std::uint8_t>();
    const auto fill = [](const Json& fields, TransportHeader::FieldList& list) {
      for (const auto& [number, hex] : fields.items()) {
        const Bytes bytes = BytesOf(hex);
        std::string& field = list[std::stoul(number)].emplace();
        for (const std::byte byte : bytes) field += static_cast<char>(byte);
      }
    };
    fill(c["first"], header.first);
    fill(c["second"], header.second);
    MemoryWriter written;
    ASSERT_TRUE(header.Write(written));
    EXPECT_EQ(HexOf(written), HexOf(BytesOf(c["bytes"])));

    MemoryReader reader(written.bytes());
    TransportHeader read;
    read.first[7] = "left from before";
    ASSERT_TRUE(read.Read(reader));
    EXPECT_EQ(read.first, header.first);
    EXPECT_EQ(read.second, header.second);
    EXPECT_EQ(reader.remaining(), 0u);
  }
}

TEST(Headers, FromStrangers) {
  const std::string rest(2 * (0xFFFF - 4 - 8), '0');
  struct Case {
    const char* what;
    std::string hex;
    bool accepted;
  };
  const Case cases[] = {
      {"bit that stands for no field", "cf10000800000001", true},
      {"bytes behind both lists", "cf10000e 00000000 00000000 5858", true},
      {"as long as can be, hardly any of it used", "cf10ffff 00000000 00000000" + rest, true},
      {"all fields, none there", "cf100008fffffffe", false},
      {"last field one byte short", "cf10000b 00000002 0361 62", false},
      {"second list with a field and no room for it", "cf10000c 00000000 80000000", false},
      {"as long as can be, nothing there", "cf10ffff", false},
  };
  for (const Case& c : cases) {
    const Bytes bytes = FromHex(c.hex);
    MemoryReader reader(bytes);
    TransportHeader header;
    EXPECT_EQ(header.Read(reader), c.accepted) << c.what;
    if (c.accepted) EXPECT_EQ(reader.remaining(), 0u) << c.what;
  }
}

TEST(Headers, WithAFieldThatIsTooLongAreNotWritten) {
  for (const std::size_t size : {255u, 256u}) {
    TransportHeader header;
    header.second[3] = std::string(size, 'x');
    MemoryWriter written;
    EXPECT_EQ(header.Write(written), size == 255);
    if (size == 256) EXPECT_EQ(written.size(), 0u);
  }
}

}  // namespace
}  // namespace TAVU::test
