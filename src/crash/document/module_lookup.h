// Which module an address lies in.
#pragma once

#include <cstdint>
#include <string>

namespace TAVU::crash {

// Sets `name` to the file name of the first module around `address` and `base` to the low half of
// its load address. False, with an empty name, when there is none. Only the low 32 bits of
// addresses count, on purpose: two modules 4 GiB apart can be taken for each other. May throw
// std::bad_alloc.
[[nodiscard]] bool FindModuleByAddress(std::uint32_t address, std::wstring& name,
                                       std::uint32_t& base);

}  // namespace TAVU::crash
