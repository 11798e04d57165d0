// The senders by themselves: what no host can bring about from outside the library.
#include <gtest/gtest.h>

#include <algorithm>

#include "api/frame/api_lock.h"
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
  const wchar_t* growing = nullptr;  // gets "def" appended with the third of them
} reading;

BOOL WINAPI ReadByPairs(HANDLE file, void* out, DWORD size, DWORD* read, OVERLAPPED* overlapped) {
  static const auto real = reinterpret_cast<decltype(&ReadFile)>(
      reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(L"kernel32"), "ReadFile")));
  if (reading.fail) return FALSE;
  const BOOL done = real(file, out, std::min<DWORD>(size, 2), read, overlapped);
  if (done && *read == 0 && ++reading.empty_reads == 3) {
    std::FILE* const end = _wfopen(reading.growing, L"ab");
    std::fputs("def", end);
    std::fclose(end);
  }
  return done;
}

DWORD WINAPI SizeOfSix(HANDLE, DWORD*) {
  return 6;
}

// The pointers through which the linker sends calls of these two functions.
extern "C" {
decltype(&ReadFile) __imp_ReadFile = &ReadByPairs;
decltype(&GetFileSize) __imp_GetFileSize = &SizeOfSix;
}

namespace TAVU::test {
namespace {

TEST(Reading, GoesOnUntilAFileThatShrankHasGrownAgain) {
  const TempFile file(BytesOfText("abc"));
  const std::wstring path = file.path();
  reading = {.growing = path.c_str()};
  base::ReleasePool pool;
  const auto content = delivery::ReadWholeFile(reading.growing, pool);
  ASSERT_TRUE(content);
  EXPECT_EQ(Hex(content->data(), content->size() + 1), "61626364656600");
  EXPECT_EQ(reading.empty_reads, 3);
  EXPECT_EQ(pool.count(), 1u);
}

TEST(Reading, ThatFailsGivesTheBlockBackAndClosesTheFile) {
  const TempFile file(BytesOfText("abcdef"));
  reading = {.fail = true};
  base::ReleasePool pool;
  EXPECT_FALSE(delivery::ReadWholeFile(file.path().c_str(), pool));
  EXPECT_FALSE(pool.Release(0));
  EXPECT_TRUE(::DeleteFileW(file.path().c_str()));
}

TEST(LocalAddress, OfTheFirstConnectionIsKept) {
  const Json vectors = LoadVectors("records.json");
  const Json& vector = vectors["cases"][1];
  const Json& given = vector["given"];
  ASSERT_EQ(vector["kind"], "log");
  ASSERT_NE(given["local_address"], "127.0.0.1");
  ScriptedServer server;
  api::InstanceRecord instance;
  instance.softwareIdUtf8 = given["software_id"];
  instance.softwareVerUtf8 = given["software_ver"];
  instance.localAddress = given["local_address"];
  instance.serverHost = "127.0.0.1";
  instance.serverPort = server.port();
  const delivery::LogLine line = {given["level"], given["log_type"], {}, given["message"]};
  EXPECT_EQ(delivery::SendLog(api::ApiLock::Guard(), instance, line, QTC::Protocol::kTcp),
            delivery::SendResult::kSent);
  EXPECT_TRUE(server.WaitForRequests(1) == std::vector<Bytes>{BytesOf(vector["request"])});
}

}  // namespace
}  // namespace TAVU::test
