#include "kept_reports.h"

#include <algorithm>
#include <array>
#include <cwchar>
#include <cwctype>
#include <string_view>
#include <system_error>

#include <shlobj.h>
#include <windows.h>

#include "files.h"

namespace crash_reporter {

namespace {

namespace fs = std::filesystem;

constexpr std::size_t kMostReports = 10;
constexpr std::uintmax_t kMostBytes = std::uintmax_t{64} << 20;
constexpr ULONGLONG kDay = 24ULL * 60 * 60 * 10'000'000;  // in units of FILETIME
constexpr ULONGLONG kLongestKept = 30 * kDay;

constexpr wchar_t kPairsFile[] = L"report.txt";
constexpr std::wstring_view kUnfinished = L".unfinished";

fs::path LocalApplicationData() {
  // The variable first: it is how a user, or a test, redirects a program's data.
  std::array<wchar_t, MAX_PATH + 1> folder = {};
  const DWORD length =
      ::GetEnvironmentVariableW(L"LOCALAPPDATA", folder.data(), static_cast<DWORD>(folder.size()));
  if (length > 0 && length < folder.size()) return folder.data();
  if (FAILED(::SHGetFolderPathW(nullptr, CSIDL_LOCAL_APPDATA, nullptr, 0, folder.data()))) {
    return {};
  }
  return folder.data();
}

// Stricter than path::filename(): a name with a colon would lead to another drive or into an
// alternate stream when it is joined to a folder.
std::wstring FileNameOf(const std::wstring& path) {
  return path.substr(path.find_last_of(L"\\/:") + 1);
}

// ---- Names of folders: "20111201-090503-123-4567", the UTC time and the process -----------------

std::wstring NameOf(ULONGLONG moment, DWORD process) {
  const FILETIME halves = {static_cast<DWORD>(moment), static_cast<DWORD>(moment >> 32)};
  SYSTEMTIME time = {};
  ::FileTimeToSystemTime(&halves, &time);
  std::array<wchar_t, 64> name = {};
  std::swprintf(name.data(), name.size(), L"%04u%02u%02u-%02u%02u%02u-%03u-%lu", time.wYear,
                time.wMonth, time.wDay, time.wHour, time.wMinute, time.wSecond, time.wMilliseconds,
                process);
  return name.data();
}

ULONGLONG Now() noexcept {
  FILETIME now = {};
  ::GetSystemTimeAsFileTime(&now);
  return (static_cast<ULONGLONG>(now.dwHighDateTime) << 32) | now.dwLowDateTime;
}

bool IsName(std::wstring_view name) noexcept {
  constexpr std::wstring_view kForm = L"dddddddd-dddddd-ddd-d";
  if (name.size() < kForm.size()) return false;
  for (std::size_t i = 0; i < name.size(); ++i) {
    const wchar_t form = i < kForm.size() ? kForm[i] : L'd';
    if (form == L'd' ? !std::iswdigit(name[i]) : name[i] != form) return false;
  }
  return true;
}

enum class Stage { kFinished, kUnfinished };

// The folders of kept reports, or of those that a reporter left that was ended in the middle of
// Keep(); the oldest first.
std::vector<fs::path> ReportFolders(const fs::path& root, Stage stage) {
  const std::wstring_view suffix = stage == Stage::kUnfinished ? kUnfinished : L"";
  std::vector<fs::path> folders;
  std::error_code error;
  for (fs::directory_iterator entry(root, error), end; !error && entry != end;
       entry.increment(error)) {
    const std::wstring name = entry->path().filename();
    const std::size_t length = name.size() - std::min(name.size(), suffix.size());
    const bool is_ours = name.substr(length) == suffix && IsName(name.substr(0, length));
    if (is_ours && IsFolder(entry->path())) folders.push_back(entry->path());
  }
  std::sort(folders.begin(), folders.end());
  return folders;
}

// ---- The content of a folder --------------------------------------------------------------------

bool WriteUtf8(const fs::path& path, const std::wstring& text) {
  std::string bytes(text.size() * 3, '\0');
  const int length =
      ::WideCharToMultiByte(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), bytes.data(),
                            static_cast<int>(bytes.size()), nullptr, nullptr);
  const ScopedHandle file(ValidOrNull(::CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr,
                                                    CREATE_NEW, FILE_ATTRIBUTE_NORMAL, nullptr)));
  DWORD written = 0;
  return file &&
         ::WriteFile(file.get(), bytes.data(), static_cast<DWORD>(length), &written, nullptr) &&
         written == static_cast<DWORD>(length);
}

// Empty when there is no such file. A command line, and so its pairs, is shorter than the buffer.
std::wstring ReadUtf8(const fs::path& path) {
  if (!IsFile(path)) return L"";
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

// Nothing for a folder without the pairs of a report.
std::optional<CrashReport> ReadReport(const fs::path& folder) {
  std::optional<CrashReport> report =
      CrashReport::From(Pairs::Parse(ReadUtf8(folder / kPairsFile)));
  if (!report) return std::nullopt;
  // Names alone, whatever the file says: what is sent and deleted lies in this folder.
  for (std::wstring* path : {&report->document_path, &report->dump_path}) {
    *path = (folder / FileNameOf(*path)).native();
  }
  return report;
}

// The files that Keep() wrote, its notes last: as long as they are there, the others are known.
std::vector<fs::path> FilesOf(const fs::path& folder) {
  std::vector<fs::path> files;
  const std::optional<CrashReport> report = ReadReport(folder);
  if (!report) return files;
  for (const fs::path& file :
       {fs::path(report->document_path), fs::path(report->dump_path), folder / kPairsFile}) {
    if (IsFile(file)) files.push_back(file);
  }
  return files;
}

// 0 when there is no such file.
std::uintmax_t SizeOf(const fs::path& file) {
  std::error_code error;
  const std::uintmax_t size = fs::file_size(file, error);
  return error ? 0 : size;
}

void RemoveFolder(const fs::path& folder) {
  std::error_code error;
  for (const fs::path& file : FilesOf(folder)) {
    if (!fs::remove(file, error)) return;  // in use, perhaps; a later start tries again
  }
  fs::remove(folder, error);  // stays when somebody else's files are in it
}

// Copies the file when there is one; a report may lack either.
bool CopyInto(const fs::path& folder, const std::wstring& path) {
  std::error_code error;
  return !IsFile(path) || fs::copy_file(path, folder / FileNameOf(path), error);
}

bool Fill(const fs::path& folder, const CrashReport& report) {
  if (SizeOf(report.document_path) + SizeOf(report.dump_path) > kMostBytes) return false;
  CrashReport kept = report;
  kept.document_path = FileNameOf(report.document_path);
  kept.dump_path = FileNameOf(report.dump_path);
  return WriteUtf8(folder / kPairsFile, kept.ToPairs().ToLines()) &&
         CopyInto(folder, report.document_path) && CopyInto(folder, report.dump_path);
}

}  // namespace

KeptReports::KeptReports() {
  const fs::path data = LocalApplicationData();
  if (!data.empty()) root_ = data / L"TAVU" / L"CrashReports";
}

bool KeptReports::HasPlace() const noexcept {
  return !root_.empty() && IsFolder(root_.parent_path()) && IsFolder(root_);
}

std::optional<fs::path> KeptReports::Keep(const CrashReport& report) const {
  std::error_code error;
  fs::create_directories(root_, error);
  if (!HasPlace()) return std::nullopt;
  const fs::path folder = root_ / NameOf(Now(), ::GetCurrentProcessId());
  fs::path unfinished = folder;
  unfinished += kUnfinished;
  if (!fs::create_directory(unfinished, error)) return std::nullopt;
  if (Fill(unfinished, report)) {
    fs::rename(unfinished, folder, error);
    if (!error) return folder;
  }
  RemoveFolder(unfinished);
  return std::nullopt;
}

std::vector<KeptReport> KeptReports::List(const std::wstring& software_id) const {
  std::vector<KeptReport> list;
  if (!HasPlace()) return list;
  for (const fs::path& folder : ReportFolders(root_, Stage::kFinished)) {
    std::optional<CrashReport> report = ReadReport(folder);
    if (!report || !ParseServer(report->server_address)) continue;
    if (!software_id.empty() && report->software_id != software_id) continue;
    list.push_back({folder, std::move(*report)});
  }
  return list;
}

KeptReports::Lock KeptReports::TryLock() const {
  if (!HasPlace()) return Lock(nullptr);
  // Not through a link: what it leads to would be deleted when the lock is released.
  return Lock(ValidOrNull(
      ::CreateFileW((root_ / L"lock").c_str(), GENERIC_WRITE, 0, nullptr, OPEN_ALWAYS,
                    FILE_FLAG_DELETE_ON_CLOSE | FILE_FLAG_OPEN_REPARSE_POINT, nullptr)));
}

void KeptReports::Remove(const Lock&, const KeptReport& kept) const {
  RemoveFolder(kept.folder);
}

void KeptReports::RemoveSurplus(const Lock&) const {
  const ULONGLONG now = Now();
  const std::wstring a_day_ago = NameOf(now - kDay, 0);
  for (const fs::path& folder : ReportFolders(root_, Stage::kUnfinished)) {
    if (folder.filename() < a_day_ago) RemoveFolder(folder);
  }
  const std::wstring too_old = NameOf(now - kLongestKept, 0);
  std::vector<fs::path> folders = ReportFolders(root_, Stage::kFinished);
  std::size_t count = 0;
  std::uintmax_t bytes = 0;
  for (auto folder = folders.rbegin(); folder != folders.rend(); ++folder) {
    const std::vector<fs::path> files = FilesOf(*folder);
    if (files.empty()) continue;  // not written here
    for (const fs::path& file : files) bytes += SizeOf(file);
    const bool surplus = ++count > kMostReports || bytes > kMostBytes;
    if (surplus || folder->filename() < too_old) RemoveFolder(*folder);
  }
}

}  // namespace crash_reporter
