// Hosts in processes of their own: how much memory they need, and how they part with the library.
// The program is both the test and, started with the name of a scene, a host.
#include <gtest/gtest.h>
// Between the two <windows.h>, without which they do not stand.
#include "delivery/host.h"
// clang-format off
#include <process.h>
#include <psapi.h>
// clang-format on

#include <functional>

#include "support/scripted_server.h"
#include "support/threads.h"

namespace TAVU::test {
namespace {

constexpr int kFailed = 1'000'000;  // exit status

TAVU_HANDLE NewInstance(HMODULE library, std::uint16_t port) {
  const TAVU_HANDLE instance = TAVU_FIND(library, TAVU_CreateW)(L"game", L"1.0.3", L"Game");
  TAVU_FIND(library, TAVU_SetReportServerA)(instance, "127.0.0.1", port);
  TAVU_FIND(library, TAVU_SetTimeout)(instance, INT32_MAX);
  return instance;
}

TAVU_LUADUMP_SENDER NewQueue(HMODULE library, std::uint16_t port, std::uint32_t records) {
  const auto sender = TAVU_FIND(library, TAVU_LUADUMP_Create)("127.0.0.1", port, false);
  for (std::uint32_t i = 0; i < records; ++i) {
    TAVU_FIND(library, TAVU_LUADUMP_SendLuaDumpA)(sender, i, 1, 2, "m", "d", "u", "e");
  }
  return sender;
}

std::size_t PeakInKiB() {
  PROCESS_MEMORY_COUNTERS counters = {};
  ::GetProcessMemoryInfo(::GetCurrentProcess(), &counters, sizeof counters);
  return counters.PeakWorkingSetSize / 1024;
}

int RunScene(const std::string& scene, std::uint16_t port, char** files) {
  const HMODULE library = ::LoadLibraryW(L"TAVU.dll");
  if (scene == "uploads") {
    const std::vector<char> block(files[0] == nullptr ? 64 << 20 : 0, 'x');
    const std::size_t before = PeakInKiB();
    const TAVU_HANDLE to = NewInstance(library, port);
    const bool sent =
        files[0] == nullptr
            ? TAVU_FIND(library, TAVU_SendFileA)(to, block.size(), block.data(), "d", "m")
            : TAVU_FIND(library, TAVU_SendCrashInfo)(to, "m", "d", files[0], files[1]);
    return sent ? static_cast<int>(PeakInKiB() - before) : kFailed;
  }
  if (scene == "destroys and frees") {
    TAVU_FIND(library, TAVU_LUADUMP_Destroy)(NewQueue(library, port, 3));
    ::FreeLibrary(library);
    while (::GetModuleHandleW(L"TAVU.dll") != nullptr) ::Sleep(1);  // its threads leave it last
    return 0;
  }
  if (scene == "ends inside a call") {
    new Thread([library, port] {  // never destroyed: it ends with the process
      const TAVU_HANDLE to = NewInstance(library, port);
      TAVU_FIND(library, TAVU_SendLog_TCPW)(to, 1, L"t", nullptr, L"m");
    });
  } else {
    NewQueue(library, port, 100);
  }
  if (scene == "frees and ends" && !::FreeLibrary(library)) return kFailed;
  // Tells the test that the scene is set, and waits for its sign to go on.
  ::SetEvent(::OpenEventW(EVENT_MODIFY_STATE, FALSE, L"tavu-ready"));
  ::WaitForSingleObject(::OpenEventW(SYNCHRONIZE, FALSE, L"tavu-go-on"), INFINITE);
  return 0;
}

constexpr DWORD kPatience = 120'000;  // milliseconds; a host that waits for its records needs more

// Runs a host; `meanwhile`, given, once its scene is set. Its exit status; STILL_ACTIVE: it hangs.
DWORD RunHost(const std::string& scene, std::uint16_t port, const std::string& files = "",
              const std::function<void()>& meanwhile = {}) {
  const HANDLE ready = ::CreateEventW(nullptr, TRUE, FALSE, L"tavu-ready");
  const HANDLE go_on = ::CreateEventW(nullptr, TRUE, FALSE, L"tavu-go-on");
  std::string command =
      '"' + std::string(_pgmptr) + "\" \"" + scene + "\" " + std::to_string(port) + files;
  STARTUPINFOA startup = {};
  startup.cb = sizeof startup;
  PROCESS_INFORMATION host = {};
  EXPECT_TRUE(::CreateProcessA(nullptr, command.data(), nullptr, nullptr, FALSE, 0, nullptr,
                               nullptr, &startup, &host));
  if (meanwhile) {
    EXPECT_EQ(::WaitForSingleObject(ready, kPatience), WAIT_OBJECT_0);
    meanwhile();
    ::SetEvent(go_on);
  }
  DWORD status = 0;
  ::WaitForSingleObject(host.hProcess, kPatience);
  ::GetExitCodeProcess(host.hProcess, &status);
  ::TerminateProcess(host.hProcess, 1);
  for (const HANDLE handle : {host.hThread, host.hProcess, ready, go_on}) ::CloseHandle(handle);
  return status;
}

TEST(Memory, HoldsABlockOfTheHostsInNoCopyAndAFileOnce) {
  ScriptedServer server;
  EXPECT_LT(RunHost("uploads", server.port()), 1024u);

  const TempFile document(std::vector<std::byte>(8 << 20)), dump(std::vector<std::byte>(32 << 20));
  const std::string files = " \"" + document.path<char>() + "\" \"" + dump.path<char>() + '"';
  const DWORD growth = RunHost("uploads", server.port(), files);
  EXPECT_GE(growth, 36u * 1024) << "measured nothing";
  EXPECT_LT(growth, 43u * 1024);
}

TEST(Ending, NeitherHangsNorCrashes) {
  for (const char* scene : {"ends", "ends inside a call"}) {
    SCOPED_TRACE(scene);
    ScriptedServer server({Act::kSilence});
    const auto answer_nobody = [&] { EXPECT_EQ(server.WaitForRequests(1).size(), 1u); };
    EXPECT_EQ(RunHost(scene, server.port(), "", answer_nobody), 0u);
  }
}

TEST(Freeing, LetsASenderDeliverWhatItHas) {
  ScriptedServer server;
  const auto await_all = [&] { EXPECT_EQ(server.WaitForRequests(100).size(), 100u); };
  EXPECT_EQ(RunHost("frees and ends", server.port(), "", await_all), 0u);
  EXPECT_EQ(RunHost("destroys and frees", server.port()), 0u);
  EXPECT_EQ(server.WaitForRequests(103).size(), 103u);
}

}  // namespace
}  // namespace TAVU::test

int main(int count, char** arguments) {
  testing::InitGoogleTest(&count, arguments);
  if (count < 3) return RUN_ALL_TESTS();
  const auto port = static_cast<std::uint16_t>(std::atoi(arguments[2]));
  return TAVU::test::RunScene(arguments[1], port, arguments + 3);
}
