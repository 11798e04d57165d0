// Resources of the system that close themselves.
#pragma once

#include <windows.h>

namespace TAVU::crash {

// Owns what Traits::Close gives back; a value that Traits::IsValid refuses is not closed.
template <typename Traits>
class Scoped {
 public:
  using Resource = typename Traits::Resource;

  explicit Scoped(Resource resource) noexcept : resource_(resource) {}
  Scoped(const Scoped&) = delete;
  Scoped& operator=(const Scoped&) = delete;
  ~Scoped() {
    if (*this) Traits::Close(resource_);
  }

  explicit operator bool() const noexcept { return Traits::IsValid(resource_); }
  [[nodiscard]] Resource get() const noexcept { return resource_; }

 private:
  Resource resource_;
};

// For the functions whose failure is INVALID_HANDLE_VALUE: CreateFileW, CreateToolhelp32Snapshot.
struct FileTraits {
  using Resource = HANDLE;
  static bool IsValid(HANDLE file) noexcept { return file != INVALID_HANDLE_VALUE; }
  static void Close(HANDLE file) noexcept { ::CloseHandle(file); }
};
using ScopedFile = Scoped<FileTraits>;

struct LibraryTraits {
  using Resource = HMODULE;
  static bool IsValid(HMODULE library) noexcept { return library != nullptr; }
  static void Close(HMODULE library) noexcept { ::FreeLibrary(library); }
};
using ScopedLibrary = Scoped<LibraryTraits>;

}  // namespace TAVU::crash
