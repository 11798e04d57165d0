// The banner lines of lumo's version, as formats. Nothing in the library prints them.
#pragma once

namespace TAVU::lumo {

inline constexpr char kVersion[] = "1.6.4";
inline constexpr char kVersionBanner[] = "lumo Version: %s\n";
inline constexpr char kRevisionBanner[] = "lumo Revision: %d\n";
inline constexpr char kBuildDateBanner[] = "lumo Build Date: %s\n";

}  // namespace TAVU::lumo
