// The senders by themselves: what no host can bring about from outside the library.
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>

#include "api/frame/api_lock.h"
#include "api/frame/last_error.h"
#include "delivery/file_reading.h"
#include "delivery/host.h"
#include "delivery/log_sender.h"
#include "support/scripted_server.h"
#include "support/vectors.h"

// Stands between the file reader and the system: reads two bytes at a time, as a slow disk may, and
// does what a test asks for.
struct {
  bool fail = false;
  int empty_reads = 0;               // that succeeded with nothing
  const wchar_t* growing = nullptr;  // gets "def" behind its end with the third of them
} reading;

BOOL WINAPI ReadByPairs(HANDLE file, void* out, DWORD size, DWORD* read, OVERLAPPED* overlapped) {
  static const auto real = reinterpret_cast<decltype(&ReadFile)>(
      reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(L"kernel32"), "ReadFile")));
  if (reading.fail) return FALSE;
  const BOOL done = real(file, out, std::min<DWORD>(size, 2), read, overlapped);
  if (done && *read == 0 && ++reading.empty_reads == 3) {
    DWORD written = 0;
    const HANDLE end = CreateFileW(reading.growing, FILE_APPEND_DATA, FILE_SHARE_READ, nullptr,
                                   OPEN_EXISTING, 0, nullptr);
    WriteFile(end, "def", 3, &written, nullptr);
    CloseHandle(end);
  }
  return done;
}

DWORD WINAPI SizeOfSix(HANDLE, DWORD*) {
  return 6;
}

// The C runtime's heap, of which a test can make one allocation of one thread fail.
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

// The pointers through which the linker sends calls of these two functions.
extern "C" {
decltype(&ReadFile) __imp_ReadFile = &ReadByPairs;
decltype(&GetFileSize) __imp_GetFileSize = &SizeOfSix;
}

namespace TAVU::test {
namespace {

std::vector<std::byte> BytesOfText(const char* text) {
  const auto bytes = std::as_bytes(std::span(text, std::strlen(text)));
  return {bytes.begin(), bytes.end()};
}

TEST(Reading, GoesOnUntilAFileThatShrankHasGrownAgain) {
  const TempFile file(BytesOfText("abc"));
  const std::wstring path = file.path();
  reading = {.growing = path.c_str()};
  lumo::ReleasePool pool;
  const auto content = delivery::ReadWholeFile(reading.growing, pool);
  ASSERT_TRUE(content);
  EXPECT_EQ(Hex(content->data(), content->size() + 1), "61626364656600");
  EXPECT_EQ(reading.empty_reads, 3);
  EXPECT_EQ(pool.count(), 1u);
}

TEST(Reading, ThatFailsGivesTheBlockBackAndClosesTheFile) {
  const TempFile file(BytesOfText("abcdef"));
  reading = {.fail = true};
  lumo::ReleasePool pool;
  EXPECT_FALSE(delivery::ReadWholeFile(file.path().c_str(), pool));
  EXPECT_FALSE(pool.Release(0));
  EXPECT_TRUE(::DeleteFileW(file.path().c_str()));
}

TEST(LocalAddress, OfTheFirstConnectionIsKept) {
  bool seen = false;
  const Json vectors = LoadVectors("records.json");
  for (const Json& vector : vectors["cases"]) {
    const Json& given = vector["given"];
    if (vector["kind"] != "log" || given["local_address"] == "127.0.0.1") continue;
    seen = true;
    ASSERT_TRUE(given["extra"].is_null() && given["user_id"].is_null());
    ScriptedServer server;
    api::InstanceRecord instance;
    instance.softwareIdUtf8 = given["software_id"];
    instance.softwareVerUtf8 = given["software_ver"];
    instance.localAddress = given["local_address"];
    instance.serverHost = "127.0.0.1";
    instance.serverPort = server.port();
    const delivery::LogLine line = {given["level"], given["log_type"], {}, given["message"]};
    const api::ApiLock::Guard held;
    EXPECT_EQ(delivery::SendLog(held, instance, line, QTC::Protocol::kTcp),
              delivery::SendResult::kSent);
    EXPECT_TRUE(server.WaitForRequests(1) == std::vector<Bytes>{BytesOf(vector["request"])});
  }
  EXPECT_TRUE(seen);
}

// Calls `send` with its first allocation failing, then with its second, until a call makes fewer;
// gives how many there are. A call that fails leaves one of two codes, and nothing behind.
int FailEachAllocation(const std::function<bool()>& send) {
  for (int nth = 1;; ++nth) {
    failing = {::GetCurrentThreadId(), nth};
    const bool sent = send();
    const bool reached = failing.countdown <= 0;
    failing = {};
    if (!reached) {
      EXPECT_TRUE(sent);
      return nth - 1;
    }
  }
}

TEST(ExhaustedMemory, FailsACallAndLeavesNeitherLockNorPin) {
  ScriptedServer server;
  const TempFile file(BytesOfText("abcdef"));
  const std::wstring path = file.path();
  const std::function<bool(TAVU_HANDLE)> exports[] = {
      [](TAVU_HANDLE to) { return TAVU_SendLog_TCPW(to, 1, L"t", L"extra", L"m"); },
      [](TAVU_HANDLE to) { return TAVU_SendLog_TCPA(to, 1, "t", "extra", "m"); },
      [](TAVU_HANDLE to) { return TAVU_SendFileA(to, 1, "x", "d", "m"); },
      [&](TAVU_HANDLE to) {
        return TAVU_SendCrashInfoW(to, L"m", L"d", path.c_str(), path.c_str());
      },
  };
  reading = {};
  ASSERT_TRUE(api::LastErrorSlot::AttachProcess());  // as the library's entry point does
  for (const auto& send : exports) {
    const TAVU_HANDLE instance = TAVU_CreateA("game", "1.0.3", "Game");
    TAVU_SetReportServerA(instance, "127.0.0.1", server.port());
    EXPECT_GE(FailEachAllocation([&] {
                if (send(instance)) return true;
                const std::uint32_t code = TAVU_GetLastError();
                EXPECT_TRUE(code == TAVU_ERROR_CALL_FAILED || code == TAVU_ERROR_FILE_READ) << code;
                return false;
              }),
              5);
    EXPECT_TRUE(TAVU_Destroy(instance));
    EXPECT_FALSE(TAVU_Destroy(instance));
  }
}

TEST(ExhaustedMemory, FailsTheMakingOfALuaDumpSenderAndAPost) {
  ScriptedServer server;
  TAVU_LUADUMP_SENDER sender = nullptr;
  EXPECT_GE(FailEachAllocation([&] {
              sender = TAVU_LUADUMP_Create("127.0.0.1", server.port(), false);
              return sender != nullptr;
            }),
            2);
  EXPECT_GE(FailEachAllocation(
                [&] { return TAVU_LUADUMP_SendLuaDumpW(sender, 1, 1, 1, L"m", L"d", L"u", L"e"); }),
            5);
  EXPECT_TRUE(TAVU_LUADUMP_Destroy(sender));
  EXPECT_EQ(server.WaitForRequests(1).size(), 1u);
}

}  // namespace
}  // namespace TAVU::test
