/* A host of the other common ABI, without a C runtime: takes the port as its only argument. */
#include <tavu/tavu.h>

__declspec(dllimport) const wchar_t* GetCommandLineW(void);
__declspec(dllimport) __declspec(noreturn) void ExitProcess(unsigned code);

void start(void) {
  const wchar_t* digit = GetCommandLineW();
  while (*digit) ++digit;
  while (digit[-1] >= L'0' && digit[-1] <= L'9') --digit;
  uint32_t port = 0;
  for (; *digit >= L'0' && *digit <= L'9'; ++digit) port = port * 10 + (uint32_t)(*digit - L'0');

  TAVU_HANDLE tavu = TAVU_CreateW(L"other-abi", L"1.0", L"Other ABI");
  if (tavu == 0) ExitProcess(1);
  if (!TAVU_SetReportServerW(tavu, L"127.0.0.1", (uint16_t)port)) ExitProcess(2);
  if (!TAVU_SendLog_TCPW(tavu, 3, L"package", 0, L"from the other ABI")) ExitProcess(3);
  TAVU_Destroy(tavu);
  ExitProcess(0);
}
