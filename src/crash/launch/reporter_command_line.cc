#include "crash/launch/reporter_command_line.h"

#include <cstddef>

#include "base/wide_number_text.h"

namespace TAVU::crash {

namespace {

constexpr std::size_t kLongestServerAddress = 63;  // units; longer ones are cut

// Two backslashes in a row where the folder ends in one, as in the paths of the files. A host may
// name its folder with or without one, and a reporter that compares its own path sees both forms.
void AppendProgram(std::wstring& line, std::wstring_view reporterPath) {
  line.append(L"\"").append(reporterPath).append(L"\\TAVU_CrashReporter.exe\" ");
}

void AppendPair(std::wstring& line, std::wstring_view key, std::wstring_view value) {
  line.append(key).append(value).push_back(L' ');
}

void AppendEscapedPair(std::wstring& line, std::wstring_view key, std::wstring_view value) {
  AppendPair(line, key, EscapeCommandLineValue(value));
}

void AppendSignedPair(std::wstring& line, std::wstring_view key, std::uint32_t value) {
  line.append(key);
  base::AppendSigned(line, value);
  line.push_back(L' ');
}

void AppendServerAddress(std::wstring& line, std::wstring_view host, std::uint16_t port) {
  line.append(L"serverAddr=");
  const std::size_t start = line.size();
  line.append(host).push_back(L':');
  base::AppendUnsigned(line, port);
  if (line.size() - start > kLongestServerAddress) line.resize(start + kLongestServerAddress);
  line.push_back(L' ');
}

}  // namespace

std::wstring BuildReporterCommandLine(const ReporterArguments& arguments) {
  std::wstring line;
  AppendProgram(line, arguments.reporterPath);
  AppendEscapedPair(line, L"exceptionInfoFilename=", arguments.infoPath);
  AppendEscapedPair(line, L"dumpFilename=", arguments.dumpPath);
  line.append(L"exceptionAddr=");
  base::AppendAddress(line, arguments.exceptionAddress);
  line.push_back(L' ');
  AppendEscapedPair(line, L"userId=", arguments.userId);
  AppendEscapedPair(line, L"softwareVer=", arguments.softwareVer);
  AppendEscapedPair(line, L"softwareId=", arguments.softwareId);
  AppendServerAddress(line, arguments.serverHost, arguments.serverPort);
  // Spelt so: reporters look for the key in this form.
  AppendPair(line, L"aotoReport=", arguments.autoReport ? L"true" : L"false");
  AppendEscapedPair(line, L"appShowName=", arguments.appShowName);
  AppendEscapedPair(line, L"appExeFile=", arguments.appExeFile);
  // Signed, as %d prints it: a number from 2^31 on reaches the reporter negative.
  AppendSignedPair(line, L"reportLang=", arguments.reportLang);
  return line;
}

std::wstring BuildRestartCommandLine(std::wstring_view reporterPath,
                                     std::wstring_view appExecuteCmd, DWORD processId) {
  std::wstring line;
  AppendProgram(line, reporterPath);
  AppendPair(line, L"appRestart=", L"true");
  AppendEscapedPair(line, L"appExecuteCmd=", appExecuteCmd);
  AppendSignedPair(line, L"appPid=", processId);
  return line;
}

std::wstring EscapeCommandLineValue(std::wstring_view text) {
  constexpr std::wstring_view kEscaped = L" \t\r\n%";
  std::wstring escaped;
  while (true) {
    const std::size_t run = text.find_first_of(kEscaped);
    escaped.append(text.substr(0, run));
    if (run == std::wstring_view::npos) return escaped;
    escaped.push_back(L'%');
    base::AppendHex(escaped, text[run], base::HexDigits::kUpper);
    text.remove_prefix(run + 1);
  }
}

}  // namespace TAVU::crash
