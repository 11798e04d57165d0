// Reads a whole file into memory.
#pragma once

#include <cstddef>
#include <optional>
#include <span>

#include "base/release_pool.h"

namespace TAVU::delivery {

// The content of the file at `path`, in a block of `pool` followed by a zero byte. The file
// may be open elsewhere for reading and writing. Nothing when it cannot be opened, measured or
// read, or when there is no memory for it; the pool holds nothing of it then.
//
// Sizes are taken modulo 4 GiB: larger files are not supported. Does not return while a file that
// has become shorter since it was measured stays so.
[[nodiscard]] std::optional<std::span<const std::byte>> ReadWholeFile(
    const wchar_t* path, base::ReleasePool& pool) noexcept;

}  // namespace TAVU::delivery
