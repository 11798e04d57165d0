#include "kept_reports.h"

#include <algorithm>
#include <array>
#include <cwchar>

#include <shlobj.h>
#include <windows.h>

#include "files.h"
#include "joined.h"

namespace crash_reporter {

namespace {

constexpr std::size_t kMostReports = 10;
constexpr ULONGLONG kMostBytes = 64ULL << 20;
constexpr ULONGLONG kDay = 24ULL * 60 * 60 * 10'000'000;  // in units of FILETIME

constexpr wchar_t kPairsFile[] = L"report.txt";
constexpr wchar_t kUnfinished[] = L".unfinished";

std::wstring LocalApplicationData() {
  // The variable first: it is how a user, or a test, redirects a program's data.
  std::array<wchar_t, MAX_PATH + 1> folder = {};
  const DWORD length =
      ::GetEnvironmentVariableW(L"LOCALAPPDATA", folder.data(), static_cast<DWORD>(folder.size()));
  if (length > 0 && length < folder.size()) return folder.data();
  if (FAILED(::SHGetFolderPathW(nullptr, CSIDL_LOCAL_APPDATA, nullptr, 0, folder.data()))) {
    return L"";
  }
  return folder.data();
}

std::wstring FileNameOf(const std::wstring& path) {
  return path.substr(path.find_last_of(L"\\/:") + 1);
}

template <typename Visit>
void ForEachEntry(const std::wstring& folder, Visit visit) {
  WIN32_FIND_DATAW entry = {};
  const ScopedFind find(ValidOrNull(::FindFirstFileW((folder + L"\\*").c_str(), &entry)));
  if (!find) return;
  do {
    const std::wstring name = entry.cFileName;
    if (name != L"." && name != L"..") visit(name, entry);
  } while (::FindNextFileW(find.get(), &entry));
}

// The folders of kept reports, the oldest first.
std::vector<std::wstring> ReportFolders(const std::wstring& root) {
  std::vector<std::wstring> folders;
  if (root.empty()) return folders;
  ForEachEntry(root, [&](const std::wstring& name, const WIN32_FIND_DATAW& entry) {
    if (!(entry.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY)) return;
    if (name.find(kUnfinished) == std::wstring::npos) folders.push_back(root + L"\\" + name);
  });
  std::sort(folders.begin(), folders.end());
  return folders;
}

ULONGLONG SizeOf(const std::wstring& folder) {
  ULONGLONG size = 0;
  ForEachEntry(folder, [&](const std::wstring&, const WIN32_FIND_DATAW& entry) {
    size += Joined(entry.nFileSizeHigh, entry.nFileSizeLow);
  });
  return size;
}

// One level deep, as the folders here are: nothing below a folder that somebody put in is touched.
void RemoveFolder(const std::wstring& folder) {
  std::vector<std::wstring> files;
  ForEachEntry(folder, [&](const std::wstring& name, const WIN32_FIND_DATAW&) {
    files.push_back(folder + L"\\" + name);
  });
  for (const std::wstring& file : files) ::DeleteFileW(file.c_str());
  ::RemoveDirectoryW(folder.c_str());
}

bool WriteUtf8(const std::wstring& path, const std::wstring& text) {
  std::string bytes(text.size() * 3, '\0');
  const int length =
      ::WideCharToMultiByte(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), bytes.data(),
                            static_cast<int>(bytes.size()), nullptr, nullptr);
  const ScopedHandle file(ValidOrNull(::CreateFileW(
      path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr)));
  DWORD written = 0;
  return file &&
         ::WriteFile(file.get(), bytes.data(), static_cast<DWORD>(length), &written, nullptr) &&
         written == static_cast<DWORD>(length);
}

// Empty when there is no such file. A command line, and so its pairs, is shorter than the buffer.
std::wstring ReadUtf8(const std::wstring& path) {
  const ScopedHandle file(ValidOrNull(::CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ,
                                                    nullptr, OPEN_EXISTING, 0, nullptr)));
  std::string bytes(std::size_t{256} * 1024, '\0');
  DWORD length = 0;
  if (!file ||
      !::ReadFile(file.get(), bytes.data(), static_cast<DWORD>(bytes.size()), &length, nullptr)) {
    return L"";
  }
  std::wstring text(length, L'\0');
  const int units = ::MultiByteToWideChar(CP_UTF8, 0, bytes.data(), static_cast<int>(length),
                                          text.data(), static_cast<int>(text.size()));
  text.resize(static_cast<std::size_t>(units));
  return text;
}

// 0 when there is no such file.
ULONGLONG FileSize(const std::wstring& path) {
  WIN32_FILE_ATTRIBUTE_DATA data = {};
  if (!::GetFileAttributesExW(path.c_str(), GetFileExInfoStandard, &data)) return 0;
  return Joined(data.nFileSizeHigh, data.nFileSizeLow);
}

// Copies the file when there is one; a report may lack either.
bool CopyInto(const std::wstring& folder, const std::wstring& path) {
  if (!IsFile(path)) return true;
  return ::CopyFileW(path.c_str(), (folder + L"\\" + FileNameOf(path)).c_str(), TRUE);
}

bool Fill(const std::wstring& folder, const CrashReport& report) {
  if (FileSize(report.document_path) + FileSize(report.dump_path) > kMostBytes) return false;
  CrashReport kept = report;
  kept.document_path = FileNameOf(report.document_path);
  kept.dump_path = FileNameOf(report.dump_path);
  return CopyInto(folder, report.document_path) && CopyInto(folder, report.dump_path) &&
         WriteUtf8(folder + L"\\" + kPairsFile, kept.ToPairs().ToLines());
}

std::wstring NameOfThisMoment() {
  SYSTEMTIME now = {};
  ::GetSystemTime(&now);
  std::array<wchar_t, 64> name = {};
  std::swprintf(name.data(), name.size(), L"%04u%02u%02u-%02u%02u%02u-%03u-%lu", now.wYear,
                now.wMonth, now.wDay, now.wHour, now.wMinute, now.wSecond, now.wMilliseconds,
                ::GetCurrentProcessId());
  return name.data();
}

// What a reporter left that was ended in the middle of Keep().
void RemoveAbandoned(const std::wstring& root) {
  FILETIME time = {};
  ::GetSystemTimeAsFileTime(&time);
  const ULONGLONG now = Joined(time);
  std::vector<std::wstring> abandoned;
  ForEachEntry(root, [&](const std::wstring& name, const WIN32_FIND_DATAW& entry) {
    const bool old = Joined(entry.ftLastWriteTime) + kDay < now;
    if (old && name.find(kUnfinished) != std::wstring::npos) {
      abandoned.push_back(root + L"\\" + name);
    }
  });
  for (const std::wstring& folder : abandoned) RemoveFolder(folder);
}

}  // namespace

KeptReports::KeptReports() {
  const std::wstring data = LocalApplicationData();
  if (!data.empty()) root_ = data + L"\\TAVU\\CrashReports";
}

std::optional<std::wstring> KeptReports::Keep(const CrashReport& report) const {
  if (root_.empty() ||
      ::SHCreateDirectoryExW(nullptr, root_.c_str(), nullptr) == ERROR_PATH_NOT_FOUND) {
    return std::nullopt;
  }
  const std::wstring folder = root_ + L"\\" + NameOfThisMoment();
  const std::wstring unfinished = folder + kUnfinished;
  if (!::CreateDirectoryW(unfinished.c_str(), nullptr)) return std::nullopt;
  if (!Fill(unfinished, report) || !::MoveFileW(unfinished.c_str(), folder.c_str())) {
    RemoveFolder(unfinished);
    return std::nullopt;
  }
  return folder;
}

std::vector<KeptReport> KeptReports::List(const std::wstring& software_id) const {
  std::vector<KeptReport> list;
  for (const std::wstring& folder : ReportFolders(root_)) {
    std::optional<CrashReport> report =
        CrashReport::From(Pairs::Parse(ReadUtf8(folder + L"\\" + kPairsFile)));
    if (!report || !ParseServer(report->server_address)) continue;
    if (!software_id.empty() && report->software_id != software_id) continue;
    // Names alone, whatever the file says: what is sent lies in this folder.
    report->document_path = folder + L"\\" + FileNameOf(report->document_path);
    report->dump_path = folder + L"\\" + FileNameOf(report->dump_path);
    list.push_back({folder, std::move(*report)});
  }
  return list;
}

KeptReports::Lock KeptReports::TryLock() const {
  if (root_.empty()) return Lock(nullptr);  // or what follows would work in the drive's own root
  return Lock(ValidOrNull(::CreateFileW((root_ + L"\\lock").c_str(), GENERIC_WRITE, 0, nullptr,
                                        OPEN_ALWAYS, FILE_FLAG_DELETE_ON_CLOSE, nullptr)));
}

void KeptReports::Remove(const Lock&, const KeptReport& kept) const {
  RemoveFolder(kept.folder);
}

void KeptReports::RemoveSurplus(const Lock&) const {
  RemoveAbandoned(root_);
  std::vector<std::wstring> folders = ReportFolders(root_);
  std::size_t count = 0;
  ULONGLONG bytes = 0;
  for (auto folder = folders.rbegin(); folder != folders.rend(); ++folder) {
    bytes += SizeOf(*folder);
    if (++count > kMostReports || bytes > kMostBytes) RemoveFolder(*folder);
  }
}

}  // namespace crash_reporter
