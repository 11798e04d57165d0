#include "nats_connecting.h"

#include <algorithm>
#include <cstdint>
#include <vector>

namespace TAVU::collector {
namespace {

// All in milliseconds.
constexpr std::int64_t kConnectTime = 2000;
constexpr std::int64_t kWriteTime = 2000;     // a server that takes nothing for so long is left
constexpr std::int64_t kPingInterval = 2000;  // likewise one that does not answer two of these
constexpr std::int64_t kReconnectPause = 100;

std::vector<std::string> SplitUrls(const std::string& text) {
  std::vector<std::string> urls;
  for (std::size_t at = 0; at <= text.size();) {
    const std::size_t comma = std::min(text.find(',', at), text.size());
    urls.push_back(text.substr(at, comma - at));
    at = comma + 1;
  }
  return urls;
}

}  // namespace

natsStatus SetServers(natsOptions* options, const std::string& servers, const char* name) {
  const std::vector<std::string> urls = SplitUrls(servers);
  std::vector<const char*> pointers;
  pointers.reserve(urls.size());
  for (const std::string& url : urls) pointers.push_back(url.c_str());
  natsStatus status =
      natsOptions_SetServers(options, pointers.data(), static_cast<int>(pointers.size()));
  const auto then = [&status](natsStatus next) {
    if (status == NATS_OK) status = next;
  };
  then(natsOptions_SetName(options, name));
  then(natsOptions_SetTimeout(options, kConnectTime));
  then(natsOptions_SetWriteDeadline(options, kWriteTime));
  then(natsOptions_SetPingInterval(options, kPingInterval));
  then(natsOptions_SetMaxReconnect(options, -1));
  then(natsOptions_SetReconnectWait(options, kReconnectPause));
  then(natsOptions_SetReconnectJitter(options, kReconnectPause, kReconnectPause));
  return status;
}

}  // namespace TAVU::collector
