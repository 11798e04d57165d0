// What the host itself has to say about a crash.
#pragma once

#include <array>
#include <cstddef>
#include <memory>

#include "crash/document/xml_node.h"
#include "tavu/tavu.h"

namespace TAVU::crash {

// Host functions that fill a buffer with the text, by their names in here.
using CustomInfoCallbackW = TAVU_CustumInfoCallbackW;
using CustomInfoCallbackA = TAVU_CustumInfoCallbackA;

// A text that the host stored beforehand, or a function of the host's that is asked for one during
// the crash. At most one of the two functions is set. Used under the ApiLock.
class CustomInfo {
 public:
  static constexpr std::size_t kLongestText = 4095;  // units, without the terminator

  // Each replaces whichever function was set; null leaves none.
  void SetWideCallback(CustomInfoCallbackW callback) noexcept;
  void SetNarrowCallback(CustomInfoCallbackA callback) noexcept;

  // Stores the text, cut to kLongestText; null for none. The narrow form is converted in the locale
  // of the C runtime; one that the locale does not take is cut, or empty.
  void SetText(const wchar_t* text) noexcept;
  void SetText(const char* text) noexcept;

  // "custom_info" with the text of the host's function, which overwrites the stored one, or, when
  // no function is set, with the stored text. Null when there is no text: an empty one, or a
  // function that returned false, threw or crashed. May throw std::bad_alloc.
  [[nodiscard]] std::unique_ptr<XmlNode> Build();

 private:
  // False when the host's function gives no text.
  [[nodiscard]] bool AskHost();

  CustomInfoCallbackW wide_callback_ = nullptr;
  CustomInfoCallbackA narrow_callback_ = nullptr;
  std::array<wchar_t, kLongestText + 1> text_ = {};      // terminated; "" for none
  std::array<char, kLongestText + 1> narrow_text_ = {};  // of the callback; never cleared for it
};

}  // namespace TAVU::crash
