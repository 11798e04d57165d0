// The settings and the errors of the library, seen as a host sees them: through the public header
// and the import library, nothing else.
#include <gtest/gtest.h>

#include <string>

#include "delivery/host.h"
#include "support/threads.h"

namespace {

using TAVU::test::AsForeign;
using TAVU::test::ExpectFailure;
using TAVU::test::Instance;

TEST(Create, ChecksInItsOrder) {
  const struct {
    const char* id;
    const char* version;
    const char* name;
    uint32_t code;  // 0: succeeds
  } kCases[] = {
      {"game", "Z1..2a.", "Game", 0},
      {nullptr, ".1", nullptr, TAVU_ERROR_INVALID_ARGUMENT},  // the identity before the version
      {"", "1.0", "Game", TAVU_ERROR_INVALID_ARGUMENT},
      {"game", ".1", nullptr, TAVU_ERROR_BAD_VERSION},  // the version before the name
      {"game", nullptr, "Game", TAVU_ERROR_BAD_VERSION},
      {"game", "", "Game", TAVU_ERROR_BAD_VERSION},
      {"game", "1-0", "Game", TAVU_ERROR_BAD_VERSION},
      {"game", "1\xE9", "Game", TAVU_ERROR_BAD_VERSION},  // a letter in many a locale
      {"game", "1.0", "", TAVU_ERROR_INVALID_ARGUMENT},
  };
  for (const auto& [id, version, name, code] : kCases) {
    SCOPED_TRACE(version != nullptr ? version : "null");
    TAVU_HANDLE handle = TAVU_CreateA(id, version, name);
    if (code != 0) ExpectFailure(handle != nullptr, code);
    EXPECT_EQ(TAVU_Destroy(handle), code == 0);
  }
  // 16-bit units whose low byte is a letter or a full stop are neither.
  for (const wchar_t* version : {L"\x0141", L"1\x012E"}) {
    ExpectFailure(TAVU_CreateW(L"game", version, L"Game") != nullptr, TAVU_ERROR_BAD_VERSION);
  }
}

char narrow[64];
wchar_t wide[64];
uint16_t port;

struct Call {
  const char* name;
  uint32_t (*run)(TAVU_HANDLE);  // with all 32 bits of the result
};
#define CALL(function, ...)                                                              \
  Call {                                                                                 \
#function " " #__VA_ARGS__,                                                          \
        [](TAVU_HANDLE h) { return AsForeign(&function)(h __VA_OPT__(, ) __VA_ARGS__); } \
  }

TEST(Arguments, AreCheckedBeforeTheHandle) {
  const Call kCalls[] = {
      CALL(TAVU_SetReportServerA, nullptr, 80),
      CALL(TAVU_SetReportServerW, L"", 80),
      CALL(TAVU_SetReportServerA, "10.9.9.9", 0),
      CALL(TAVU_GetReportServerA, nullptr, narrow, 64),
      CALL(TAVU_GetReportServerW, &port, nullptr, 64),
      CALL(TAVU_GetReportServerA, &port, narrow, 0),
      CALL(TAVU_GetReportServerW, &port, wide, INT32_MIN),
      CALL(TAVU_SetUserIDA, nullptr),
      CALL(TAVU_SetUserIDW, L""),
      CALL(TAVU_GetUserIDA, nullptr, 64),
      CALL(TAVU_GetUserIDW, wide, 0),
      CALL(TAVU_SetTimeout, 0),
      CALL(TAVU_SetTimeout, -5),
      CALL(TAVU_SetAppRestartA, 2, ""),
      CALL(TAVU_SetAppRestartW, 0x80, nullptr),
  };
  const Instance instance(0);
  ASSERT_TRUE(TAVU_SetReportServerA(instance, "10.0.0.1", 8080));
  ASSERT_TRUE(TAVU_SetUserIDA(instance, "kim"));
  for (const Call& call : kCalls) {
    SCOPED_TRACE(call.name);
    ExpectFailure(call.run(instance), TAVU_ERROR_INVALID_ARGUMENT);
    ExpectFailure(call.run(nullptr), TAVU_ERROR_INVALID_ARGUMENT);
  }
  // None of the failures changed a setting.
  EXPECT_TRUE(TAVU_GetReportServerA(instance, &port, narrow, 64));
  EXPECT_STREQ(narrow, "10.0.0.1");
  EXPECT_EQ(port, 8080);
  EXPECT_TRUE(TAVU_GetUserIDW(instance, wide, 64));
  EXPECT_STREQ(wide, L"kim");
}

TEST(Handles, AreCheckedByEveryExport) {
  // In this order each succeeds on a fresh instance; the last one gives it up.
  const Call kCalls[] = {
      CALL(TAVU_SetReportServerA, "10.0.0.1", 80),
      CALL(TAVU_GetReportServerW, &port, wide, 64),
      CALL(TAVU_SetUserIDW, L"kim"),
      CALL(TAVU_GetUserIDA, narrow, UINT32_MAX),
      CALL(TAVU_SetTimeout, 1),
      CALL(TAVU_SetAutoReport, true),
      CALL(TAVU_DeleteLocalDumpFile, false),
      CALL(TAVU_SetReporterLanguage, UINT32_MAX),
      CALL(TAVU_SetAppRestartA, false, nullptr),
      CALL(TAVU_SetAppRestartW, 0xFF, L"game.exe -again"),
      CALL(TAVU_SetCustumCrashReporterPathA, nullptr),
      CALL(TAVU_SetCustumInfoCallbackA, nullptr),
      CALL(TAVU_SetCustumInfoCallbackW, nullptr),
      CALL(TAVU_UpdateAdditionalCrashInfoA, std::string(5000, 'x').c_str()),
      CALL(TAVU_UpdateAdditionalCrashInfoW, std::wstring(5000, L'x').c_str()),
      CALL(TAVU_StartCrashHandler),
      CALL(TAVU_StopCrashHandler),
      CALL(TAVU_Destroy),
  };
  TAVU_HANDLE fresh = TAVU_CreateW(L"game", L"1.0", L"Game");
  const TAVU_HANDLE other = TAVU_CreateW(L"game", L"1.0", L"Game");  // the same identity again
  EXPECT_NE(fresh, other);
  EXPECT_TRUE(TAVU_Destroy(other));
  for (const Call& call : kCalls) {
    SCOPED_TRACE(call.name);
    for (TAVU_HANDLE bad : {TAVU_HANDLE{}, reinterpret_cast<TAVU_HANDLE>(0x123450), other}) {
      TAVU_SetTimeout(fresh, 0);  // leaves another code
      ExpectFailure(call.run(bad), TAVU_ERROR_INVALID_HANDLE);
    }
    EXPECT_EQ(call.run(fresh), 1u);
  }
  EXPECT_FALSE(TAVU_Destroy(fresh)) << "a second time";
}

TEST(Getters, FillTheHostsBuffer) {
  const Instance instance(0);
  const auto get = [&](bool user, bool as_wide, int32_t n) {
    if (user) {
      return as_wide ? TAVU_GetUserIDW(instance, wide, uint32_t(n))
                     : TAVU_GetUserIDA(instance, narrow, uint32_t(n));
    }
    return as_wide ? TAVU_GetReportServerW(instance, &port, wide, n)
                   : TAVU_GetReportServerA(instance, &port, narrow, n);
  };
  ExpectFailure(get(false, false, 1), TAVU_ERROR_NO_SERVER);  // goes before the capacity
  ExpectFailure(get(true, true, 1), TAVU_ERROR_NO_USER_ID);
  ASSERT_TRUE(TAVU_SetReportServerW(instance, L"h\u00f4te.fr", 65535));
  ASSERT_TRUE(TAVU_SetUserIDA(instance, "Zo\xEB \x80"));  // in code page 1252: e diaeresis, euro
  const struct {
    bool user;
    int32_t capacity;
    const char* narrow;  // "before": refused
    const wchar_t* wide;
  } kCases[] = {
      {false, 6, "before", L"before"},
      {false, 7, "h\xF4te.f", L""},  // the copies differ where the terminator finds no room
      {false, 8, "h\xF4te.fr", L"h\u00f4te.fr"},
      {true, 4, "before", L"before"},
      {true, 5, "Zo\xEB ", L"Zo\u00eb "},  // cut, and still a success
      {true, 6, "Zo\xEB \x80", L"Zo\u00eb \u20ac"},
  };
  for (const auto& [user, capacity, expected, expected_wide] : kCases) {
    SCOPED_TRACE(testing::Message() << user << ", " << capacity);
    strcpy(narrow, "before");
    wcscpy(wide, L"before");
    port = 1;
    for (const bool as_wide : {false, true}) {
      const bool got = get(user, as_wide, capacity);
      EXPECT_EQ(got, expected != std::string("before"));
      if (!got) ExpectFailure(got, TAVU_ERROR_INVALID_ARGUMENT);
      EXPECT_EQ(port, got && !user ? 65535 : 1);
    }
    EXPECT_STREQ(narrow, expected);
    EXPECT_STREQ(wide, expected_wide);
  }
  // Kept as UTF-16: what the code page does not know is lost in the 8-bit getter only.
  ASSERT_TRUE(TAVU_SetUserIDW(instance, L"\u5f20 \xD83D\xDE00"));
  EXPECT_TRUE(get(true, true, 64) && get(true, false, 64));
  EXPECT_STREQ(wide, L"\u5f20 \xD83D\xDE00");
  EXPECT_EQ(narrow[0], '?');
}

TEST(LastError, BelongsToItsThreadAndSurvivesSuccess) {
  const Instance instance(0);
  EXPECT_FALSE(TAVU_SetTimeout(instance, 0));
  EXPECT_TRUE(TAVU_SetTimeout(instance, 1));
  TAVU::test::Thread([] {
    EXPECT_EQ(TAVU_GetLastError(), 0u);
    TAVU_Destroy(nullptr);
  });
  SetLastError(1234);  // the system's own
  EXPECT_EQ(TAVU_GetLastError(), uint32_t{TAVU_ERROR_INVALID_ARGUMENT});
  EXPECT_EQ(GetLastError(), 1234u);
}

// The record outlives its destruction, once, when the start fails for want of the host's paths.
TEST(Pins, StayAfterAFailedStart) {
  TAVU_HANDLE handle = TAVU_CreateA("game", "1.0", "Game");
  wchar_t saved[MAX_PATH] = {};
  GetEnvironmentVariableW(L"TMP", saved, MAX_PATH);
  SetEnvironmentVariableW(L"TMP", std::wstring(400, L'x').c_str());  // no temporary folder
  ExpectFailure(TAVU_StartCrashHandler(handle), TAVU_ERROR_MODULE_PATH);
  SetEnvironmentVariableW(L"TMP", saved);
  EXPECT_TRUE(TAVU_Destroy(handle));
  EXPECT_TRUE(TAVU_SetTimeout(handle, 5)) << "still there";
  EXPECT_TRUE(TAVU_Destroy(handle));
  EXPECT_FALSE(TAVU_Destroy(handle));
}

}  // namespace
