// Exports when memory runs out, at each allocation that they make in turn: they fail, say so, leave
// everything as it was, and hold neither lock nor instance. The library is linked into the program,
// whose malloc (and operator new upon it) can fail on one thread.
#include <gtest/gtest.h>

#include <functional>
#include <tuple>

#include "api/frame/instance_record.h"
#include "api/frame/last_error.h"
#include "crash/crash_handler.h"
#include "delivery/host.h"
#include "support/scripted_server.h"

struct {
  DWORD thread = 0;
  int countdown = 0;  // 1: the next one fails
} failing;

template <typename Function, typename... Arguments>
void* Allocate(const char* name, Arguments... arguments) {
  if (GetCurrentThreadId() == failing.thread && --failing.countdown == 0) return nullptr;
  const auto real = reinterpret_cast<Function*>(
      reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(L"msvcrt"), name)));
  return real(arguments...);
}
extern "C" void* malloc(std::size_t size) {
  return Allocate<decltype(malloc)>("malloc", size);
}
extern "C" void* realloc(void* block, std::size_t size) {
  return Allocate<decltype(realloc)>("realloc", block, size);
}

namespace {

using namespace TAVU::test;

// Longer than what a string holds without an allocation.
constexpr const char* kLong = "0123456789012345678901234567890123456789";
constexpr const wchar_t* kLongWide = L"0123456789012345678901234567890123456789";

// All that exports change of an instance and of the crash handler.
auto StateOf(TAVU_HANDLE handle) {
  const auto& record = *reinterpret_cast<const TAVU::api::InstanceRecord*>(handle);
  const auto& crash = TAVU::crash::CrashHandler::Get(TAVU::api::ApiLock::Guard());
  return std::tuple(record.serverHost, record.serverPort, record.userIdEncoded, record.userId,
                    record.appRestart, record.appExecuteCmd, record.refCount.load(),
                    crash.reporterPath, crash.appExeFile, crash.files.dumpPath(),
                    crash.installation.owner());
}

// Calls with the first allocation failing, then with the second, until a call makes fewer; `failed`
// looks at each call that fails. Gives how many allocations there are.
int FailEachAllocation(const std::function<bool()>& call, const std::function<void()>& failed) {
  for (int nth = 1;; ++nth) {
    failing = {::GetCurrentThreadId(), nth};
    const bool done = call();
    const bool reached = failing.countdown <= 0;
    failing = {};
    if (!reached) {
      EXPECT_TRUE(done);
      return nth - 1;
    }
    if (!done) failed();
  }
}

// First, while nothing of the library is made: neither asks for memory, and so neither can fail for
// want of it.
TEST(ExhaustedMemory, DestroysAnInstanceAllTheSame) {
  ASSERT_TRUE(TAVU::api::LastErrorSlot::AttachProcess());  // as the library's entry point does
  failing = {::GetCurrentThreadId(), 1};
  const auto unknown = TAVU_Destroy(reinterpret_cast<TAVU_HANDLE>(&failing));
  EXPECT_EQ(TAVU_GetLastError(), uint32_t{TAVU_ERROR_INVALID_HANDLE});
  failing = {};
  const TAVU_HANDLE handle = TAVU_CreateA("game", "1.0", "Game");
  failing = {::GetCurrentThreadId(), 1};
  const auto destroyed = TAVU_Destroy(handle);
  failing = {};
  EXPECT_EQ(unknown, 0);
  EXPECT_EQ(destroyed, 1);
}

// Of each export one form: both are made of the same code.
TEST(ExhaustedMemory, ChangesNothing) {
  ScriptedServer server;
  const TempFile file(BytesOfText("abcdef"));
  const std::wstring path = file.path();
  char narrow[64];
  wchar_t wide[64];
  uint16_t port = 1;
  const std::function<bool(TAVU_HANDLE)> exports[] = {
      [](TAVU_HANDLE h) { return TAVU_SetReportServerW(h, kLongWide, 82); },
      [&](TAVU_HANDLE h) { return TAVU_GetReportServerW(h, &port, wide, 64); },
      [](TAVU_HANDLE h) { return TAVU_SetUserIDA(h, kLong); },
      [&](TAVU_HANDLE h) { return TAVU_GetUserIDA(h, narrow, 64); },
      [](TAVU_HANDLE h) { return TAVU_SetAppRestartA(h, true, kLong); },
      [](TAVU_HANDLE h) { return TAVU_SetCustumCrashReporterPathW(h, kLongWide); },
      [](TAVU_HANDLE h) { return TAVU_StartCrashHandler(h); },
      // From here on with codes of sending.
      [](TAVU_HANDLE h) { return TAVU_SendLog_TCPA(h, 1, kLong, kLong, kLong); },
      [](TAVU_HANDLE h) { return TAVU_SendLog_UDPW(h, 1, kLongWide, kLongWide, kLongWide); },
      [](TAVU_HANDLE h) { return TAVU_SendFileA(h, 1, "x", kLong, kLong); },
      [&](TAVU_HANDLE h) {
        return TAVU_SendCrashInfoW(h, kLongWide, kLongWide, path.c_str(), path.c_str());
      },
  };
  for (const auto& call : exports) {
    SCOPED_TRACE(&call - exports);
    const bool sends = &call - exports >= 7;
    TAVU_HANDLE handle = TAVU_CreateA("game", "1.0", "Game");
    TAVU_SetReportServerA(handle, sends ? "127.0.0.1" : kLong, server.port());
    TAVU_SetUserIDA(handle, std::string(40, 'u').c_str());
    strcpy(narrow, "before");
    wcscpy(wide, L"before");
    const auto before = StateOf(handle);
    const int allocations = FailEachAllocation(
        [&] { return call(handle); },
        [&] {
          const uint32_t code = TAVU_GetLastError();
          EXPECT_TRUE(sends ? code == TAVU_ERROR_CALL_FAILED || code == TAVU_ERROR_FILE_READ
                            : code == TAVU_ERROR_INVALID_ARGUMENT)
              << code;
          EXPECT_EQ(StateOf(handle), before);
          EXPECT_STREQ(narrow, "before");
          EXPECT_STREQ(wide, L"before");
        });
    EXPECT_GE(allocations, sends ? 5 : 1);
    EXPECT_TRUE(TAVU_Destroy(handle));
    EXPECT_FALSE(TAVU_Destroy(handle)) << "a pin stayed";
  }
}

TEST(ExhaustedMemory, MakesNoInstanceAndNoLuaDump) {
  TAVU_HANDLE handle = nullptr;
  const auto create = [&] {
    handle = TAVU_CreateW(kLongWide, L"1.0", kLongWide);
    return handle != nullptr;
  };
  const auto code_is_right = [] {
    EXPECT_EQ(TAVU_GetLastError(), uint32_t{TAVU_ERROR_INVALID_ARGUMENT});
  };
  EXPECT_GE(FailEachAllocation(create, code_is_right), 3);
  EXPECT_TRUE(TAVU_Destroy(handle));
  ScriptedServer server;
  TAVU_LUADUMP_SENDER sender = nullptr;
  const auto make = [&] {
    sender = TAVU_LUADUMP_Create("127.0.0.1", server.port(), false);
    return sender != nullptr;
  };
  EXPECT_GE(FailEachAllocation(make, [] {}), 2);
  const auto post = [&] {
    return TAVU_LUADUMP_SendLuaDumpW(sender, 1, 1, 1, kLongWide, L"d", L"u", L"e");
  };
  EXPECT_GE(FailEachAllocation(post, [] {}), 5);
  EXPECT_TRUE(TAVU_LUADUMP_Destroy(sender));
  EXPECT_EQ(server.WaitForRequests(1).size(), 1u);
}

}  // namespace
