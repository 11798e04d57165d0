// Every byte that the exports put on the wire.
#include <gtest/gtest.h>

#include <map>

#include "delivery/host.h"
#include "support/scripted_server.h"
#include "support/vectors.h"

namespace TAVU::test {
namespace {

// The form of an export for texts of `Unit`.
template <typename Unit, typename FormA, typename FormW>
auto Form(FormA a, FormW w) {
  if constexpr (sizeof(Unit) == 1) {
    return a;
  } else {
    return w;
  }
}

// The texts that a reference case gives, in one of the two forms; null for one that it does not.
template <typename Unit>
struct Texts {
  explicit Texts(const Json& given) {
    for (const auto& [name, member] : given.items()) {
      if (!member.is_string() && !(member.is_array() && member[0] == "repeat")) continue;
      const std::string utf8 = TextOf(member);
      const auto size = static_cast<int>(utf8.size());
      std::wstring wide(utf8.size(), 0);
      wide.resize(static_cast<std::size_t>(
          ::MultiByteToWideChar(CP_UTF8, 0, utf8.data(), size, wide.data(), size)));
      for (const wchar_t unit : wide) fits = fits && (sizeof(Unit) == 2 || unit < 0x100);
      texts[name].assign(wide.begin(), wide.end());
    }
  }
  const Unit* operator[](const std::string& name) const {
    return texts.contains(name) ? texts.at(name).c_str() : nullptr;
  }

  std::map<std::string, std::basic_string<Unit>> texts;
  bool fits = true;  // Latin-1 at the most, in the 8-bit form
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
  if (!text.fits) return;
  const Bytes expected = BytesOf(vector["request"]);

  ScriptedServer server;
  EXPECT_TRUE(Send(vector["kind"], given, text, server.port()));
  EXPECT_TRUE(server.WaitForRequests(1) == std::vector<Bytes>{expected});
  if (vector["kind"] != "log") return;

  EXPECT_TRUE(Send("log over UDP", given, text, server.port()));
  const auto sizes = vector["datagrams"].get<std::vector<std::size_t>>();
  std::vector<std::size_t> received;
  Bytes joined;
  for (const Bytes& datagram : server.WaitForDatagrams(sizes.size())) {
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

}  // namespace
}  // namespace TAVU::test
