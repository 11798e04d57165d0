#include "crash/document/xml_writer.h"

#include <string_view>

#include "api/frame/text_conversion.h"
#include "base/scoped_handle.h"
#include "crash/attempt.h"

namespace TAVU::crash {

namespace {

constexpr int kDeepestLevel = 16;

void WritePiece(HANDLE file, std::string_view bytes) noexcept {
  DWORD written = 0;
  ::WriteFile(file, bytes.data(), static_cast<DWORD>(bytes.size()), &written, nullptr);
}

void WriteText(HANDLE file, std::wstring_view text) {
  std::string utf8;
  api::WideToUtf8(text, utf8, api::TextForm::kRaw);
  WritePiece(file, utf8);
}

void WriteIndent(HANDLE file, int depth) noexcept {
  for (int level = 0; level < depth; ++level) WritePiece(file, "\t");
}

void WriteStartTag(const XmlNode& node, HANDLE file) {
  WritePiece(file, "<");
  WriteText(file, node.name());
  for (const XmlNode::Attribute& attribute : node.attributes()) {
    WritePiece(file, " ");
    WriteText(file, attribute.name);
    WritePiece(file, "=");
    WritePiece(file, "\"");
    WriteText(file, attribute.value);
    WritePiece(file, "\"");
  }
  WritePiece(file, ">");
}

void WriteEndTag(const XmlNode& node, HANDLE file) {
  WritePiece(file, "<");
  WritePiece(file, "/");
  WriteText(file, node.name());
  WritePiece(file, ">");
  WritePiece(file, "\n");
}

}  // namespace

bool WriteXmlFile(const XmlNode& root, const std::wstring& path) {
  const base::ScopedFile file(::CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS,
                                            FILE_ATTRIBUTE_NORMAL, nullptr));
  if (!file) return false;
  Attempt([&] { WriteXmlNode(root, file.get(), 0); });
  return true;
}

void WriteXmlNode(const XmlNode& node, HANDLE file, int depth) {
  if (depth > kDeepestLevel) return;
  WriteIndent(file, depth);
  WriteStartTag(node, file);
  if (!node.children().empty()) WritePiece(file, "\n");
  if (!node.text().empty()) WriteText(file, node.text());
  for (const auto& child : node.children()) WriteXmlNode(*child, file, depth + 1);
  if (!node.children().empty()) WriteIndent(file, depth);
  WriteEndTag(node, file);
}

}  // namespace TAVU::crash
