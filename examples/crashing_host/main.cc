// A host that crashes in the way its argument names, with the crash handler of TAVU running, and
// says so when it was started again. Of the library it uses the public header alone.
#include <CLI/CLI.hpp>
#include <array>
#include <cstdio>
#include <string>

#include <tavu/tavu.h>
#include <windows.h>

#include "ways.h"

namespace crashing_host {

namespace {

struct Options {
  std::string way;
  std::string host = "127.0.0.1";
  std::uint16_t port = 0;
  std::string user = "kim lee";
  std::uint32_t code = 0xE0000001;
  std::uint32_t language = 0;
  bool auto_report = false;
  bool no_restart = false;
  bool keep_files = false;
  bool restarted = false;
  bool handlers = false;
};

// The functions on the way to the crash: names that are easily found in a call stack.
void UpdateWorld(const Way& way, const Setting& setting) {
  way.die(setting);
}

void PlayFrame(const Way& way, const Setting& setting) {
  UpdateWorld(way, setting);
}

int Fail(const char* what) {
  std::printf("%s: error %u\n", what, TAVU_GetLastError());
  return 2;
}

// This program with the same server and user, told that it was restarted.
std::wstring RestartCommand(const Options& options) {
  std::array<wchar_t, 1024> path = {};
  ::GetModuleFileNameW(nullptr, path.data(), static_cast<DWORD>(path.size()));
  return L"\"" + std::wstring(path.data()) + L"\" " +
         std::wstring(options.way.begin(), options.way.end()) + L" " +
         std::wstring(options.host.begin(), options.host.end()) + L" " +
         std::to_wstring(options.port) + L" --restarted --user \"" +
         std::wstring(options.user.begin(), options.user.end()) + L"\"";
}

int TellOfRestart(TAVU_HANDLE instance) {
  std::puts("restarted after a crash");
  if (!TAVU_SendLog_TCPW(instance, TAVU_LEVEL_NOTICE, L"lifecycle", nullptr,
                         L"restarted after a crash")) {
    return Fail("not sent");
  }
  TAVU_Destroy(instance);
  return 0;
}

int Crash(TAVU_HANDLE instance, const Options& options) {
  const Way* way = FindWay(options.way);
  if (options.handlers) RaiseInsteadOfEnding();
  if (!TAVU_StartCrashHandler(instance)) return Fail("no crash handler");
  TAVU_SetAutoReport(instance, options.auto_report);
  TAVU_SetReporterLanguage(instance, options.language);
  TAVU_DeleteLocalDumpFile(instance, !options.keep_files);
  if (!options.no_restart) TAVU_SetAppRestartW(instance, true, RestartCommand(options).c_str());
  TAVU_UpdateAdditionalCrashInfoA(instance, (options.way + ": " + way->what).c_str());

  std::printf("%s: %s\n", way->name, way->what);
  std::fflush(stdout);
  PlayFrame(*way, {instance, options.code});
  std::printf("%s: survived\n", way->name);
  return 1;
}

int Run(const Options& options) {
  const TAVU_HANDLE instance =
      TAVU_CreateA("crashing-host", CRASHING_HOST_VERSION, "Crashing Host");
  if (!instance) return Fail("no instance");
  if (!TAVU_SetReportServerA(instance, options.host.c_str(), options.port)) {
    return Fail("no report server");
  }
  TAVU_SetUserIDA(instance, options.user.c_str());
  return options.restarted ? TellOfRestart(instance) : Crash(instance, options);
}

}  // namespace

}  // namespace crashing_host

// NOLINTNEXTLINE(bugprone-exception-escape): without memory for its options it ends, as it should
int main(int argc, char** argv) {
  using crashing_host::AllWays;
  crashing_host::Options options;
  CLI::App app("Crashes, with the crash handler of TAVU running. Exit status 1: it survived.");
  std::vector<std::string> names;
  std::string ways = "WAY is one of:\n";
  for (const crashing_host::Way& way : AllWays()) {
    names.emplace_back(way.name);
    ways += "  " + std::string(way.name) + std::string(20 - std::string(way.name).size(), ' ') +
            way.what + "\n";
  }
  app.footer(ways);
  app.add_option("WAY", options.way, "How to crash")
      ->required()
      ->check(CLI::IsMember(names).description(""));
  app.add_option("HOST", options.host, "The report server")->required();
  app.add_option("PORT", options.port, "Its port")->required();
  app.add_option("--user", options.user, "The user identifier that is reported");
  app.add_option("--code", options.code, "Exception code for the way \"raise\"");
  app.add_option("--language", options.language, "Number of the crash reporter's language");
  app.add_flag("--auto-report", options.auto_report, "The crash reporter sends without asking");
  app.add_flag("--no-restart", options.no_restart, "Do not start again after the crash");
  app.add_flag("--keep-files", options.keep_files, "Leave dump and document where they are");
  app.add_flag("--handlers", options.handlers,
               "Make exceptions of what the C and C++ runtime end the process for");
  app.add_flag("--restarted", options.restarted, "Say that this is a restart, and end");
  CLI11_PARSE(app, argc, argv);
  return crashing_host::Run(options);
}
