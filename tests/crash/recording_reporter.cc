// Takes the place of the crash reporter and writes down, in its own folder, what it was told and what
// it found: report.txt (its command line, in UTF-8) with copies of the two files, which must be
// complete by now, as document.xml and dump.dmp; or restart.txt, once the crashed process has ended:
// a host that waited for this process would never end.
#include <windows.h>

#include <string>
#include <string_view>

namespace {

std::wstring OwnFolder() {
  wchar_t path[MAX_PATH] = {};
  ::GetModuleFileNameW(nullptr, path, MAX_PATH);
  const std::wstring_view whole = path;
  return std::wstring(whole.substr(0, whole.rfind(L'\\') + 1));
}

// The value behind `key`, up to the next space, with its percent forms undone. The values that are
// asked for here hold no forms but "%20".
std::wstring ValueOf(std::wstring_view line, std::wstring_view key) {
  const std::size_t at = line.find(key);
  if (at == line.npos) return {};
  std::wstring value(line.substr(at + key.size()));
  value.resize(value.find(L' '));
  for (std::size_t form; (form = value.find(L"%20")) != value.npos;) value.replace(form, 3, L" ");
  return value;
}

void WriteLine(const std::wstring& path, std::wstring_view text) {
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
  const std::wstring folder = OwnFolder();
  const std::wstring line = ::GetCommandLineW();
  const std::wstring process = ValueOf(line, L" appPid=");
  if (!process.empty()) {
    const HANDLE host = ::OpenProcess(SYNCHRONIZE, FALSE, std::stoul(process));
    if (host != nullptr && ::WaitForSingleObject(host, 60000) != WAIT_OBJECT_0) return 1;
    WriteLine(folder + L"restart.txt", line);
    return 0;
  }
  ::CopyFileW(ValueOf(line, L" exceptionInfoFilename=").c_str(), (folder + L"document.xml").c_str(),
              FALSE);
  ::CopyFileW(ValueOf(line, L" dumpFilename=").c_str(), (folder + L"dump.dmp").c_str(), FALSE);
  WriteLine(folder + L"report.txt", line);
  return 0;
}
