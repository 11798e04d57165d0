// sender_host PORT WAY: queues three calls through sender_module and goes away as WAY says. The exit
// status is 0 when all went well; a crash or a hang is for async_sender_test to see.
#include <windows.h>

#include <cstdlib>
#include <string_view>

namespace {

template <typename Function>
Function* Import(HMODULE module, const char* name) {
  return reinterpret_cast<Function*>(reinterpret_cast<void*>(::GetProcAddress(module, name)));
}

}  // namespace

int main(int count, char** arguments) {
  if (count != 3) return 2;
  const std::string_view way = arguments[2];
  const HMODULE module = ::LoadLibraryW(L"sender_module.dll");
  if (module == nullptr) return 3;
  const auto begin = Import<bool(unsigned short)>(module, "Begin");
  const auto send = Import<bool(int)>(module, "Send");
  const auto end = Import<void()>(module, "End");
  const auto abandon = Import<void()>(module, "Abandon");
  if (!begin(static_cast<unsigned short>(std::atoi(arguments[1])))) return 4;
  for (int i = 0; i < 3; ++i) {
    if (!send(i)) return 5;
  }
  if (way == "exit") {
    abandon();
  } else if (way == "exit-destroy") {
    // The library's own clean-up destroys the sender, when the system has ended the worker already.
  } else if (way == "free") {
    abandon();
    ::FreeLibrary(module);
    if (::GetModuleHandleW(L"sender_module.dll") == nullptr) return 6;  // the worker needs it
  } else if (way == "destroy-free") {
    end();
    ::FreeLibrary(module);
    while (::GetModuleHandleW(L"sender_module.dll") != nullptr) ::Sleep(1);  // unloaded in the end
  } else {
    return 2;
  }
  ::ExitProcess(0);
}
