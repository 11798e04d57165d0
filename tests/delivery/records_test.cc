// Every byte that the exports put on the wire.
#include <gtest/gtest.h>

#include <map>

#include "delivery/host.h"
#include "support/scripted_server.h"
#include "support/vectors.h"

namespace TAVU::test {
namespace {

// The texts that a reference case gives, in one of the two forms; null for one that it does not.
template <typename Unit>
struct Texts {
  explicit Texts(const Json& given) {
    for (const auto& [name, member] : given.items()) {
      if (!member.is_string() && !(member.is_array() && member[0] == "repeat")) continue;
      const auto converted = FromUtf8<Unit>(TextOf(member));
      if (!converted) representable = false;
      texts[name] = converted.value_or(std::basic_string<Unit>());
    }
  }
  const Unit* operator[](const std::string& name) const {
    return texts.contains(name) ? texts.at(name).c_str() : nullptr;
  }

  std::map<std::string, std::basic_string<Unit>> texts;
  bool representable = true;
};

template <typename Unit>
bool Send(const std::string& kind, const Json& given, const Texts<Unit>& text, std::uint16_t port) {
  if (kind == "luadump") {
    const TAVU_LUADUMP_SENDER sender = TAVU_LUADUMP_Create("127.0.0.1", port, false);
    const bool sent = Form<Unit>(&TAVU_LUADUMP_SendLuaDumpA, &TAVU_LUADUMP_SendLuaDumpW)(
        sender, given["dump_number"], std::stoll(given["software_id_number"].get<std::string>()),
        given["software_ver_number"], text["message"], text["dump"], text["user"], text["extra"]);
    return TAVU_LUADUMP_Destroy(sender) && sent;
  }
  const TAVU_HANDLE instance = Form<Unit>(&TAVU_CreateA, &TAVU_CreateW)(
      text["software_id"], text["software_ver"], text["software_id"]);
  TAVU_SetReportServerA(instance, "127.0.0.1", port);
  if (text["user_id"]) Form<Unit>(&TAVU_SetUserIDA, &TAVU_SetUserIDW)(instance, text["user_id"]);
  bool sent = false;
  if (kind == "file") {
    const auto data = BytesOf(given["data"]);
    sent = Form<Unit>(&TAVU_SendFileA, &TAVU_SendFileW)(instance, data.size(), data.data(),
                                                        text["description"], text["message"]);
  } else if (kind == "crash") {
    const TempFile document(BytesOf(given["document"]));
    const TempFile dump(BytesOf(given["dump"]));
    sent = Form<Unit>(&TAVU_SendCrashInfo, &TAVU_SendCrashInfoW)(
        instance, text["message"], text["description"], document.path<Unit>().c_str(),
        dump.path<Unit>().c_str());
  } else {
    const auto tcp = Form<Unit>(&TAVU_SendLog_TCPA, &TAVU_SendLog_TCPW);
    const auto udp = Form<Unit>(&TAVU_SendLog_UDPA, &TAVU_SendLog_UDPW);
    sent = (kind == "log" ? tcp : udp)(instance, given["level"], text["log_type"], text["extra"],
                                       text["message"]);
  }
  return TAVU_Destroy(instance) && sent;
}

template <typename Unit>
void CheckCase(const Json& vector) {
  const Json& given = vector["given"];
  const Texts<Unit> text(given);
  if (!text.representable) return;
  const Bytes expected = BytesOf(vector["request"]);

  ScriptedServer server;
  EXPECT_TRUE(Send(vector["kind"], given, text, server.port()));
  EXPECT_TRUE(server.WaitForRequests(1) == std::vector<Bytes>{expected});
  if (vector["kind"] != "log") return;

  DatagramServer datagrams;
  EXPECT_TRUE(Send("log over UDP", given, text, datagrams.port()));
  const auto sizes = vector["datagrams"].get<std::vector<std::size_t>>();
  std::vector<std::size_t> received;
  Bytes joined;
  for (const Bytes& datagram : datagrams.WaitForDatagrams(sizes.size())) {
    received.push_back(datagram.size());
    joined.insert(joined.end(), datagram.begin(), datagram.end());
  }
  EXPECT_EQ(received, sizes);
  EXPECT_TRUE(joined == expected);
}

TEST(Records, AreAsTheReferenceHasThem) {
  const Json vectors = LoadVectors("records.json");
  for (const Json& vector : vectors["cases"]) {
    // No connection from here gives an instance another address: see senders_test.cc.
    if (vector["given"].value("local_address", "127.0.0.1") != "127.0.0.1") continue;
    SCOPED_TRACE(vector["name"]);
    CheckCase<wchar_t>(vector);
    CheckCase<char>(vector);
  }
}

// The request for a file, framed by hand.
Bytes FileRequest(const std::string& content) {
  const auto raw = [](const char* hex) {
    const Bytes bytes = BytesOf(hex);
    return std::string(reinterpret_cast<const char*>(bytes.data()), bytes.size());
  };
  const auto number = [](std::size_t size) {
    return std::string{static_cast<char>(size >> 8), static_cast<char>(size)};
  };
  std::string body = raw(
      "6301006d000b746176755f7365727665724d49000000075300093132372e302e302e314900000002530005312e30"
      "2e33490000006653000d3c726f6f743e3c2f726f6f743e4900000000530001304900000006530000490000000553"
      "0001314900000065530001644900000067");
  std::size_t at = 0;
  for (; content.size() - at > 32768; at += 32768)
    body += raw("628000") + content.substr(at, 32768);
  body += 'B' + number(content.size() - at) + content.substr(at);
  body += raw(
      "49000000085300016d490000000153000467616d65490000000453000a637573746f6d66696c6549000000035300"
      "01357a7a");
  std::string request = raw("cf100004");
  for (at = 0; at < body.size(); at += 2048) {
    const std::string packet = body.substr(at, 2048);
    request += number(packet.size()) + packet;
  }
  request += number(0);
  const auto bytes = std::as_bytes(std::span(request));
  return {bytes.begin(), bytes.end()};
}

TEST(Records, OfFilesAreCutWhereChunksAndPacketsEnd) {
  ScriptedServer server;
  const Instance instance(server.port());
  const std::size_t frame = FileRequest("").size() - 8;  // of the body, without the content
  std::vector<Bytes> expected;
  for (const std::size_t size :
       {std::size_t{0}, 2047 - frame, 2048 - frame, 2049 - frame, std::size_t{32767},
        std::size_t{32768}, std::size_t{32769}, std::size_t{65536}, std::size_t{64} << 20}) {
    std::string content(size, '\0');
    for (std::size_t i = 0; i < size; ++i) content[i] = static_cast<char>(i * 7 + i / 251);
    EXPECT_TRUE(TAVU_SendFileA(instance, size, content.data(), "d", "m"));
    expected.push_back(FileRequest(content));
    EXPECT_TRUE(server.WaitForRequests(expected.size()) == expected) << size;
  }
  // No block at all is a binary without bytes too.
  EXPECT_TRUE(TAVU_SendFileW(instance, 0, nullptr, L"d", L"m"));
  EXPECT_TRUE(server.WaitForRequests(expected.size() + 1).back() == expected.front());
}

}  // namespace
}  // namespace TAVU::test
