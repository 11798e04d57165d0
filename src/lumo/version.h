// The banner of lumo's version: the formats of its three lines, and the version. Nothing prints it.
// The DLL carries it for those who look with a tool for texts which lumo a file was built with.
#pragma once

namespace TAVU::lumo {

struct VersionBanner {
  const char* version;
  const char* version_line;
  const char* revision_line;
  const char* build_date_line;
};

// Without mangling, so that the linker can be told to keep it.
extern "C" const VersionBanner tavu_lumo_version_banner;

}  // namespace TAVU::lumo
