#include "crash/document/custom_info.h"

#include <cstdint>
#include <cstdlib>
#include <iterator>

#include "crash/filter/crash_handler.h"

namespace TAVU::crash {

namespace {

constexpr std::size_t kLongestText = kAdditionalInfoCapacity - 1;  // without the terminator

// Codes under which the compilers of a host raise a throw of their language.
constexpr DWORD kLanguageExceptions[] = {
    0xE06D7363,  // C++: Visual C++, clang-cl
    0x20474343,  // C++: GCC, clang for MinGW
    0xE0434352,  // the .NET languages
    0x0EEDFADE,  // Delphi
};

// Memory faults and the like pass by: they are crashes of the callback.
int FilterLanguageException(DWORD code) noexcept {
  for (const DWORD language_code : kLanguageExceptions) {
    if (code == language_code) return EXCEPTION_EXECUTE_HANDLER;
  }
  return EXCEPTION_CONTINUE_SEARCH;
}

// catch (...) would see nothing but the throws of this library's own compiler family.
template <typename Unit>
bool CallHost(bool(__cdecl* callback)(Unit*, std::int32_t), Unit* buffer) {
  __try {
    return callback(buffer, static_cast<std::int32_t>(kLongestText));
  } __except (FilterLanguageException(GetExceptionCode())) {
    return false;
  }
}

bool FillFromWideCallback(CrashHandler& handler) {
  const bool filled = CallHost(handler.customInfoCallbackW, handler.additionalInfo.data());
  handler.additionalInfo.back() = L'\0';
  return filled;
}

bool FillFromNarrowCallback(CrashHandler& handler) {
  static char narrow[kAdditionalInfoCapacity];  // off the stack; not cleared for the host
  if (!CallHost(handler.customInfoCallbackA, narrow)) return false;
  narrow[kLongestText] = '\0';
  handler.additionalInfo.fill(L'\0');
  static_cast<void>(std::mbstowcs(handler.additionalInfo.data(), narrow, kLongestText));
  return true;
}

// False when a callback gives no text.
bool FillAdditionalInfo(CrashHandler& handler) {
  if (handler.customInfoCallbackW != nullptr) return FillFromWideCallback(handler);
  if (handler.customInfoCallbackA != nullptr) return FillFromNarrowCallback(handler);
  return true;
}

}  // namespace

std::unique_ptr<XmlNode> BuildCustomInfo() {
  CrashHandler& handler = CrashHandler::Get();
  if (!FillAdditionalInfo(handler)) return nullptr;
  if (handler.additionalInfo.front() == L'\0') return nullptr;
  auto custom_info = std::make_unique<XmlNode>(L"custom_info");
  // Not escaped: a host may write elements of its own, and escapes would break those. In return,
  // free text may make the document malformed.
  custom_info->SetText(handler.additionalInfo.data());
  return custom_info;
}

}  // namespace TAVU::crash
