// What each address holds of the connections and of the memory, so that no address takes all.
#pragma once

#include <asio/ip/address.hpp>
#include <cstddef>
#include <map>
#include <memory>

#include "memory_budget.h"

namespace TAVU::collector {

struct PeerShare {
  PeerShare(std::size_t most_memory, MemoryBudget& all) : memory(most_memory, &all) {}

  MemoryBudget memory;
  std::size_t connections = 0;
};

// Used by one thread; outlives the shares that it gave out.
class PeerShares {
 public:
  // An address may hold `most_memory` bytes of `all`.
  PeerShares(std::size_t most_memory, MemoryBudget& all) : most_memory_(most_memory), all_(all) {}

  // The share of that address, the same one as long as anybody holds it. Of IPv6 a whole network of
  // 64 bits counts as one: a single machine has that many addresses.
  [[nodiscard]] std::shared_ptr<PeerShare> Of(const asio::ip::address& address) {
    const asio::ip::address key = KeyOf(address);
    if (const auto found = shares_.find(key); found != shares_.end()) return found->second.lock();
    std::shared_ptr<PeerShare> share(new PeerShare(most_memory_, all_),
                                     [this, key](PeerShare* gone) {
                                       shares_.erase(key);
                                       delete gone;
                                     });
    shares_.emplace(key, share);
    return share;
  }

 private:
  static asio::ip::address KeyOf(const asio::ip::address& address) {
    if (address.is_v4()) return address;
    asio::ip::address_v6 v6 = address.to_v6();
    if (v6.is_v4_mapped()) return asio::ip::make_address_v4(asio::ip::v4_mapped, v6);
    asio::ip::address_v6::bytes_type bytes = v6.to_bytes();
    for (std::size_t i = 8; i < bytes.size(); ++i) bytes[i] = 0;
    return asio::ip::address_v6(bytes);
  }

  const std::size_t most_memory_;
  MemoryBudget& all_;
  std::map<asio::ip::address, std::weak_ptr<PeerShare>> shares_;
};

}  // namespace TAVU::collector
