// What a host does with the library, for tests that go through its exports.
#pragma once

#include <gtest/gtest.h>
#include <tavu/tavu.h>
#include <windows.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <type_traits>
#include <vector>

// An export of a library that was loaded late.
#define TAVU_FIND(library, name) \
  reinterpret_cast<decltype(&name)>(reinterpret_cast<void*>(::GetProcAddress(library, #name)))

namespace TAVU::test {

// An export as a caller without C's bool sees it: flags are bytes, the result is a whole register.
template <typename T>
using Foreign = std::conditional_t<std::is_same_v<T, bool>, unsigned char, T>;
template <typename... Arguments>
auto AsForeign(bool (*function)(Arguments...)) {
  return reinterpret_cast<std::uint32_t (*)(Foreign<Arguments>...)>(
      reinterpret_cast<void*>(function));
}

inline void ExpectFailure(std::uint32_t result, std::uint32_t code) {
  EXPECT_EQ(result, 0u);
  EXPECT_EQ(TAVU_GetLastError(), code);
  static_cast<void>(TAVU_SetTimeout(nullptr, 1));  // leaves another code
}

// An instance of the identity that most vectors have.
class Instance {
 public:
  explicit Instance(std::uint16_t port, const char* host = "127.0.0.1")
      : handle_(TAVU_CreateA("game", "1.0.3", "Game")) {
    if (port != 0) TAVU_SetReportServerA(handle_, host, port);
  }
  ~Instance() { TAVU_Destroy(handle_); }
  Instance(const Instance&) = delete;
  Instance& operator=(const Instance&) = delete;
  operator TAVU_HANDLE() const { return handle_; }

 private:
  TAVU_HANDLE handle_;
};

// A file in the temporary folder, with a name outside ASCII.
class TempFile {
 public:
  explicit TempFile(const std::vector<std::byte>& content) {
    static DWORD count = 0;
    wchar_t folder[MAX_PATH + 1];
    path_.assign(folder, ::GetTempPathW(MAX_PATH + 1, folder));
    path_ += L"tavu \u00e9 " + std::to_wstring(::GetCurrentProcessId() * 100 + ++count);
    std::FILE* const file = ::_wfopen(path_.c_str(), L"wb");
    std::fwrite(content.data(), 1, content.size(), file);
    std::fclose(file);
  }
  ~TempFile() { ::DeleteFileW(path_.c_str()); }
  TempFile(const TempFile&) = delete;
  TempFile& operator=(const TempFile&) = delete;

  template <typename Unit = wchar_t>
  [[nodiscard]] std::basic_string<Unit> path() const {
    return {path_.begin(), path_.end()};  // as a narrow text right in Latin-1
  }

 private:
  std::wstring path_;
};

}  // namespace TAVU::test
