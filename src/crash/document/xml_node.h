// The element tree of the crash document, before it is written.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace TAVU::crash {

// One element. Values are finished texts: numbers are formatted when they are added, and whoever
// adds a text escapes it, where it is to be escaped. Owns its children, and with them its whole
// subtree. May throw std::bad_alloc.
class XmlNode {
 public:
  struct Attribute {
    std::wstring name;
    std::wstring value;
  };

  explicit XmlNode(std::wstring_view name);
  XmlNode(const XmlNode&) = delete;
  XmlNode& operator=(const XmlNode&) = delete;
  ~XmlNode();

  [[nodiscard]] static std::unique_ptr<XmlNode> Make(std::wstring_view name);

  void AddChild(std::unique_ptr<XmlNode> child);
  void SetText(std::wstring_view text);
  // Attributes keep their order; a name may occur more than once.
  void AddAttribute(std::wstring_view name, std::wstring_view value);
  // The low 32 bits of `value`, unsigned: plain in base 10, "0x" and eight upper-case digits in
  // base 16. Any other base gives an empty value. The format tells 32 bits of
  // addresses and sizes, on 64-bit hosts too.
  void AddNumberAttribute(std::wstring_view name, std::uint64_t value, int base);

  [[nodiscard]] const std::wstring& name() const noexcept { return name_; }
  [[nodiscard]] const std::wstring& text() const noexcept { return text_; }  // empty: none
  [[nodiscard]] const std::vector<Attribute>& attributes() const noexcept { return attributes_; }
  [[nodiscard]] const std::vector<std::unique_ptr<XmlNode>>& children() const noexcept {
    return children_;
  }

 private:
  std::wstring name_;
  std::wstring text_;
  std::vector<Attribute> attributes_;
  std::vector<std::unique_ptr<XmlNode>> children_;
};

// Replaces the five characters that mean something in XML: & ' " < >
[[nodiscard]] std::wstring EscapeXmlText(std::wstring_view text);

}  // namespace TAVU::crash
