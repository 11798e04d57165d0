// SHA-256, computed piece by piece by the system's cryptographic library, which uses what the
// processor has for it. sha256_openssl.cc and sha256_bcrypt.cc; the build chooses one.
#pragma once

#include <array>
#include <cstddef>
#include <memory>
#include <span>

namespace TAVU::collector {

class Sha256 {
 public:
  using Digest = std::array<unsigned char, 32>;

  Sha256();  // throws std::bad_alloc
  ~Sha256();
  Sha256(const Sha256&) = delete;
  Sha256& operator=(const Sha256&) = delete;

  void Update(std::span<const std::byte> bytes);
  // The digest of all bytes. The object is used up then.
  [[nodiscard]] Digest Finish();

 private:
  struct State;

  std::unique_ptr<State> state_;
};

}  // namespace TAVU::collector
