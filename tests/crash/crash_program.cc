// A host that crashes. Its arguments are commands, carried out one after the other; each prints its
// name, its result and the library's last error code. See kCommands.
#include <tavu/tavu.h>
#include <windows.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <string>

namespace {

using Text = const std::wstring&;

TAVU_HANDLE current = nullptr;  // the latest
unsigned long argument = 0;     // the number after the way to crash

volatile int zero = 0;
volatile int& At(std::uintptr_t address) {
  return *reinterpret_cast<volatile int*>(address);
}

// The ways to crash. The test builds this file without optimization, so that functions keep frames.
struct Ways {
  static void Read() { zero = At(0x10); }
  static void Write() { At(0x20) = 1; }
  static void Execute() { reinterpret_cast<void (*)()>(0x30)(); }
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
void PrintRange(const char* name, void* function) {
  DWORD64 base = 0;
  const auto address = reinterpret_cast<DWORD64>(function);
  const RUNTIME_FUNCTION* const range = ::RtlLookupFunctionEntry(address, &base, nullptr);
  if (range == nullptr) return;
  std::printf("%s = %llx %llx\n", name, base + range->BeginAddress, base + range->EndAddress);
}

// [NUMBER][@thread]
template <void (*way)()>
bool Crash(Text text) {
  argument = std::wcstoul(text.c_str(), nullptr, 0);
  void* const crash = reinterpret_cast<void*>(way);
  PrintRange("crash", crash);
  PrintRange("caller", reinterpret_cast<void*>(&CallCrash));
  PrintRange("starter", reinterpret_cast<void*>(&CrashOnThread));
  std::printf("process = %lu\nbase = %p\n", ::GetCurrentProcessId(),
              static_cast<void*>(::GetModuleHandleW(nullptr)));
  if (!text.ends_with(L"@thread")) return CrashOnThread(crash) == 0;
  const HANDLE thread = ::CreateThread(nullptr, 0, CrashOnThread, crash, 0, nullptr);
  return ::WaitForSingleObject(thread, INFINITE) == 0;
}

// Whether the system's function begins with a jump into the library, as far as 32 bits tell.
bool IsGuarded(Text /*text*/) {
  const auto library = reinterpret_cast<const char*>(::GetModuleHandleW(L"TAVU"));
  const auto entry = reinterpret_cast<const char*>(
      ::GetProcAddress(::GetModuleHandleW(L"kernel32"), "SetUnhandledExceptionFilter"));
  std::uint32_t displacement = 0;
  std::memcpy(&displacement, entry + 1, sizeof displacement);
  // What of the target's offset from the library remains in the 32 bits of a jump.
  const auto offset = static_cast<std::uint32_t>(entry + 5 - library) + displacement;
  HMODULE target = nullptr;
  ::GetModuleHandleExW(
      GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
      reinterpret_cast<const wchar_t*>(library + offset), &target);
  return *entry == '\xE9' && reinterpret_cast<const char*>(target) == library;
}

// Starts to send a log record on another thread.
bool Send(Text /*text*/) {
  const auto send = [](void*) -> DWORD {
    return TAVU_SendLog_TCPW(current, 3, L"type", nullptr, L"message");
  };
  TAVU_SetTimeout(current, 60000);
  return ::CreateThread(nullptr, 0, send, nullptr, 0, nullptr) != nullptr;
}

struct Commands {
  static bool Create(Text /*text*/) {
    return (current = TAVU_CreateW(L"crash-program", L"1.0.3", L"The \"Crash\" Program")) !=
           nullptr;
  }
  static bool SetServer(Text text) {  // HOST:PORT
    const std::size_t colon = text.find(L':');
    const auto port = static_cast<std::uint16_t>(std::stoul(text.substr(colon + 1)));
    return TAVU_SetReportServerW(current, text.substr(0, colon).c_str(), port);
  }
  // A function of the library upon the current handle, with arguments in front of the text.
  template <auto function, auto... before>
  static bool Set(Text text) {
    return function(current, before..., text.c_str());
  }
  template <auto function, auto... arguments>
  static bool Do(Text /*text*/) {
    return function(current, arguments...);
  }
  template <auto function>
  static bool SetNarrow(Text text) {
    char narrow[256] = {};
    ::WideCharToMultiByte(CP_ACP, 0, text.c_str(), -1, narrow, 255, nullptr, nullptr);
    return function(current, narrow);
  }
  // The flag as a byte, which callers without C's bool may give.
  template <auto function, unsigned char flag>
  static bool SetFlag(Text /*text*/) {
    return reinterpret_cast<bool (*)(TAVU_HANDLE, unsigned char)>(function)(current, flag);
  }
  static bool RemoveFilter(Text /*text*/) {
    return ::SetUnhandledExceptionFilter(nullptr) != nullptr;
  }
  static bool GiveNarrowText(char* buffer, std::int32_t capacity) {
    return std::snprintf(buffer, 64, "asked in 8 bits <%d> \xE9", capacity) > 0;
  }
  static bool GiveText(wchar_t* buffer, std::int32_t capacity) {
    return std::swprintf(buffer, 64, L"asked & <%d> \u00e9", capacity) > 0;
  }
  static bool Throw(wchar_t* /*buffer*/, std::int32_t /*capacity*/) { throw 1; }
};

const struct Command {
  const wchar_t* name;
  bool (*run)(Text text);
} kCommands[] = {
    {L"create", Commands::Create},
    {L"start", Commands::Do<TAVU_StartCrashHandler>},
    {L"stop", Commands::Do<TAVU_StopCrashHandler>},
    {L"destroy", Commands::Do<TAVU_Destroy>},
    {L"guarded", IsGuarded},
    {L"user", Commands::Set<TAVU_SetUserIDW>},
    {L"server", Commands::SetServer},
    {L"keep", Commands::Do<TAVU_DeleteLocalDumpFile, false>},
    {L"delete", Commands::SetFlag<&TAVU_DeleteLocalDumpFile, 2>},
    {L"auto", Commands::SetFlag<&TAVU_SetAutoReport, 0x80>},
    {L"lang", [](Text text) { return TAVU_SetReporterLanguage(current, std::stoul(text)); }},
    {L"restart", Commands::Set<TAVU_SetAppRestartW, true>},
    {L"reporter", Commands::Set<TAVU_SetCustumCrashReporterPathW>},
    {L"reporterA", Commands::SetNarrow<TAVU_SetCustumCrashReporterPathA>},
    {L"infoA", Commands::SetNarrow<TAVU_UpdateAdditionalCrashInfoA>},
    {L"info", Commands::Set<TAVU_UpdateAdditionalCrashInfoW>},
    {L"askA", Commands::Do<TAVU_SetCustumInfoCallbackA, Commands::GiveNarrowText>},
    {L"no-filter", Commands::RemoveFilter},
    {L"ask", Commands::Do<TAVU_SetCustumInfoCallbackW, Commands::GiveText>},
    {L"throw-when-asked", Commands::Do<TAVU_SetCustumInfoCallbackW, Commands::Throw>},
    {L"temp", [](Text text) { return ::SetEnvironmentVariableW(L"TMP", text.c_str()) != 0; }},
    {L"send", Send},
    {L"wait", [](Text) { return std::getchar() == '\n'; }},  // for a sign of the driver
    {L"read", Crash<Ways::Read>},
    {L"write", Crash<Ways::Write>},
    {L"execute", Crash<Ways::Execute>},
    {L"raise", Crash<Ways::Raise>},
    {L"throw", Crash<Ways::Throw>},
    {L"little-stack", Crash<Ways::LittleStack>},
    {L"inside-export", Crash<Ways::InsideExport>},
};

}  // namespace

int wmain(int count, wchar_t** arguments) {
  for (int i = 1; i < count; ++i) {
    const std::wstring whole = arguments[i];
    const std::wstring name = whole.substr(0, whole.find(L'='));
    const Command* command = kCommands;
    while (command != std::end(kCommands) && name != command->name) ++command;
    if (command == std::end(kCommands)) return 100;
    const bool result = command->run(whole.substr(std::min(name.size() + 1, whole.size())));
    std::printf("%ls = %d %u\n", name.c_str(), result, TAVU_GetLastError());
    std::fflush(stdout);
  }
  return 0;
}
