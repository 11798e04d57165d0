// A host that crashes. Its arguments are commands, carried out one after the other; each prints its
// result and the library's last error code, and some end the process.
//
//   create, select=N, start, stop, destroy          instances, numbered from 0
//   user=T server=HOST:PORT keep auto lang=N restart=T reporter=T info=T callback=NAME
//   temp=T                                          the process's temporary folder
//   no-filter                                       takes the process's top-level filter away
//   try-filter                                      what another caller of the guarded function gets
//   send                                            a thread starts sending a log record
//   wait                                            for a line of standard input
//   crash=WAY[:N]                                   see kWays
#include <tavu/tavu.h>
#include <windows.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

namespace {

std::vector<TAVU_HANDLE> instances;
TAVU_HANDLE current = nullptr;
unsigned long argument = 0;  // the number behind the way to crash

// ---- Ways to crash. Each function is called through CallCrash, by name in the call stack. ----

volatile int zero = 0;

void Read() {
  static_cast<void>(*reinterpret_cast<volatile int*>(0x10));
}
void Write() {
  *reinterpret_cast<volatile int*>(0x20) = 1;
}
void Execute() {
  reinterpret_cast<void (*)()>(0x30)();
}
void Divide() {
  zero = 1 / zero;
}
void IllegalInstruction() {
  asm volatile("ud2");
}
void PrivilegedInstruction() {
  asm volatile("hlt");
}
void Breakpoint() {
  asm volatile("int3");
}
void Raise() {
  ::RaiseException(argument, 0, 0, nullptr);
}
void Throw() {
  throw 1;
}
void Abort() {
  std::abort();
}
void FastFail() {
  asm volatile("int $0x29" ::"c"(7));
}

// Leaves `argument` KiB of stack above the pages that the system needs for itself.
void LittleStack() {
  MEMORY_BASIC_INFORMATION stack;
  ::VirtualQuery(&stack, &stack, sizeof stack);
  const char* const lowest = static_cast<char*>(stack.AllocationBase) + 3 * 4096 + argument * 1024;
  const auto room = static_cast<std::size_t>(reinterpret_cast<char*>(&stack) - lowest);
  auto* const taken = static_cast<volatile char*>(__builtin_alloca(room));
  for (std::size_t at = room; at > 4096; at -= 4096) taken[at - 1] = 0;
  *reinterpret_cast<volatile int*>(0x10) = taken[room - 1];
}

// A stack frame chain that leads to itself.
void Cycle() {
  static std::uint64_t frame[8];
  frame[0] = reinterpret_cast<std::uint64_t>(&frame);
  frame[1] = reinterpret_cast<std::uint64_t>(&Cycle);
  asm volatile("movq %0, %%rbp; movl $1, 0x10" ::"r"(&frame));
}

struct Way {
  const wchar_t* name;
  void (*crash)();
};
constexpr Way kWays[] = {
    {L"read", Read},
    {L"write", Write},
    {L"execute", Execute},
    {L"divide", Divide},
    {L"illegal", IllegalInstruction},
    {L"privileged", PrivilegedInstruction},
    {L"breakpoint", Breakpoint},
    {L"raise", Raise},
    {L"throw", Throw},
    {L"abort", Abort},
    {L"fast-fail", FastFail},
    {L"little-stack", LittleStack},
    {L"cycle", Cycle},
};

void CallCrash(void (*crash)()) {
  crash();
  std::printf("survived\n");
}

// Where a function lies, by the image's own unwind table.
template <typename Function>
void PrintRange(const char* name, Function* function) {
  DWORD64 base = 0;
  const auto address = reinterpret_cast<DWORD64>(function);
  const RUNTIME_FUNCTION* const range = ::RtlLookupFunctionEntry(address, &base, nullptr);
  if (range == nullptr) std::exit(101);
  std::printf("function %s %llx %llx\n", name, base + range->BeginAddress,
              base + range->EndAddress);
}

DWORD WINAPI CrashOnThread(void* crash) {
  std::printf("thread %lu\n", ::GetCurrentThreadId());
  std::fflush(stdout);
  CallCrash(reinterpret_cast<void (*)()>(crash));
  return 0;
}

bool Crash(const std::wstring& text) {
  const std::size_t colon = text.find(L':');
  const bool on_thread = text.ends_with(L"@thread");
  const std::wstring name = text.substr(0, text.find_first_of(L":@"));
  if (colon != std::wstring::npos) argument = std::wcstoul(&text[colon + 1], nullptr, 0);
  for (const Way& way : kWays) {
    if (name != way.name) continue;
    PrintRange("crash", way.crash);
    PrintRange("caller", &CallCrash);
    PrintRange("thread", &CrashOnThread);
    std::printf("base %p\nprocess %lu\n", static_cast<void*>(::GetModuleHandleW(nullptr)),
                ::GetCurrentProcessId());
    void* const crash = reinterpret_cast<void*>(way.crash);
    if (!on_thread) return CrashOnThread(crash) != 0;
    ::WaitForSingleObject(::CreateThread(nullptr, 0, CrashOnThread, crash, 0, nullptr), INFINITE);
    return false;
  }
  std::exit(102);
}

// ---- Callbacks for the host's own part of the document ----

bool WideText(wchar_t* buffer, std::int32_t capacity) {
  std::swprintf(buffer, 64, L"wide & <%d> \u00e9", capacity);
  return true;
}
bool NarrowText(char* buffer, std::int32_t capacity) {
  std::snprintf(buffer, 64, "narrow %d", capacity);
  return true;
}
bool WideRefuses(wchar_t* buffer, std::int32_t /*capacity*/) {
  std::wcscpy(buffer, L"refused");
  return false;
}
bool WideThrows(wchar_t* /*buffer*/, std::int32_t /*capacity*/) {
  throw std::string("thrown");
}
bool NarrowThrows(char* /*buffer*/, std::int32_t /*capacity*/) {
  throw 1;
}
bool WideRaises(wchar_t* /*buffer*/, std::int32_t /*capacity*/) {
  ::RaiseException(0xE06D7363, EXCEPTION_NONCONTINUABLE, 0, nullptr);  // as Visual C++ throws
  return true;
}
bool WideCrashes(wchar_t* /*buffer*/, std::int32_t /*capacity*/) {
  Read();
  return true;
}
bool WideFillsAll(wchar_t* buffer, std::int32_t capacity) {
  std::wmemset(buffer, L'x', static_cast<std::size_t>(capacity));
  buffer[capacity] = 0;
  return true;
}
bool WideEmpty(wchar_t* buffer, std::int32_t /*capacity*/) {
  buffer[0] = 0;
  return true;
}

bool SetCallback(const std::wstring& name) {
  struct Callback {
    const wchar_t* name;
    TAVU_CustumInfoCallbackW wide;
    TAVU_CustumInfoCallbackA narrow;
  };
  const Callback callbacks[] = {
      {L"wide", WideText, nullptr},
      {L"narrow", nullptr, NarrowText},
      {L"refuses", WideRefuses, nullptr},
      {L"throws", WideThrows, nullptr},
      {L"narrow-throws", nullptr, NarrowThrows},
      {L"raises", WideRaises, nullptr},
      {L"crashes", WideCrashes, nullptr},
      {L"fills-all", WideFillsAll, nullptr},
      {L"empty", WideEmpty, nullptr},
  };
  for (const Callback& callback : callbacks) {
    if (name != callback.name) continue;
    return callback.wide != nullptr ? TAVU_SetCustumInfoCallbackW(current, callback.wide)
                                    : TAVU_SetCustumInfoCallbackA(current, callback.narrow);
  }
  std::exit(103);
}

// ---- Other commands ----

bool Create(const std::wstring& /*text*/) {
  current = TAVU_CreateW(L"crash-program", L"1.0.3", L"The \"Crash\" Program");
  instances.push_back(current);
  return current != nullptr;
}

bool SetServer(const std::wstring& text) {
  const std::size_t colon = text.find(L':');
  return TAVU_SetReportServerW(
      current, text.substr(0, colon).c_str(),
      static_cast<std::uint16_t>(std::wcstoul(&text[colon + 1], nullptr, 10)));
}

LONG WINAPI OtherFilter(EXCEPTION_POINTERS* /*pointers*/) {
  return EXCEPTION_CONTINUE_SEARCH;
}

bool Send(const std::wstring& /*text*/) {
  TAVU_SetTimeout(current, 20000);
  const auto send = [](void*) -> DWORD {
    TAVU_SendLog_TCPW(current, 3, L"type", nullptr, L"message");
    return 0;
  };
  return ::CreateThread(nullptr, 0, send, nullptr, 0, nullptr) != nullptr;
}

// Waits for the driver, which writes a line once it has seen what it waits for.
bool WaitForDriver(const std::wstring& /*text*/) {
  return std::getchar() == '\n';
}

struct Command {
  const wchar_t* name;
  bool (*run)(const std::wstring& text);
};
using Text = const std::wstring&;
const Command kCommands[] = {
    {L"create", Create},
    {L"select", [](Text text) { return (current = instances.at(std::stoul(text))) != nullptr; }},
    {L"start", [](Text) { return TAVU_StartCrashHandler(current); }},
    {L"stop", [](Text) { return TAVU_StopCrashHandler(current); }},
    {L"destroy", [](Text) { return TAVU_Destroy(current); }},
    {L"user", [](Text text) { return TAVU_SetUserIDW(current, text.c_str()); }},
    {L"server", SetServer},
    {L"keep", [](Text) { return TAVU_DeleteLocalDumpFile(current, false); }},
    {L"auto", [](Text) { return TAVU_SetAutoReport(current, true); }},
    {L"lang", [](Text text) { return TAVU_SetReporterLanguage(current, std::stoul(text)); }},
    {L"restart", [](Text text) { return TAVU_SetAppRestartW(current, true, text.c_str()); }},
    {L"reporter",
     [](Text text) { return TAVU_SetCustumCrashReporterPathW(current, text.c_str()); }},
    {L"info", [](Text text) { return TAVU_UpdateAdditionalCrashInfoW(current, text.c_str()); }},
    {L"callback", SetCallback},
    {L"temp", [](Text text) { return ::SetEnvironmentVariableW(L"TMP", text.c_str()) != 0; }},
    {L"no-filter", [](Text) { return ::SetUnhandledExceptionFilter(nullptr) != nullptr; }},
    {L"try-filter", [](Text) { return ::SetUnhandledExceptionFilter(OtherFilter) != nullptr; }},
    {L"send", Send},
    {L"wait", WaitForDriver},
    {L"crash", Crash},
};

}  // namespace

int wmain(int count, wchar_t** arguments) {
  for (int i = 1; i < count; ++i) {
    const std::wstring_view whole = arguments[i];
    const std::size_t equals = whole.find(L'=');
    const std::wstring name(whole.substr(0, equals));
    const std::wstring text(equals == whole.npos ? L"" : whole.substr(equals + 1));
    const Command* command = kCommands;
    while (command != std::end(kCommands) && name != command->name) ++command;
    if (command == std::end(kCommands)) return 100;
    const bool result = command->run(text);
    std::printf("%ls %d %u\n", name.c_str(), result, TAVU_GetLastError());
    std::fflush(stdout);
  }
  return 0;
}
