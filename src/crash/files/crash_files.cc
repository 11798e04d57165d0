#include "crash/files/crash_files.h"

#include "base/wide_number_text.h"

namespace TAVU::crash {

namespace {

constexpr std::wstring_view kNoTime = L"00000000000000";  // year, month, day, hour, minute, second

}  // namespace

CrashFiles::CrashFiles(std::wstring_view tempPath, std::wstring_view appExeFile) {
  // The folder ends in a backslash already, so the paths hold two in a row. The system takes that
  // for one, but the reporter's command line shows both, and whoever compares it sees them.
  info_path_.append(tempPath).append(L"\\").append(appExeFile).append(L"_");
  time_at_ = info_path_.size();
  info_path_.append(kNoTime);
  dump_path_ = info_path_;
  dump_path_.append(L"_Crash.dmp");
  info_path_.append(L"_CrashInfo.xml");
}

void CrashFiles::SetTime(const SYSTEMTIME& localTime) noexcept {
  if (dump_path_.empty()) return;
  for (std::wstring* const path : {&dump_path_, &info_path_}) {
    wchar_t* to = path->data() + time_at_;
    to = base::WriteDigits(to, localTime.wYear, 4);
    for (const WORD part : {localTime.wMonth, localTime.wDay, localTime.wHour, localTime.wMinute,
                            localTime.wSecond}) {
      to = base::WriteDigits(to, part, 2);
    }
  }
}

}  // namespace TAVU::crash
