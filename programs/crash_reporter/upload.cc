#include "upload.h"

#include <array>
#include <string_view>

#include <tavu/tavu.h>
#include <windows.h>

#include "files.h"
#include "scoped.h"

namespace crash_reporter {

namespace {

// The host waits for the reporter before it goes away, so an unreachable server must not hold it
// for long; 20 seconds still serve a poor line.
constexpr std::int32_t kTimeoutMilliseconds = 20000;

struct InstanceDestroyer {
  void operator()(TAVU_HANDLE instance) const noexcept { ::TAVU_Destroy(instance); }
};
using ScopedInstance = std::unique_ptr<TAVU_Instance, InstanceDestroyer>;

// A file in the temporary folder for the length of one upload.
class StandIn {
 public:
  explicit StandIn(std::string_view content) noexcept {
    std::array<wchar_t, MAX_PATH + 1> folder = {};
    std::array<wchar_t, MAX_PATH + 1> path = {};
    if (!::GetTempPathW(static_cast<DWORD>(folder.size()), folder.data())) return;
    if (!::GetTempFileNameW(folder.data(), L"tcr", 0, path.data())) return;
    path_ = path.data();
    const ScopedHandle file(
        ValidOrNull(::CreateFileW(path_.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS,
                                  FILE_ATTRIBUTE_TEMPORARY, nullptr)));
    DWORD written = 0;
    if (file) {
      // A short write leaves a short stand-in, which is as good.
      static_cast<void>(::WriteFile(file.get(), content.data(), static_cast<DWORD>(content.size()),
                                    &written, nullptr));
    }
  }
  ~StandIn() {
    if (!path_.empty()) ::DeleteFileW(path_.c_str());
  }
  StandIn(const StandIn&) = delete;
  StandIn& operator=(const StandIn&) = delete;

  [[nodiscard]] const std::wstring& path() const noexcept { return path_; }

 private:
  std::wstring path_;
};

// The layout of the library's own documents, with the one fact that is known. The address is taken
// only as the library writes it: it comes from a command line and goes into a document.
std::string BareDocument(const std::wstring& exception_address) {
  std::string address;
  for (const wchar_t digit : exception_address) {
    if (std::wstring_view(L"0123456789ABCDEFx").find(digit) == std::wstring_view::npos) return "";
    address += static_cast<char>(digit);
  }
  return "<TAVUCrashInfo>\n\t<crash_info>\n\t\t<exception addr=\"" + address +
         "\"></exception>\n\t</crash_info>\n</TAVUCrashInfo>\n";
}

ScopedInstance MakeInstance(const CrashReport& report, const Server& server) {
  ScopedInstance instance(::TAVU_CreateW(
      report.software_id.c_str(), report.software_version.c_str(), report.DisplayName().c_str()));
  if (!instance) return nullptr;
  const TAVU_HANDLE handle = instance.get();
  if (!::TAVU_SetReportServerW(handle, server.host.c_str(), server.port)) return nullptr;
  if (!::TAVU_SetTimeout(handle, kTimeoutMilliseconds)) return nullptr;
  if (report.user_id.empty()) return instance;
  return ::TAVU_SetUserIDW(handle, report.user_id.c_str()) ? std::move(instance) : nullptr;
}

}  // namespace

bool HasEvidence(const CrashReport& report) noexcept {
  return IsFile(report.document_path) || IsFile(report.dump_path);
}

UploadResult Upload(const CrashReport& report) {
  const std::optional<Server> server = ParseServer(report.server_address);
  if (!server) return UploadResult::kNoServer;
  const ScopedInstance instance = MakeInstance(report, *server);
  if (!instance) return UploadResult::kFailed;

  std::optional<StandIn> document;
  std::optional<StandIn> dump;
  if (!IsFile(report.document_path)) document.emplace(BareDocument(report.exception_address));
  if (!IsFile(report.dump_path)) dump.emplace("");
  const std::wstring description = report.app_exe_file + L" " + report.exception_address;
  const std::wstring& document_path = document ? document->path() : report.document_path;
  const std::wstring& dump_path = dump ? dump->path() : report.dump_path;
  if (::TAVU_SendCrashInfoW(instance.get(), report.comment.c_str(), description.c_str(),
                            document_path.c_str(), dump_path.c_str())) {
    return UploadResult::kDelivered;
  }
  return ::TAVU_GetLastError() == TAVU_ERROR_CONNECT_FAILED ? UploadResult::kUnreachable
                                                            : UploadResult::kFailed;
}

}  // namespace crash_reporter
