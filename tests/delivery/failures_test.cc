// What the senders of an instance refuse, in which order, with which code, and what they leave.
#include <gtest/gtest.h>

#include <tuple>

#include "delivery/host.h"
#include "support/scripted_server.h"

namespace TAVU::test {
namespace {

enum class Kind { kTcp, kUdp, kUpload };
using Handle = TAVU_HANDLE;
using Text = const char*;

const wchar_t* Wide(Text text) {
  return !text ? nullptr : *text ? L"text" : L"";
}

#define SENDS(call) \
  [](Handle h, [[maybe_unused]] int n, [[maybe_unused]] Text t, Text m) { return call; }
struct {
  Text name;
  Kind kind;
  bool keeps_pin;  // on an instance without a report server
  uint32_t (*send)(Handle to, int level, Text type, Text message);  // all 32 bits of the result
} const kExports[] = {
    {"TCPA", Kind::kTcp, false, SENDS(AsForeign (&TAVU_SendLog_TCPA)(h, n, t, nullptr, m))},
    {"TCPW", Kind::kTcp, true,
     SENDS(AsForeign (&TAVU_SendLog_TCPW)(h, n, Wide(t), nullptr, Wide(m)))},
    {"UDPA", Kind::kUdp, false, SENDS(AsForeign (&TAVU_SendLog_UDPA)(h, n, t, nullptr, m))},
    {"UDPW", Kind::kUdp, false,
     SENDS(AsForeign (&TAVU_SendLog_UDPW)(h, n, Wide(t), nullptr, Wide(m)))},
    {"FileA", Kind::kUpload, false, SENDS(AsForeign (&TAVU_SendFileA)(h, 1, "x", "", m))},
    {"FileW", Kind::kUpload, false, SENDS(AsForeign (&TAVU_SendFileW)(h, 1, "x", L"", Wide(m)))},
    {"CrashInfo", Kind::kUpload, true, SENDS(AsForeign (&TAVU_SendCrashInfo)(h, m, "", "", ""))},
    {"CrashInfoW", Kind::kUpload, true,
     SENDS(AsForeign (&TAVU_SendCrashInfoW)(h, Wide(m), L"", L"", L""))},
};

TEST(Refusals, ComeInTheOrderOfTheChecks) {
  for (const auto& each : kExports) {
    SCOPED_TRACE(each.name);
    const Handle instance = TAVU_CreateA("game", "1.0.3", "Game");
    const std::tuple<int, Text, Text> bad[] = {
        {3, nullptr, "m"}, {3, "t", ""}, {-1, "t", "m"}, {8, "t", "m"}};
    for (const auto& [level, type, message] : bad) {
      if (each.kind == Kind::kUpload) break;
      ExpectFailure(each.send(nullptr, level, type, message), TAVU_ERROR_INVALID_ARGUMENT);
      ExpectFailure(each.send(instance, level, type, message), TAVU_ERROR_INVALID_ARGUMENT);
    }
    ExpectFailure(each.send(nullptr, 0, "t", "m"), TAVU_ERROR_INVALID_HANDLE);
    ExpectFailure(each.send(instance, 0, "t", "m"), TAVU_ERROR_NO_SERVER);
    ExpectFailure(each.send(instance, 7, "t", "m"), TAVU_ERROR_NO_SERVER);
    // The handle goes away with its last pin.
    EXPECT_TRUE(TAVU_Destroy(instance));
    for (int pins = each.keeps_pin ? 2 : 0; pins > 0; --pins) EXPECT_TRUE(TAVU_Destroy(instance));
    ExpectFailure(each.send(instance, 0, "t", "m"), TAVU_ERROR_INVALID_HANDLE);
  }
}

TEST(Network, ThatCannotBeReachedIsToldApart) {
  const RefusingPort refusing;
  const Instance instance(refusing.port());
  const Instance unknown(refusing.port(), "256.256.256.256");
  for (const auto& each : kExports) {
    SCOPED_TRACE(each.name);
    if (each.keeps_pin && each.kind == Kind::kUpload) continue;  // its files come first: see below
    ExpectFailure(each.send(unknown, 0, "t", "m"), TAVU_ERROR_CONNECT_FAILED);
    const uint32_t sent = each.send(instance, 0, "t", "m");
    EXPECT_EQ(sent, each.kind == Kind::kUdp ? 1u : 0u) << "nobody listens, nobody tells";
    if (sent == 0) ExpectFailure(sent, TAVU_ERROR_CONNECT_FAILED);
  }
}

TEST(Files, ThatCannotBeReadCostNoConnection) {
  ScriptedServer server;
  const Instance instance(server.port());
  const TempFile good(Bytes(1)), locked(Bytes(1));
  const HANDLE lock =
      ::CreateFileW(locked.path().c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr);
  const auto send = [&](const std::wstring& document, const std::wstring& dump) {
    return TAVU_SendCrashInfoW(instance, L"m", L"d", document.c_str(), dump.c_str());
  };
  for (const std::wstring& bad : {good.path() + L".missing", locked.path()}) {
    ExpectFailure(send(bad, good.path()), TAVU_ERROR_FILE_READ);
    ExpectFailure(send(good.path(), bad), TAVU_ERROR_FILE_READ);
  }
  ::CloseHandle(lock);
  EXPECT_TRUE(send(good.path(), locked.path()));
  EXPECT_EQ(server.WaitForConnections(1), 1u);
}

}  // namespace
}  // namespace TAVU::test
