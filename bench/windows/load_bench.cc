// How long the system takes to load and free the library, against a DLL with nothing in it.
#include <windows.h>
#include <winsock2.h>

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
  // Hosts that use the network have it loaded.
  WSADATA data;
  TAVU::bench::Require(::WSAStartup(MAKEWORD(2, 0), &data) == 0, "WSAStartup");
  TAVU::bench::ComparePairs(
      "load", 201, 1e6, "us", [] { return LoadAndFree(L"TAVU.dll"); },
      [] { return LoadAndFree(L"tavu_empty.dll"); });
  ::WSACleanup();
}
