// Element trees as files: UTF-8, indented by tabs, lines ending in a line feed. No declaration, no
// byte-order mark, no self-closing tags, no escaping: the values are written as they stand.
#pragma once

#include <string>

#include <windows.h>

#include "crash/document/xml_node.h"

namespace TAVU::crash {

// Replaces the file `path`. False when it cannot be created; a write that fails is not noticed, and
// where memory runs out or the tree is damaged the file ends. It is closed in any case, so that the
// reporter can open what is in it.
[[nodiscard]] bool WriteXmlFile(const XmlNode& root, const std::wstring& path);

// Writes one element, its children one level deeper. One WriteFile for each piece: a process that
// dies half-way leaves all that came before. An element deeper than 16 levels is left out.
void WriteXmlNode(const XmlNode& node, HANDLE file, int depth);

}  // namespace TAVU::crash
