#include <windows.h>
// The others need it in front of them.
#include <fcntl.h>
#include <io.h>
#include <shellapi.h>
#include <sys/stat.h>

#include <cstdlib>
#include <memory>

#include "platform.h"

namespace TAVU::collector {
namespace {

constexpr int kStandardOutput = 1;
constexpr int kStandardError = 2;

std::string ToUtf8(const wchar_t* text) {
  const int size = WideCharToMultiByte(CP_UTF8, 0, text, -1, nullptr, 0, nullptr, nullptr);
  if (size <= 0) return {};
  std::string utf8(static_cast<std::size_t>(size), '\0');
  WideCharToMultiByte(CP_UTF8, 0, text, -1, utf8.data(), size, nullptr, nullptr);
  utf8.pop_back();  // the terminator
  return utf8;
}

}  // namespace

void PrepareProcess() noexcept {
  _setmode(kStandardOutput, _O_BINARY);
  // A console shows UTF-8 as such; it is left as it was found.
  static const UINT code_page = GetConsoleOutputCP();
  if (code_page != 0 && SetConsoleOutputCP(CP_UTF8)) {
    static_cast<void>(std::atexit([] { SetConsoleOutputCP(code_page); }));
  }
}

void RaiseConnectionLimit() noexcept {}  // memory is the only limit here

std::vector<std::string> ArgumentsInUtf8(int argc, char** argv) {
  int count = 0;
  const std::unique_ptr<LPWSTR[], decltype(&LocalFree)> wide(
      CommandLineToArgvW(GetCommandLineW(), &count), &LocalFree);
  if (wide == nullptr) return {argv + (argc > 0 ? 1 : 0), argv + argc};
  std::vector<std::string> arguments;
  for (int i = 1; i < count; ++i) arguments.push_back(ToUtf8(wide[static_cast<std::size_t>(i)]));
  return arguments;
}

bool WriteStandardError(std::string_view line) noexcept {
  const auto size = static_cast<unsigned>(line.size());
  return _write(kStandardError, line.data(), size) == static_cast<int>(size);
}

std::error_code SyncFile(std::FILE* file) noexcept {
  return _commit(_fileno(file)) == 0 ? std::error_code() : LastError();
}

std::error_code SyncFolder(const std::filesystem::path&) noexcept {
  return {};
}

void NotifyServiceManager(std::string_view) noexcept {}

std::size_t ConnectionLimit() noexcept {
  return 16384;  // memory is the only limit of the system
}

ScopedFile CreateNewFile(const std::filesystem::path& path, std::error_code& error) {
  const int descriptor =
      _wopen(path.c_str(), _O_WRONLY | _O_CREAT | _O_EXCL | _O_BINARY, _S_IREAD | _S_IWRITE);
  std::FILE* file = descriptor < 0 ? nullptr : _fdopen(descriptor, "wb");
  if (file != nullptr) return ScopedFile(file);
  error = LastError();
  if (descriptor >= 0) _close(descriptor);
  return nullptr;
}

// Here the option would let a second collector, or anybody, take the port of a running one.
bool AddressReuseIsSafe() noexcept {
  return false;
}

}  // namespace TAVU::collector
