// Points in time as texts.
#pragma once

#include <chrono>
#include <optional>
#include <string>

namespace TAVU::collector {

using UtcTime = std::chrono::sys_time<std::chrono::milliseconds>;

[[nodiscard]] UtcTime UtcNow() noexcept;

// ISO 8601 with milliseconds: 2024-02-29T12:30:00.250Z. Nothing outside the years 0 to 9999.
[[nodiscard]] std::optional<std::string> FormatUtc(UtcTime time);

// The same for file names: 20240229T123000250Z. `time` lies in the years 0 to 9999.
[[nodiscard]] std::string FormatUtcForFileName(UtcTime time);

}  // namespace TAVU::collector
