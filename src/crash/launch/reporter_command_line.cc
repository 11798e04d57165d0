#include "crash/launch/reporter_command_line.h"

#include <cstddef>

#include "base/wide_number_text.h"

namespace TAVU::crash {

namespace {

constexpr std::size_t kLongestServerAddress = 63;  // units; longer ones are cut

// Where the folder ends in a backslash there are two in a row, as in the paths of the files.
// Windows takes them as one.
void AppendProgram(std::wstring& line, std::wstring_view reporterPath) {
  line.append(L"\"").append(reporterPath).append(L"\\TAVU_CrashReporter.exe\" ");
}

void AppendPair(std::wstring& line, std::wstring_view key, std::wstring_view value) {
  line.append(key).append(value).append(L" ");
}

std::wstring AddressText(std::uint64_t address) {
  std::wstring text;
  base::AppendAddress(text, address);
  return text;
}

std::wstring ServerAddress(std::wstring_view host, std::uint16_t port) {
  std::wstring text(host);
  text.append(L":");
  base::AppendUnsigned(text, port);
  if (text.size() > kLongestServerAddress) text.resize(kLongestServerAddress);
  return text;
}

std::wstring SignedText(std::uint32_t value) {
  std::wstring text;
  base::AppendSigned(text, value);
  return text;
}

}  // namespace

std::wstring BuildReporterCommandLine(const ReporterArguments& arguments) {
  std::wstring line;
  AppendProgram(line, arguments.reporterPath);
  AppendPair(line, L"exceptionInfoFilename=", EscapeCommandLineValue(arguments.infoPath));
  AppendPair(line, L"dumpFilename=", EscapeCommandLineValue(arguments.dumpPath));
  AppendPair(line, L"exceptionAddr=", AddressText(arguments.exceptionAddress));
  AppendPair(line, L"userId=", EscapeCommandLineValue(arguments.userId));
  AppendPair(line, L"softwareVer=", EscapeCommandLineValue(arguments.softwareVer));
  AppendPair(line, L"softwareId=", EscapeCommandLineValue(arguments.softwareId));
  AppendPair(line, L"serverAddr=", ServerAddress(arguments.serverHost, arguments.serverPort));
  // Spelt so on purpose: the reporter knows the key in this form.
  AppendPair(line, L"aotoReport=", arguments.autoReport ? L"true" : L"false");
  AppendPair(line, L"appShowName=", EscapeCommandLineValue(arguments.appShowName));
  AppendPair(line, L"appExeFile=", EscapeCommandLineValue(arguments.appExeFile));
  AppendPair(line, L"reportLang=", SignedText(arguments.reportLang));
  return line;
}

std::wstring BuildRestartCommandLine(std::wstring_view reporterPath,
                                     std::wstring_view appExecuteCmd, DWORD processId) {
  std::wstring line;
  AppendProgram(line, reporterPath);
  AppendPair(line, L"appRestart=", L"true");
  AppendPair(line, L"appExecuteCmd=", EscapeCommandLineValue(appExecuteCmd));
  AppendPair(line, L"appPid=", SignedText(processId));
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
