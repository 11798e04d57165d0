// Element trees as files: UTF-8, indented by tabs, lines ending in a line feed. No declaration, no
// byte-order mark, no self-closing tags, no escaping: the values are written as they stand.
#pragma once

#include <string>

#include <windows.h>

#include "crash/document/xml_node.h"

namespace TAVU::crash {

// Replaces the file `path`. False when it cannot be created; a write that fails is not noticed. May
// throw std::bad_alloc, the file then ends where it happened.
[[nodiscard]] bool WriteXmlFile(const XmlNode& root, const std::wstring& path);

// Writes one element, its children one level deeper. One WriteFile for each piece: a process that
// dies half-way leaves all that came before. An element deeper than 16 levels is left out.
void WriteXmlNode(const XmlNode& node, HANDLE file, int depth);

}  // namespace TAVU::crash
