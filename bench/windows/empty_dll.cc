// A DLL with nothing in it but what the compiler puts into each.
#include <windows.h>

BOOL WINAPI DllMain(HINSTANCE, DWORD, void*) {
  return TRUE;
}
