#include "crash/files/crash_files.h"

#include "base/wide_number_text.h"

namespace TAVU::crash {

CrashFiles NameCrashFiles(std::wstring_view tempPath, std::wstring_view appExeFile,
                          const SYSTEMTIME& localTime) {
  std::wstring start(tempPath);
  // The folder already ends in a backslash, so the paths hold two in a row. Windows takes them as
  // one; reporters get the path in this form on their command line.
  start.append(L"\\").append(appExeFile).append(L"_");
  base::AppendUnsigned(start, localTime.wYear, 4);
  for (const WORD part :
       {localTime.wMonth, localTime.wDay, localTime.wHour, localTime.wMinute, localTime.wSecond}) {
    base::AppendUnsigned(start, part, 2);
  }
  return {.dumpPath = start + L"_Crash.dmp", .infoPath = start + L"_CrashInfo.xml"};
}

}  // namespace TAVU::crash
