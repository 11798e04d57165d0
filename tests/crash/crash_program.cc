// A host that crashes. Its arguments are commands, carried out one after the other; each prints its
// name, its result and the library's last error code. See kCommands and kWays.
#include <tavu/tavu.h>
#include <windows.h>

#include <cstdio>
#include <iterator>
#include <string>

namespace {

using Text = const std::wstring&;

TAVU_HANDLE current = nullptr;  // the latest
unsigned long argument = 0;     // the number behind the way to crash

// ---- Ways to crash. The test builds this file without optimization, so that functions keep
// frames.

volatile int zero = 0;

volatile int& At(std::uintptr_t address) {
  return *reinterpret_cast<volatile int*>(address);
}

struct Ways {
  static void Read() { zero = At(0x10); }
  static void Write() { At(0x20) = 1; }
  static void Execute() { reinterpret_cast<void (*)()>(0x30)(); }
  static void Divide() { zero = 1 / zero; }
  static void Illegal() { asm volatile("ud2"); }
  static void Breakpoint() { asm volatile("int3"); }
  static void Raise() { ::RaiseException(argument, 0, 0, nullptr); }
  static void Throw() { throw 1; }
  static void InsideExport() { TAVU_SetUserIDA(current, reinterpret_cast<const char*>(0x10)); }

  // With `argument` KiB of stack left above the three pages that the system keeps for itself.
  static void LittleStack() {
    MEMORY_BASIC_INFORMATION stack;
    ::VirtualQuery(&stack, &stack, sizeof stack);
    const std::uintptr_t lowest =
        reinterpret_cast<std::uintptr_t>(stack.AllocationBase) + 3 * 4096 + argument * 1024;
    const std::size_t room = reinterpret_cast<std::uintptr_t>(&stack) - lowest;
    auto* const taken = static_cast<volatile char*>(__builtin_alloca(room));
    for (std::size_t at = room; at > 4096; at -= 4096) taken[at - 1] = 0;
    At(0x10) = taken[room - 1];
  }
};

constexpr struct {
  const wchar_t* name;
  void (*crash)();
} kWays[] = {{L"read", Ways::Read},
             {L"write", Ways::Write},
             {L"execute", Ways::Execute},
             {L"divide", Ways::Divide},
             {L"illegal", Ways::Illegal},
             {L"breakpoint", Ways::Breakpoint},
             {L"raise", Ways::Raise},
             {L"throw", Ways::Throw},
             {L"little-stack", Ways::LittleStack},
             {L"inside-export", Ways::InsideExport}};

void CallCrash(void (*crash)()) {
  crash();
  std::printf("survived\n");
}

DWORD WINAPI CrashOnThread(void* crash) {
  std::printf("thread = %lx\n", ::GetCurrentThreadId());
  std::fflush(stdout);
  CallCrash(reinterpret_cast<void (*)()>(crash));
  return 0;
}

// Where a function lies, by the program's own unwind table.
void PrintRange(const char* name, void (*function)()) {
  DWORD64 base = 0;
  const auto address = reinterpret_cast<DWORD64>(function);
  const RUNTIME_FUNCTION* const range = ::RtlLookupFunctionEntry(address, &base, nullptr);
  if (range == nullptr) return;
  std::printf("%s = %llx %llx\n", name, base + range->BeginAddress, base + range->EndAddress);
}

// WAY[:NUMBER][@thread]
bool Crash(Text text) {
  const std::wstring name = text.substr(0, text.find_first_of(L":@"));
  if (const auto colon = text.find(L':'); colon != text.npos) {
    argument = std::wcstoul(&text[colon + 1], nullptr, 0);
  }
  const auto* way = kWays;
  while (name != way->name) ++way;
  PrintRange("crash", way->crash);
  PrintRange("caller", reinterpret_cast<void (*)()>(&CallCrash));
  PrintRange("starter", reinterpret_cast<void (*)()>(&CrashOnThread));
  std::printf("process = %lu\nbase = %p\n", ::GetCurrentProcessId(),
              static_cast<void*>(::GetModuleHandleW(nullptr)));
  void* const crash = reinterpret_cast<void*>(way->crash);
  if (!text.ends_with(L"@thread")) return CrashOnThread(crash) == 0;
  const HANDLE thread = ::CreateThread(nullptr, 0, CrashOnThread, crash, 0, nullptr);
  return ::WaitForSingleObject(thread, INFINITE) == 0;
}

// ---- Other commands ----

// Starts to send a log record on another thread.
bool Send(Text /*text*/) {
  const auto send = [](void*) -> DWORD {
    TAVU_SendLog_TCPW(current, 3, L"type", nullptr, L"message");
    return 0;
  };
  TAVU_SetTimeout(current, 60000);
  return ::CreateThread(nullptr, 0, send, nullptr, 0, nullptr) != nullptr;
}

template <bool (*callback)(wchar_t*, std::int32_t)>
bool SetCallback(Text /*text*/) {
  return TAVU_SetCustumInfoCallbackW(current, callback);
}
bool GiveText(wchar_t* buffer, std::int32_t capacity) {
  return std::swprintf(buffer, 64, L"asked & <%d> \u00e9", capacity) > 0;
}
bool ThrowWhenAsked(wchar_t* /*buffer*/, std::int32_t /*capacity*/) {
  throw std::string("thrown");
}
const struct Command {
  const wchar_t* name;
  bool (*run)(Text text);
} kCommands[] = {
    {L"create",
     [](Text) {
       current = TAVU_CreateW(L"crash-program", L"1.0.3", L"The \"Crash\" Program");
       return current != nullptr;
     }},
    {L"start", [](Text) { return TAVU_StartCrashHandler(current); }},
    {L"stop", [](Text) { return TAVU_StopCrashHandler(current); }},
    {L"destroy", [](Text) { return TAVU_Destroy(current); }},
    {L"user", [](Text text) { return TAVU_SetUserIDW(current, text.c_str()); }},
    {L"server",  // HOST:PORT
     [](Text text) {
       const std::size_t colon = text.find(L':');
       const auto port = static_cast<std::uint16_t>(std::stoul(text.substr(colon + 1)));
       return TAVU_SetReportServerW(current, text.substr(0, colon).c_str(), port);
     }},
    {L"keep", [](Text) { return TAVU_DeleteLocalDumpFile(current, false); }},
    {L"auto", [](Text) { return TAVU_SetAutoReport(current, true); }},
    {L"lang", [](Text text) { return TAVU_SetReporterLanguage(current, std::stoul(text)); }},
    {L"restart", [](Text text) { return TAVU_SetAppRestartW(current, true, text.c_str()); }},
    {L"reporter",
     [](Text text) { return TAVU_SetCustumCrashReporterPathW(current, text.c_str()); }},
    {L"info", [](Text text) { return TAVU_UpdateAdditionalCrashInfoW(current, text.c_str()); }},
    {L"ask", SetCallback<GiveText>},
    {L"throw-when-asked", SetCallback<ThrowWhenAsked>},
    {L"temp", [](Text text) { return ::SetEnvironmentVariableW(L"TMP", text.c_str()) != 0; }},
    {L"send", Send},
    {L"wait", [](Text) { return std::getchar() == '\n'; }},  // for a sign of the driver
    {L"crash", Crash},
};

}  // namespace

int wmain(int count, wchar_t** arguments) {
  for (int i = 1; i < count; ++i) {
    const std::wstring whole = arguments[i];
    const std::size_t equals = whole.find(L'=');
    const std::wstring name = whole.substr(0, equals);
    const Command* command = kCommands;
    while (command != std::end(kCommands) && name != command->name) ++command;
    if (command == std::end(kCommands)) return 100;
    const bool result = command->run(equals == whole.npos ? L"" : whole.substr(equals + 1));
    std::printf("%ls = %d %u\n", name.c_str(), result, TAVU_GetLastError());
    std::fflush(stdout);
  }
  return 0;
}
