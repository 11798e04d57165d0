#include "ways.h"

#include <winsock2.h>

#include <csignal>
#include <cstdlib>
#include <exception>
#include <stdexcept>

#include <windows.h>

namespace crashing_host {

namespace {

// Out of the optimizer's sight: what leads to a crash must really happen.
volatile std::uintptr_t g_nowhere = 0x10;
volatile int g_zero = 0;
volatile int g_sink = 0;

void Read(const Setting&) {
  g_sink = *reinterpret_cast<volatile int*>(g_nowhere);
}

void Write(const Setting&) {
  *reinterpret_cast<volatile int*>(g_nowhere) = 1;
}

void Execute(const Setting&) {
  reinterpret_cast<void (*)()>(g_nowhere)();
}

void Divide(const Setting&) {
  g_sink = 1000 / g_zero;
}

void IllegalInstruction(const Setting&) {
  __asm__ volatile("ud2");
}

void Breakpoint(const Setting&) {
  ::DebugBreak();
}

void Raise(const Setting& setting) {
  ::RaiseException(setting.code, 0, 0, nullptr);
}

void Throw(const Setting&) {
  throw std::runtime_error("nobody catches this");
}

void Abort(const Setting&) {
  std::abort();
}

void FastFail(const Setting&) {
  __fastfail(FAST_FAIL_FATAL_APP_EXIT);
}

// The C runtime's own check fails.
void InvalidParameter(const Setting&) {
  char* volatile no_buffer = nullptr;
  // cppcheck-suppress nullPointer  // the purpose
  g_sink = ::strcpy_s(no_buffer, 4, "abc");
}

class Creature {
 public:
  Creature() { MoveFromConstructor(); }
  virtual ~Creature() = default;
  // cppcheck-suppress pureVirtualCall  // the purpose
  virtual void Move() = 0;

 private:
  // The object is still a Creature here, whatever it is to become.
  void MoveFromConstructor() { Move(); }  // NOLINT: the purpose
};

class Monster : public Creature {
 public:
  void Move() override { g_sink = 1; }
};

void PureCall(const Setting&) {
  static_cast<void>(Monster());
}

// Writes past both ends of a block, frees it, and frees it again. The blocks around it are this
// function's own, so that nobody else stumbles over the damage.
void CorruptHeap(const Setting&) {
  void* blocks[64];
  for (void*& block : blocks) block = std::malloc(32);
  auto* const block = static_cast<volatile char*>(blocks[32]);
  for (int i = -16; i < 64; ++i) block[i] = 'x';
  std::free(blocks[32]);
  std::free(blocks[32]);
}

int Recurse(int depth) {
  volatile char frame[4096] = {};
  frame[0] = static_cast<char>(depth);
  return g_zero == 0 ? Recurse(depth + 1) + frame[0] : depth;
}

// Windows leaves an overflowing thread a page; the crash handler needs more than that.
void OverflowStack(const Setting&) {
  ULONG room = 65536;
  ::SetThreadStackGuarantee(&room);
  g_sink = Recurse(0);
}

DWORD WINAPI WritingWorker(void*) {
  Write({});
  return 0;
}

DWORD WINAPI ThrowingWorker(void*) {
  Throw({});
  return 0;
}

void WaitForWorker(LPTHREAD_START_ROUTINE worker) {
  const HANDLE thread = ::CreateThread(nullptr, 0, worker, nullptr, 0, nullptr);
  ::WaitForSingleObject(thread, INFINITE);
  ::CloseHandle(thread);
}

void WriteOnSecondThread(const Setting&) {
  WaitForWorker(WritingWorker);
}

// Not the same as on the main thread, which some C runtimes guard by a handler of their own.
void ThrowOnSecondThread(const Setting&) {
  WaitForWorker(ThrowingWorker);
}

// A bad pointer given to the library: the crash holds its lock, and the crash handler needs it.
void InsideExport(const Setting& setting) {
  TAVU_SendFileW(setting.instance, 1, "x", reinterpret_cast<const wchar_t*>(g_nowhere), L"");
}

bool __cdecl FailingCallback(wchar_t*, std::int32_t) {
  Write({});
  return true;
}

// The host's own text for the crash document cannot be had: a crash within a crash.
void InsideCallback(const Setting& setting) {
  TAVU_SetCustumInfoCallbackW(setting.instance, FailingCallback);
  Write(setting);
}

DWORD WINAPI SenderMain(void* instance) {
  TAVU_SendLog_TCPW(static_cast<TAVU_HANDLE>(instance), TAVU_LEVEL_INFO, L"net", nullptr,
                    L"nobody answers this");
  return 0;
}

// Another thread waits inside the library for a server that never answers: the crash handler waits
// until that call has timed out, and then does its work.
void WhileAnotherThreadSends(const Setting& setting) {
  WSADATA winsock = {};
  ::WSAStartup(MAKEWORD(2, 2), &winsock);
  const SOCKET listener = ::socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in address = {};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  int length = sizeof address;
  static_cast<void>(::bind(listener, reinterpret_cast<sockaddr*>(&address), length));
  ::listen(listener, 1);
  ::getsockname(listener, reinterpret_cast<sockaddr*>(&address), &length);

  const TAVU_HANDLE other = TAVU_CreateW(L"other", L"1.0", L"Other");
  TAVU_SetReportServerW(other, L"127.0.0.1", ntohs(address.sin_port));
  ::CloseHandle(::CreateThread(nullptr, 0, SenderMain, other, 0, nullptr));
  ::accept(listener, nullptr, nullptr);  // from here on that thread is inside the library
  Write(setting);
}

constexpr Way kWays[] = {
    {"read", "reads where nothing is", Read},
    {"write", "writes where nothing is", Write},
    {"execute", "calls a function where none is", Execute},
    {"divide", "divides an integer by zero", Divide},
    {"illegal", "runs an instruction that does not exist", IllegalInstruction},
    {"breakpoint", "hits a breakpoint", Breakpoint},
    {"raise", "raises the exception given by --code", Raise},
    {"throw", "throws a C++ exception that nobody catches", Throw},
    {"abort", "calls abort()", Abort},
    {"fastfail", "asks the kernel to end the process at once", FastFail},
    {"invalid-parameter", "gives the C runtime an invalid parameter", InvalidParameter},
    {"purecall", "calls a pure virtual function", PureCall},
    {"heap", "corrupts the heap and frees a block twice", CorruptHeap},
    {"stack", "recurses until the stack is full", OverflowStack},
    {"thread", "writes where nothing is, on a second thread", WriteOnSecondThread},
    {"thread-throw", "throws a C++ exception on a second thread", ThrowOnSecondThread},
    {"export", "crashes inside a function of the library", InsideExport},
    {"callback", "crashes again inside the crash handler's callback", InsideCallback},
    {"busy", "crashes while another thread is inside the library", WhileAnotherThreadSends},
};

constexpr DWORD kRuntimeEnd = 0xE0000002;

void RaiseEnd() {
  ::RaiseException(kRuntimeEnd, EXCEPTION_NONCONTINUABLE, 0, nullptr);
}

void OnAbort(int) {
  RaiseEnd();
}

}  // namespace

void RaiseInsteadOfEnding() {
  std::set_terminate(RaiseEnd);  // a throw that nobody catches, a pure virtual call
  std::signal(SIGABRT, OnAbort);
}

std::span<const Way> AllWays() noexcept {
  return kWays;
}

const Way* FindWay(std::string_view name) noexcept {
  for (const Way& way : kWays) {
    if (way.name == name) return &way;
  }
  return nullptr;
}

}  // namespace crashing_host
