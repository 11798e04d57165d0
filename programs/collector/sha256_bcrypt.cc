#include <windows.h>
// The other needs it first.
#include <bcrypt.h>

#include <algorithm>
#include <new>

#include "sha256.h"

namespace TAVU::collector {

struct Sha256::State {
  BCRYPT_ALG_HANDLE algorithm = nullptr;
  BCRYPT_HASH_HANDLE hash = nullptr;

  State() = default;
  State(const State&) = delete;
  State& operator=(const State&) = delete;
  ~State() {
    if (hash != nullptr) BCryptDestroyHash(hash);
    if (algorithm != nullptr) BCryptCloseAlgorithmProvider(algorithm, 0);
  }
};

namespace {

// These calls fail for want of memory alone: the algorithm is part of every Windows since Vista.
void Require(NTSTATUS status) {
  if (status < 0) throw std::bad_alloc();
}

}  // namespace

Sha256::Sha256() : state_(std::make_unique<State>()) {
  Require(BCryptOpenAlgorithmProvider(&state_->algorithm, BCRYPT_SHA256_ALGORITHM, nullptr, 0));
  Require(BCryptCreateHash(state_->algorithm, &state_->hash, nullptr, 0, nullptr, 0, 0));
}

Sha256::~Sha256() = default;

void Sha256::Update(std::span<const std::byte> bytes) {
  constexpr std::size_t kLargestPiece = std::size_t{1} << 30;  // lengths have 32 bits here
  while (!bytes.empty()) {
    const std::span<const std::byte> piece = bytes.first(std::min(bytes.size(), kLargestPiece));
    bytes = bytes.subspan(piece.size());
    // The interface takes the bytes as not const, but only reads them.
    auto* data = reinterpret_cast<unsigned char*>(const_cast<std::byte*>(piece.data()));
    Require(BCryptHashData(state_->hash, data, static_cast<ULONG>(piece.size()), 0));
  }
}

Sha256::Digest Sha256::Finish() {
  Digest digest;
  Require(BCryptFinishHash(state_->hash, digest.data(), static_cast<ULONG>(digest.size()), 0));
  return digest;
}

}  // namespace TAVU::collector
