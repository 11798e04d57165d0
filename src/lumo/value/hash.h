// Bob Jenkins' lookup2 hash of 1996. It decides the order of a map's entries on the wire and the
// bucket of an instance handle.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace TAVU::lumo {

inline constexpr std::uint32_t kInitialHash = 1009;  // of every map and of the instance registry
inline constexpr std::size_t kBucketCount = 101;     // likewise; neither ever grows

[[nodiscard]] std::uint32_t Lookup2(std::span<const std::byte> key, std::uint32_t initial) noexcept;

}  // namespace TAVU::lumo
