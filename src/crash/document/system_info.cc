#include "crash/document/system_info.h"

#include <windows.h>

#include "base/scoped_library.h"
#include "base/scoped_registry_key.h"
#include "base/wide_number_text.h"
#include "crash/document/file_version.h"

namespace TAVU::crash {

namespace {

constexpr int kProgramFiles = 0x26;  // CSIDL_PROGRAM_FILES

using GetFolderPath = HRESULT(WINAPI*)(HWND window, int folder, HANDLE token, DWORD flags,
                                       wchar_t* path);

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

std::unique_ptr<XmlNode> DescribeProcessor() {
  SYSTEM_INFO system;
  ::GetSystemInfo(&system);
  auto processor = std::make_unique<XmlNode>(L"processor");
  processor->AddNumberAttribute(L"count", system.dwNumberOfProcessors, 10);
  processor->AddNumberAttribute(L"type", system.dwProcessorType, 10);
  processor->AddNumberAttribute(L"speed", ProcessorSpeed(), 10);
  return processor;
}

std::unique_ptr<XmlNode> DescribeMemory() {
  MEMORYSTATUS status = {};
  status.dwLength = sizeof status;
  ::GlobalMemoryStatus(&status);
  auto memory = std::make_unique<XmlNode>(L"memory");
  memory->AddNumberAttribute(L"physical", status.dwTotalPhys, 10);
  memory->AddNumberAttribute(L"physical_free", status.dwAvailPhys, 10);
  memory->AddNumberAttribute(L"virtual", status.dwTotalVirtual, 10);
  memory->AddNumberAttribute(L"virtual_free", status.dwAvailVirtual, 10);
  memory->AddNumberAttribute(L"paging_file", status.dwTotalPageFile, 10);
  memory->AddNumberAttribute(L"paging_file_free", status.dwAvailPageFile, 10);
  return memory;
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
  // The name of the service pack, not escaped: like the exception's module, readers take it as it
  // is.
  return text.append(L",").append(version.szCSDVersion);
}

std::unique_ptr<XmlNode> DescribeWindows() {
  auto windows = std::make_unique<XmlNode>(L"windows");
  windows->AddAttribute(L"version", WindowsVersion());
  std::wstring browser;
  VS_FIXEDFILEINFO version;
  if (GetBrowserPath(browser) && GetFixedFileVersion(browser.c_str(), &version)) {
    windows->AddAttribute(L"explore",
                          FileVersionText(version.dwFileVersionMS, version.dwFileVersionLS));
  }
  return windows;
}

}  // namespace

std::unique_ptr<XmlNode> BuildSystemInfo() {
  auto system_info = std::make_unique<XmlNode>(L"system_info");
  system_info->AddChild(DescribeProcessor());
  system_info->AddChild(DescribeMemory());
  system_info->AddChild(DescribeWindows());
  return system_info;
}

bool GetBrowserPath(std::wstring& out) {
  const base::ScopedLibrary library(::LoadLibraryW(L"SHFolder.dll"));
  if (!library) return false;
  const auto get_folder_path =
      reinterpret_cast<GetFolderPath>(::GetProcAddress(library.get(), "SHGetFolderPathW"));
  if (get_folder_path == nullptr) return false;
  static wchar_t folder[MAX_PATH];  // off the stack
  if (FAILED(get_folder_path(nullptr, kProgramFiles, nullptr, 0, folder))) return false;
  out.assign(folder).append(L"\\Internet Explorer\\IEXPLORE.EXE");
  return true;
}

}  // namespace TAVU::crash
