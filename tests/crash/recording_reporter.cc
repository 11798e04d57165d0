// Takes the place of the crash reporter and writes down, in its own folder, what it was told and
// what it found: report.txt (its command line, in UTF-8) with a copy of the temporary folder, whose
// files must be complete by now, as "seen"; or restart.txt, once the crashed process has ended: a
// host that waited for this process would never end.
#include <windows.h>

#include <filesystem>
#include <fstream>
#include <string>

namespace fs = std::filesystem;

int main() {
  wchar_t path[MAX_PATH] = {};
  ::GetModuleFileNameW(nullptr, path, MAX_PATH);
  const fs::path folder = fs::path(path).parent_path();
  const fs::path line = ::GetCommandLineW();  // for its conversion
  const std::wstring key = L" appPid=";
  const std::size_t found = line.native().find(key);
  if (found == std::wstring::npos) {
    fs::create_directory(folder / "seen");
    for (const fs::path& file : fs::directory_iterator(fs::temp_directory_path())) {
      fs::copy_file(file, folder / "seen" / file.filename());
    }
  } else {
    const DWORD id = std::stoul(line.native().substr(found + key.size()));
    const HANDLE host = ::OpenProcess(SYNCHRONIZE, FALSE, id);
    if (host != nullptr && ::WaitForSingleObject(host, 60000) != WAIT_OBJECT_0) return 1;
  }
  const std::u8string utf8 = line.u8string();
  std::ofstream(folder / (found == std::wstring::npos ? "report.txt" : "restart.txt"),
                std::ios::binary)
      .write(reinterpret_cast<const char*>(utf8.data()), static_cast<std::streamsize>(utf8.size()));
}
