// Which module an address lies in.
#pragma once

#include <cstdint>
#include <string>

#include "api/frame/api_lock.h"

namespace TAVU::crash {

// The file name of the first module around `address`; empty when there is none, or when the list of
// modules is damaged. Only the low 32 bits of addresses count, as in the document, which tells no
// more of them: two modules 4 GiB apart can be taken for each other. May throw std::bad_alloc.
[[nodiscard]] std::wstring FindModuleByAddress(const api::ApiLock::Guard& held,
                                               std::uint32_t address);

}  // namespace TAVU::crash
