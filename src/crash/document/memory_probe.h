// Reading memory that may not be there.
#pragma once

#include <cstddef>
#include <cstdint>

namespace TAVU::crash {

// What IsBadReadPtr and IsBadCodePtr answer (the latter asks for one byte), found out by asking the
// system instead of touching the memory: those two take the guard off a guard page, which breaks
// the stack that it guards. A guard page is not readable here.
[[nodiscard]] bool IsReadable(std::uint64_t address, std::size_t size) noexcept;

// Copies `size` bytes. False, with `to` in any state, when they are not readable, another thread
// freeing them in between included.
[[nodiscard]] bool TryRead(std::uint64_t address, void* to, std::size_t size) noexcept;

}  // namespace TAVU::crash
