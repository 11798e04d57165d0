// Settings of an instance, and what can be read back of them. Whatever can run out of memory is
// done before the instance is touched.
#include <cstring>
#include <cwchar>
#include <utility>

#include "api/frame/export_frame.h"
#include "api/frame/host_text.h"

namespace TAVU::api {
namespace {

template <typename Char>
bool SetReportServer(TAVU_HANDLE handle, const Char* host, std::uint16_t port) noexcept {
  return RunExport([&](const ApiLock::Guard& held) {
    if (IsNullOrEmpty(host)) return Fail(ErrorCode::kInvalidArgument);
    if (port == 0) return Fail(ErrorCode::kInvalidArgument);
    const PinnedInstance instance(held, HandleOf(handle));
    if (!instance) return Fail(ErrorCode::kInvalidHandle);
    instance->serverHost = ToAnsi(host);
    instance->serverPort = port;
    return true;
  });
}

// The forms differ where the host fills the buffer to the last character and leaves no
// room for the terminator: the 8-bit copy cuts that character off, the wide one runs into the
// runtime's invalid-parameter handling.
void CopyHost(const std::string& host, char* buffer, std::size_t capacity) noexcept {
  static_cast<void>(::strncpy_s(buffer, capacity, host.c_str(), _TRUNCATE));
}

void CopyHost(const std::string& host, wchar_t* buffer, std::size_t capacity) {
  static_cast<void>(::wcscpy_s(buffer, capacity, ToWide(host.c_str()).c_str()));
}

template <typename Char>
bool GetReportServer(TAVU_HANDLE handle, std::uint16_t* port, Char* buffer,
                     std::int32_t capacity) noexcept {
  return RunExport([&](const ApiLock::Guard& held) {
    if (port == nullptr) return Fail(ErrorCode::kInvalidArgument);
    if (buffer == nullptr || capacity <= 0) return Fail(ErrorCode::kInvalidArgument);
    const PinnedInstance instance(held, HandleOf(handle));
    if (!instance) return Fail(ErrorCode::kInvalidHandle);
    if (!instance->HasServer()) return Fail(ErrorCode::kNoServer);
    const auto room = static_cast<std::size_t>(capacity);
    // Counts ANSI bytes for both forms and no terminator: a capacity equal to the length passes.
    if (room < instance->serverHost.size()) return Fail(ErrorCode::kInvalidArgument);
    CopyHost(instance->serverHost, buffer, room);
    *port = instance->serverPort;
    return true;
  });
}

template <typename Char>
bool SetUserId(TAVU_HANDLE handle, const Char* userId) noexcept {
  return RunExport([&](const ApiLock::Guard& held) {
    if (IsNullOrEmpty(userId)) return Fail(ErrorCode::kInvalidArgument);
    const PinnedInstance instance(held, HandleOf(handle));
    if (!instance) return Fail(ErrorCode::kInvalidHandle);
    std::string encoded = ToUtf8(userId, TextForm::kPercentEncoded);
    std::wstring wide = ToWide(userId);
    instance->userIdEncoded = std::move(encoded);
    instance->userId = std::move(wide);
    return true;
  });
}

void CopyUserId(const std::wstring& userId, wchar_t* buffer, std::size_t capacity) noexcept {
  static_cast<void>(::wcsncpy_s(buffer, capacity, userId.c_str(), _TRUNCATE));
}

void CopyUserId(const std::wstring& userId, char* buffer, std::size_t capacity) {
  static_cast<void>(::strncpy_s(buffer, capacity, ToAnsi(userId.c_str()).c_str(), _TRUNCATE));
}

template <typename Char>
bool GetUserId(TAVU_HANDLE handle, Char* buffer, std::uint32_t capacity) noexcept {
  return RunExport([&](const ApiLock::Guard& held) {
    if (buffer == nullptr || capacity == 0) return Fail(ErrorCode::kInvalidArgument);
    const PinnedInstance instance(held, HandleOf(handle));
    if (!instance) return Fail(ErrorCode::kInvalidHandle);
    if (instance->userId.empty()) return Fail(ErrorCode::kNoUserId);
    // Counts UTF-16 units for both forms and no terminator: what then finds no room is cut off.
    if (capacity < instance->userId.size()) return Fail(ErrorCode::kInvalidArgument);
    CopyUserId(instance->userId, buffer, capacity);
    return true;
  });
}

template <typename Char>
bool SetAppRestart(TAVU_HANDLE handle, bool restart, const Char* commandLine) noexcept {
  return RunExport([&](const ApiLock::Guard& held) {
    if (restart && IsNullOrEmpty(commandLine)) return Fail(ErrorCode::kInvalidArgument);
    const PinnedInstance instance(held, HandleOf(handle));
    if (!instance) return Fail(ErrorCode::kInvalidHandle);
    if (restart) instance->appExecuteCmd = ToWide(commandLine);
    instance->appRestart = restart;
    return true;
  });
}

bool SetTimeout(TAVU_HANDLE handle, std::int32_t milliseconds) noexcept {
  return RunExport([&](const ApiLock::Guard& held) {
    if (milliseconds <= 0) return Fail(ErrorCode::kInvalidArgument);
    const PinnedInstance instance(held, HandleOf(handle));
    if (!instance) return Fail(ErrorCode::kInvalidHandle);
    instance->timeoutMs = milliseconds;
    return true;
  });
}

// For the settings that take every value.
template <typename Setting>
bool Store(TAVU_HANDLE handle, Setting InstanceRecord::*setting, Setting value) noexcept {
  return RunExport([&](const ApiLock::Guard& held) {
    const PinnedInstance instance(held, HandleOf(handle));
    if (!instance) return Fail(ErrorCode::kInvalidHandle);
    (*instance).*setting = value;
    return true;
  });
}

}  // namespace
}  // namespace TAVU::api

TAVU_BOOL TAVU_CALL TAVU_SetReportServerA(TAVU_HANDLE handle, const char* host, uint16_t port) {
  return TAVU::api::SetReportServer(handle, host, port);
}

TAVU_BOOL TAVU_CALL TAVU_SetReportServerW(TAVU_HANDLE handle, const wchar_t* host, uint16_t port) {
  return TAVU::api::SetReportServer(handle, host, port);
}

TAVU_BOOL TAVU_CALL TAVU_GetReportServerA(TAVU_HANDLE handle, uint16_t* port, char* buffer,
                                          int32_t capacity) {
  return TAVU::api::GetReportServer(handle, port, buffer, capacity);
}

TAVU_BOOL TAVU_CALL TAVU_GetReportServerW(TAVU_HANDLE handle, uint16_t* port, wchar_t* buffer,
                                          int32_t capacity) {
  return TAVU::api::GetReportServer(handle, port, buffer, capacity);
}

TAVU_BOOL TAVU_CALL TAVU_SetUserIDA(TAVU_HANDLE handle, const char* userId) {
  return TAVU::api::SetUserId(handle, userId);
}

TAVU_BOOL TAVU_CALL TAVU_SetUserIDW(TAVU_HANDLE handle, const wchar_t* userId) {
  return TAVU::api::SetUserId(handle, userId);
}

TAVU_BOOL TAVU_CALL TAVU_GetUserIDA(TAVU_HANDLE handle, char* buffer, uint32_t capacity) {
  return TAVU::api::GetUserId(handle, buffer, capacity);
}

TAVU_BOOL TAVU_CALL TAVU_GetUserIDW(TAVU_HANDLE handle, wchar_t* buffer, uint32_t capacity) {
  return TAVU::api::GetUserId(handle, buffer, capacity);
}

TAVU_BOOL TAVU_CALL TAVU_SetTimeout(TAVU_HANDLE handle, int32_t milliseconds) {
  return TAVU::api::SetTimeout(handle, milliseconds);
}

TAVU_BOOL TAVU_CALL TAVU_SetAutoReport(TAVU_HANDLE handle, TAVU_FLAG autoReport) {
  return TAVU::api::Store(handle, &TAVU::api::InstanceRecord::autoReport, autoReport != 0);
}

TAVU_BOOL TAVU_CALL TAVU_DeleteLocalDumpFile(TAVU_HANDLE handle, TAVU_FLAG deleteFile) {
  return TAVU::api::Store(handle, &TAVU::api::InstanceRecord::deleteLocalDumpFile, deleteFile != 0);
}

TAVU_BOOL TAVU_CALL TAVU_SetReporterLanguage(TAVU_HANDLE handle, uint32_t language) {
  return TAVU::api::Store(handle, &TAVU::api::InstanceRecord::reportLang, language);
}

TAVU_BOOL TAVU_CALL TAVU_SetAppRestartA(TAVU_HANDLE handle, TAVU_FLAG restart,
                                        const char* commandLine) {
  return TAVU::api::SetAppRestart(handle, restart != 0, commandLine);
}

TAVU_BOOL TAVU_CALL TAVU_SetAppRestartW(TAVU_HANDLE handle, TAVU_FLAG restart,
                                        const wchar_t* commandLine) {
  return TAVU::api::SetAppRestart(handle, restart != 0, commandLine);
}
