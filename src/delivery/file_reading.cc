#include "delivery/file_reading.h"

#include <windows.h>

#include "base/scoped_handle.h"

namespace TAVU::delivery {

namespace {

using base::ScopedFile;

base::ScopedFile OpenForReading(const wchar_t* path) noexcept {
  return base::ScopedFile(::CreateFileW(path, GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE,
                                        nullptr, OPEN_EXISTING, 0, nullptr));
}

// Fills `block` from the file. False when a read fails.
bool ReadFully(const base::ScopedFile& file, std::span<std::byte> block) noexcept {
  while (!block.empty()) {
    DWORD read = 0;
    if (!::ReadFile(file.get(), block.data(), static_cast<DWORD>(block.size()), &read, nullptr)) {
      return false;
    }
    // A read that succeeds with nothing is tried again without limit, so that a file which another
    // process truncates and writes again is sent whole. While it stays short, the sender stays busy
    // and holds the ApiLock.
    block = block.subspan(read);
  }
  return true;
}

}  // namespace

std::optional<std::span<const std::byte>> ReadWholeFile(const wchar_t* path,
                                                        base::ReleasePool& pool) noexcept {
  const base::ScopedFile file = OpenForReading(path);
  if (!file) return std::nullopt;

  const DWORD size = ::GetFileSize(file.get(), nullptr);
  if (size == INVALID_FILE_SIZE) return std::nullopt;

  auto* const block = static_cast<std::byte*>(pool.Allocate(std::size_t{size} + 1));
  if (block == nullptr) return std::nullopt;

  if (!ReadFully(file, {block, size})) {
    static_cast<void>(pool.Release(pool.count() - 1));  // it is there: it has just been made
    return std::nullopt;
  }
  block[size] = std::byte{0};
  return std::span<const std::byte>(block, size);
}

}  // namespace TAVU::delivery
