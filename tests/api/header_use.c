/*
 * The public header in a program of its own: compiled as C and as C++, with windows.h in front of
 * it, after it or not at all, and linked and run with every function that it declares.
 */
#if defined(WINDOWS_BEFORE)
#include <windows.h>
#endif
#include "tavu/tavu.h"
#if defined(WINDOWS_AFTER)
#include <windows.h>
#endif
#include "tavu/tavu.h"

/* Declared here for the build that has no headers of a C runtime. */
#if __STDC_HOSTED__
#include <stdio.h>
#else
int puts(const char* text);
#endif

typedef void (*Function)(void);
#define EXPORT(function) functions[count++] = (Function)(function);

static bool TAVU_CALL Callback(char* buffer, int32_t capacity) {
  if (capacity > 0) buffer[0] = 0;
  return true;
}

int main(void) {
  Function functions[64];
  int count = 0;
  TAVU_HANDLE handle;
  char sizes[sizeof(bool) == 1 && sizeof(wchar_t) == 2 && sizeof(TAVU_HANDLE) == 8 ? 1 : -1];
  sizes[0] = 0;
#include "exports.inc"
  if (count != 38) return 5;
  while (count > 0) {
    if (functions[--count] == NULL) return 1;
  }
  handle = TAVU_CreateW(L"game", L"1.0", L"Game");
  if (handle == NULL || !TAVU_SetCustumInfoCallbackA(handle, Callback)) return 2;
  if (!TAVU_SetCustumInfoCallbackA(handle, NULL) || !TAVU_Destroy(handle)) return 3;
  if (TAVU_Destroy(handle) || TAVU_GetLastError() != TAVU_ERROR_INVALID_HANDLE) return 4;
  puts("38 functions work");
  return sizes[0];
}
