// How long the system takes to load and free the library, against a DLL with nothing in it.
#include <windows.h>

#include "pairs.h"

namespace TAVU::bench {
namespace {

double LoadAndFree(const wchar_t* name) {
  return SecondsOf([name] {
    const HMODULE module = ::LoadLibraryW(name);
    Require(module != nullptr, "loading a DLL");
    ::FreeLibrary(module);
  });
}

}  // namespace
}  // namespace TAVU::bench

int main() {
  using TAVU::bench::LoadAndFree;
  // The system's DLLs that the library needs; nearly every host has them loaded.
  TAVU::bench::Require(::LoadLibraryW(L"ws2_32.dll") != nullptr, "loading a DLL");
  TAVU::bench::Require(::LoadLibraryW(L"advapi32.dll") != nullptr, "loading a DLL");
  TAVU::bench::ComparePairs(
      "load", 201, 1e6, "us", [] { return LoadAndFree(L"TAVU.dll"); },
      [] { return LoadAndFree(L"tavu_empty.dll"); });
}
