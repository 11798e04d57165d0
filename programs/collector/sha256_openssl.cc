#include <openssl/evp.h>

#include <new>

#include "sha256.h"

namespace TAVU::collector {

struct Sha256::State {
  EVP_MD_CTX* context = EVP_MD_CTX_new();

  State() = default;
  State(const State&) = delete;
  State& operator=(const State&) = delete;
  ~State() { EVP_MD_CTX_free(context); }
};

Sha256::Sha256() : state_(std::make_unique<State>()) {
  // Fails for want of memory alone: the algorithm is always there.
  if (state_->context == nullptr ||
      EVP_DigestInit_ex(state_->context, EVP_sha256(), nullptr) != 1) {
    throw std::bad_alloc();
  }
}

Sha256::~Sha256() = default;

void Sha256::Update(std::span<const std::byte> bytes) {
  if (EVP_DigestUpdate(state_->context, bytes.data(), bytes.size()) != 1) throw std::bad_alloc();
}

Sha256::Digest Sha256::Finish() {
  Digest digest;
  if (EVP_DigestFinal_ex(state_->context, digest.data(), nullptr) != 1) throw std::bad_alloc();
  return digest;
}

}  // namespace TAVU::collector
