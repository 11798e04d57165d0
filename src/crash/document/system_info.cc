#include "crash/document/system_info.h"

#include <windows.h>

#include <cstdint>
#include <initializer_list>
#include <string>

#include "base/library_function.h"
#include "base/scoped_library.h"
#include "base/scoped_registry_key.h"
#include "base/wide_number_text.h"
#include "crash/attempt.h"

namespace TAVU::crash {

namespace {

constexpr int kProgramFiles = 0x26;  // CSIDL_PROGRAM_FILES

// Megahertz; 0 when the machine does not say.
DWORD ProcessorSpeed() noexcept {
  HKEY opened = nullptr;
  if (::RegOpenKeyExW(HKEY_LOCAL_MACHINE, L"HARDWARE\\DESCRIPTION\\System\\CentralProcessor\\0", 0,
                      KEY_QUERY_VALUE, &opened) != ERROR_SUCCESS) {
    return 0;
  }
  const base::ScopedRegistryKey key(opened);
  DWORD speed = 0;
  DWORD size = sizeof speed;
  ::RegQueryValueExW(key.get(), L"~MHz", nullptr, nullptr, reinterpret_cast<BYTE*>(&speed), &size);
  return speed;
}

struct Number {
  const wchar_t* name;
  std::uint64_t value;
};

std::unique_ptr<XmlNode> DescribeNumbers(const wchar_t* name,
                                         std::initializer_list<Number> numbers) {
  auto element = XmlNode::Make(name);
  for (const Number& number : numbers) element->AddNumberAttribute(number.name, number.value, 10);
  return element;
}

std::unique_ptr<XmlNode> DescribeProcessor(const CrashScene& /*scene*/) {
  SYSTEM_INFO system;
  ::GetSystemInfo(&system);
  return DescribeNumbers(L"processor", {{L"count", system.dwNumberOfProcessors},
                                        {L"type", system.dwProcessorType},
                                        {L"speed", ProcessorSpeed()}});
}

std::unique_ptr<XmlNode> DescribeMemory(const CrashScene& /*scene*/) {
  MEMORYSTATUS status = {};
  status.dwLength = sizeof status;
  ::GlobalMemoryStatus(&status);
  return DescribeNumbers(L"memory", {{L"physical", status.dwTotalPhys},
                                     {L"physical_free", status.dwAvailPhys},
                                     {L"virtual", status.dwTotalVirtual},
                                     {L"virtual_free", status.dwAvailVirtual},
                                     {L"paging_file", status.dwTotalPageFile},
                                     {L"paging_file_free", status.dwAvailPageFile}});
}

std::wstring WindowsVersion() {
  OSVERSIONINFOW version = {};
  version.dwOSVersionInfoSize = sizeof version;
  ::GetVersionExW(&version);
  std::wstring text;
  base::AppendSigned(text, version.dwMajorVersion);
  for (const DWORD part : {version.dwMinorVersion, version.dwBuildNumber, version.dwPlatformId}) {
    text.push_back(L'.');
    base::AppendSigned(text, part);
  }
  // The name of the service pack; not escaped, like the exception's module.
  return text.append(L",").append(version.szCSDVersion);
}

// Where Internet Explorer would be installed; empty when the folder of the programs is not to be
// had.
std::wstring BrowserPath(const api::ApiLock::Guard& /*held*/) {
  const base::ScopedLibrary library(::LoadLibraryW(L"SHFolder.dll"));
  const auto get_folder_path =
      base::FindFunction<HRESULT WINAPI(HWND window, int folder, HANDLE token, DWORD flags,
                                        wchar_t* path)>(library.get(), "SHGetFolderPathW");
  if (get_folder_path == nullptr) return {};
  static wchar_t folder[MAX_PATH];  // off the stack
  if (FAILED(get_folder_path(nullptr, kProgramFiles, nullptr, 0, folder))) return {};
  return std::wstring(folder).append(L"\\Internet Explorer\\IEXPLORE.EXE");
}

std::unique_ptr<XmlNode> DescribeWindows(const CrashScene& scene) {
  auto windows = XmlNode::Make(L"windows");
  windows->AddAttribute(L"version", WindowsVersion());
  Attempt([&] {
    const std::wstring browser = BrowserPath(scene.held);
    if (browser.empty()) return;
    const auto version = scene.versions.FixedVersionOf(browser.c_str());
    if (!version) return;
    windows->AddAttribute(L"explore",
                          FileVersionText(version->dwFileVersionMS, version->dwFileVersionLS));
  });
  return windows;
}

}  // namespace

std::unique_ptr<XmlNode> BuildSystemInfo(const CrashScene& scene) {
  auto system_info = XmlNode::Make(L"system_info");
  AppendElements(*system_info, scene, {&DescribeProcessor, &DescribeMemory, &DescribeWindows});
  return system_info;
}

}  // namespace TAVU::crash
