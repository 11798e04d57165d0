// The ways to die that the crashing host knows.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>

#include <tavu/tavu.h>

namespace crashing_host {

struct Setting {
  TAVU_HANDLE instance;    // whose crash handler is running
  std::uint32_t code = 0;  // for the way "raise"
};

struct Way {
  const char* name;
  const char* what;
  void (*die)(const Setting& setting);
};

[[nodiscard]] std::span<const Way> AllWays() noexcept;
[[nodiscard]] const Way* FindWay(std::string_view name) noexcept;

// Makes exceptions of the ends that the C and C++ runtime give a process by itself (abort and
// terminate), so that the crash handler sees them too.
void RaiseInsteadOfEnding();

}  // namespace crashing_host
