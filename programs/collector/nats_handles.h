// What NATS's client library hands out, in scoped types.
#pragma once

#include <nats/nats.h>

#include <cstddef>
#include <memory>
#include <string>

namespace TAVU::collector {

template <auto Destroy>
struct NatsDestroy {
  template <typename Object>
  void operator()(Object* object) const noexcept {
    Destroy(object);
  }
};
using NatsOptions = std::unique_ptr<natsOptions, NatsDestroy<natsOptions_Destroy>>;
using NatsConnection = std::unique_ptr<natsConnection, NatsDestroy<natsConnection_Destroy>>;
using NatsJetStream = std::unique_ptr<jsCtx, NatsDestroy<jsCtx_Destroy>>;
using NatsMessage = std::unique_ptr<natsMsg, NatsDestroy<natsMsg_Destroy>>;
using NatsSubscription = std::unique_ptr<natsSubscription, NatsDestroy<natsSubscription_Destroy>>;
using NatsStreamInfo = std::unique_ptr<jsStreamInfo, NatsDestroy<jsStreamInfo_Destroy>>;

// What the library calls with the address of a pointer: Receive(handle, [&](T** out) { ... }).
template <typename Handle, typename Call>
natsStatus Receive(Handle& handle, Call call) {
  typename Handle::pointer raw = nullptr;
  const natsStatus status = call(&raw);
  handle.reset(raw);
  return status;
}

// The reason of a failure; the last one of the calling thread knows more than its status. It begins
// with a place in the library, in parentheses, which tells nobody anything.
[[nodiscard]] inline std::string NatsReason(natsStatus status) {
  natsStatus latest = NATS_OK;
  const char* text = nats_GetLastError(&latest);
  if (latest != status || text == nullptr || *text == '\0') return natsStatus_GetText(status);
  const std::string reason = text;
  const std::size_t place = reason.front() == '(' ? reason.find("): ") : std::string::npos;
  return place == std::string::npos ? reason : reason.substr(place + 3);
}

}  // namespace TAVU::collector
