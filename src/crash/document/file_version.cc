#include "crash/document/file_version.h"

#include <cstddef>
#include <cstring>
#include <memory>

#include "base/wide_number_text.h"
#include "crash/filter/crash_handler.h"

namespace TAVU::crash {

bool GetFixedFileVersion(const wchar_t* path, VS_FIXEDFILEINFO* out) {
  if (out == nullptr) return false;
  const CrashHandler& handler = CrashHandler::Get();
  if (handler.versionLibrary == nullptr) return false;
  const auto get_size =
      reinterpret_cast<decltype(&::GetFileVersionInfoSizeW)>(handler.getFileVersionInfoSizeW);
  const auto get_info =
      reinterpret_cast<decltype(&::GetFileVersionInfoW)>(handler.getFileVersionInfoW);
  const auto query_value = reinterpret_cast<decltype(&::VerQueryValueW)>(handler.verQueryValueW);

  const DWORD size = get_size(path, nullptr);
  if (size == 0) return false;
  // Twice the size: what the size function announces is not always enough for the conversions that
  // are made in the block.
  const auto block = std::make_unique<std::byte[]>(std::size_t{size} * 2);
  if (!get_info(path, 0, size, block.get())) return false;
  void* fixed = nullptr;
  UINT length = 0;
  if (!query_value(block.get(), L"\\", &fixed, &length)) return false;
  if (length < sizeof *out) return false;  // a version without the block
  std::memcpy(out, fixed, sizeof *out);
  return true;
}

std::wstring FileVersionText(DWORD ms, DWORD ls) {
  std::wstring text;
  base::AppendUnsigned(text, ms >> 16);
  for (const DWORD part : {ms & 0xFFFF, ls >> 16, ls & 0xFFFF}) {
    text.push_back(L'.');
    base::AppendUnsigned(text, part);
  }
  return text;
}

}  // namespace TAVU::crash
