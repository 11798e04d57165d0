#include "crash/document/file_version.h"

#include <cstddef>
#include <cstring>
#include <memory>

#include "base/library_function.h"
#include "base/wide_number_text.h"

namespace TAVU::crash {

VersionLibrary::VersionLibrary() noexcept
    : library_(::LoadLibraryW(L"Version.dll")),
      get_size_(base::FindFunction<decltype(::GetFileVersionInfoSizeW)>(library_.get(),
                                                                        "GetFileVersionInfoSizeW")),
      get_info_(base::FindFunction<decltype(::GetFileVersionInfoW)>(library_.get(),
                                                                    "GetFileVersionInfoW")),
      query_value_(
          base::FindFunction<decltype(::VerQueryValueW)>(library_.get(), "VerQueryValueW")) {}

bool VersionLibrary::IsComplete() const noexcept {
  return get_size_ != nullptr && get_info_ != nullptr && query_value_ != nullptr;
}

std::optional<VS_FIXEDFILEINFO> VersionLibrary::FixedVersionOf(const wchar_t* path) const {
  const DWORD size = get_size_(path, nullptr);
  if (size == 0) return std::nullopt;
  // Twice the size: what the size function announces is not always enough for the conversions that
  // are made in the block.
  const auto block = std::make_unique<std::byte[]>(std::size_t{size} * 2);
  if (!get_info_(path, 0, size, block.get())) return std::nullopt;
  void* fixed = nullptr;
  UINT length = 0;
  if (!query_value_(block.get(), L"\\", &fixed, &length)) return std::nullopt;
  VS_FIXEDFILEINFO version;
  if (length < sizeof version) return std::nullopt;  // a version without the block
  std::memcpy(&version, fixed, sizeof version);
  return version;
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
