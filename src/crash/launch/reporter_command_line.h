// The command lines for the crash reporter: key=value pairs, each followed by one space. They are
// the only interface to that program.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include <windows.h>

namespace TAVU::crash {

// Everything the reporter is told of a crash. The texts are borrowed.
struct ReporterArguments {
  std::uint64_t exceptionAddress = 0;
  std::wstring_view dumpPath;
  std::wstring_view infoPath;
  std::wstring_view reporterPath;  // the reporter's folder
  std::wstring_view appExeFile;
  std::wstring_view softwareId;
  std::wstring_view softwareVer;
  std::wstring_view userId;
  std::wstring_view serverHost;
  std::uint16_t serverPort = 0;
  bool autoReport = false;
  std::wstring_view appShowName;
  std::uint32_t reportLang = 0;
};

[[nodiscard]] std::wstring BuildReporterCommandLine(const ReporterArguments& arguments);

// Tells the reporter to start `appExecuteCmd` once the process `processId` has ended.
[[nodiscard]] std::wstring BuildRestartCommandLine(std::wstring_view reporterPath,
                                                   std::wstring_view appExecuteCmd,
                                                   DWORD processId = ::GetCurrentProcessId());

// Writes white space and percent signs as a percent sign and the code in upper-case hexadecimal,
// one digit where one is enough ("%9" for a tab, which is how reporters undo it). All else stays as
// it is, double quotes included.
[[nodiscard]] std::wstring EscapeCommandLineValue(std::wstring_view text);

}  // namespace TAVU::crash
