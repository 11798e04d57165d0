#include "crash/document/xml_node.h"

#include <cstddef>
#include <utility>

#include "base/wide_number_text.h"

namespace TAVU::crash {

namespace {

constexpr std::wstring_view EntityOf(wchar_t special) noexcept {
  switch (special) {
    case L'&':
      return L"&amp;";
    case L'\'':
      return L"&apos;";
    case L'"':
      return L"&quot;";
    case L'<':
      return L"&lt;";
    default:
      return L"&gt;";
  }
}

}  // namespace

// Not inline, like the rest: a document has many elements, and the library is to stay small.
XmlNode::XmlNode(std::wstring_view name) : name_(name) {}

XmlNode::~XmlNode() = default;

std::unique_ptr<XmlNode> XmlNode::Make(std::wstring_view name) {
  return std::make_unique<XmlNode>(name);
}

void XmlNode::SetText(std::wstring_view text) {
  text_ = text;
}

void XmlNode::AddChild(std::unique_ptr<XmlNode> child) {
  children_.push_back(std::move(child));
}

void XmlNode::AddAttribute(std::wstring_view name, std::wstring_view value) {
  attributes_.push_back({std::wstring(name), std::wstring(value)});
}

void XmlNode::AddNumberAttribute(std::wstring_view name, std::uint64_t value, int base) {
  std::wstring text;
  if (base == 10) {
    base::AppendUnsigned(text, static_cast<std::uint32_t>(value));
  } else if (base == 16) {
    base::AppendAddress(text, value);
  }
  AddAttribute(name, text);
}

std::wstring EscapeXmlText(std::wstring_view text) {
  constexpr std::wstring_view kSpecial = L"&'\"<>";
  std::wstring escaped;
  while (true) {
    const std::size_t run = text.find_first_of(kSpecial);
    escaped.append(text.substr(0, run));
    if (run == std::wstring_view::npos) return escaped;
    escaped.append(EntityOf(text[run]));
    text.remove_prefix(run + 1);
  }
}

}  // namespace TAVU::crash
