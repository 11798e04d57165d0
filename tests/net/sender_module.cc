// A library that sends from a thread of its own, to be loaded and freed by sender_host.
#include "net/async_sender.h"

namespace {

std::unique_ptr<TAVU::QTC::AsyncSender> sender;

}  // namespace

extern "C" __declspec(dllexport) bool Begin(unsigned short port) {
  using namespace TAVU::QTC;
  sender = AsyncSender::Create({"127.0.0.1", port, 500}, PendingOnStop::kDeliver, Protocol::kTcp);
  return sender != nullptr;
}

extern "C" __declspec(dllexport) bool Send(int number) {
  return sender->Enqueue("LuaDump", TAVU::lumo::Value::Int(number));
}

extern "C" __declspec(dllexport) void End() {
  sender.reset();
}

// Leaves the sender alone when the library goes.
extern "C" __declspec(dllexport) void Abandon() {
  static_cast<void>(sender.release());
}
