// The reference vectors of tests/data: inputs and the exact results for them, in the notation that
// tests/data/README.md describes.
#pragma once

#include <cstddef>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "lumo/value/value.h"

namespace TAVU::test {

using Json = nlohmann::json;

// The whole of tests/data/`file`; fails the program when it cannot be read.
Json LoadVectors(const std::string& file);

// Bytes: hexadecimal digits, or pieces to be joined, each hexadecimal or ["repeat", hex, count].
std::vector<std::byte> BytesOf(const Json& notation);
std::string Hex(const void* data, std::size_t size);

// A text as UTF-8: plain, or ["repeat", character, count].
std::string TextOf(const Json& notation);

// A typed value, owning all its content.
lumo::Value ValueOf(const Json& notation);

}  // namespace TAVU::test
