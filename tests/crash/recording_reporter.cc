// Takes the place of the crash reporter and writes down, in its own folder, what it was told and what
// it found: report.txt (its command line, in UTF-8) with copies of the two files, which must be
// complete by now, as document.xml and dump.dmp; or restart.txt, once the crashed process has ended:
// a host that waited for this process would never end.
#include <windows.h>

#include <string>

namespace {

// The value behind `key`, with the one percent form undone that is used here.
std::wstring ValueOf(const std::wstring& line, const std::wstring& key) {
  const std::size_t at = line.find(key);
  if (at == line.npos) return {};
  const std::size_t begin = at + key.size();
  std::wstring value = line.substr(begin, line.find(L' ', begin) - begin);
  for (std::size_t form; (form = value.find(L"%20")) != value.npos;) value.replace(form, 3, L" ");
  return value;
}

void WriteLine(const std::wstring& path, const std::wstring& text) {
  char utf8[8192] = {};
  const int size = ::WideCharToMultiByte(CP_UTF8, 0, text.data(), static_cast<int>(text.size()),
                                         utf8, sizeof utf8, nullptr, nullptr);
  const HANDLE file =
      ::CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr);
  DWORD written = 0;
  ::WriteFile(file, utf8, static_cast<DWORD>(size), &written, nullptr);
  ::CloseHandle(file);
}

}  // namespace

int main() {
  wchar_t path[MAX_PATH] = {};
  ::GetModuleFileNameW(nullptr, path, MAX_PATH);
  std::wstring folder = path;
  folder.resize(folder.rfind(L'\\') + 1);
  const std::wstring line = ::GetCommandLineW();
  if (const std::wstring process = ValueOf(line, L" appPid="); !process.empty()) {
    const HANDLE host = ::OpenProcess(SYNCHRONIZE, FALSE, std::stoul(process));
    if (host != nullptr && ::WaitForSingleObject(host, 60000) != WAIT_OBJECT_0) return 1;
    WriteLine(folder + L"restart.txt", line);
    return 0;
  }
  const std::wstring document = ValueOf(line, L" exceptionInfoFilename=");
  ::CopyFileW(document.c_str(), (folder + L"document.xml").c_str(), FALSE);
  const std::wstring dump = ValueOf(line, L" dumpFilename=");
  ::CopyFileW(dump.c_str(), (folder + L"dump.dmp").c_str(), FALSE);
  WriteLine(folder + L"report.txt", line);
  return 0;
}
