#include "crash/document/custom_info.h"

#include <cstdint>
#include <cstdlib>
#include <cwchar>

#include "crash/attempt.h"

namespace TAVU::crash {

namespace {

// False when the function says so, throws or crashes. Whatever it has written is terminated.
template <typename Callback, typename Buffer>
bool FillByHost(Callback callback, Buffer& buffer) {
  bool filled = false;
  Attempt([&] {
    filled = callback(buffer.data(), static_cast<std::int32_t>(CustomInfo::kLongestText)) != 0;
  });
  buffer.back() = 0;
  return filled;
}

}  // namespace

void CustomInfo::SetWideCallback(CustomInfoCallbackW callback) noexcept {
  wide_callback_ = callback;
  narrow_callback_ = nullptr;
}

void CustomInfo::SetNarrowCallback(CustomInfoCallbackA callback) noexcept {
  narrow_callback_ = callback;
  wide_callback_ = nullptr;
}

void CustomInfo::SetText(const wchar_t* text) noexcept {
  text_.fill(L'\0');
  if (text != nullptr) static_cast<void>(std::wcsncpy(text_.data(), text, kLongestText));
}

// Nothing is written after the last but one unit, and what is not written is zero: a conversion
// that stops there, or at a byte that the locale refuses, leaves a terminated text.
void CustomInfo::SetText(const char* text) noexcept {
  text_.fill(L'\0');
  if (text != nullptr) static_cast<void>(std::mbstowcs(text_.data(), text, kLongestText));
}

std::unique_ptr<XmlNode> CustomInfo::Build() {
  if (!AskHost()) return nullptr;
  // Readers of the document never meet an empty element here: no text means no element.
  if (text_.front() == L'\0') return nullptr;
  auto custom_info = XmlNode::Make(L"custom_info");
  // Not escaped: a host may write elements of its own, and escapes would break those. In return,
  // free text may make the document malformed.
  custom_info->SetText(text_.data());
  return custom_info;
}

bool CustomInfo::AskHost() {
  if (wide_callback_ != nullptr) return FillByHost(wide_callback_, text_);
  if (narrow_callback_ == nullptr) return true;
  if (!FillByHost(narrow_callback_, narrow_text_)) return false;
  SetText(narrow_text_.data());
  return true;
}

}  // namespace TAVU::crash
