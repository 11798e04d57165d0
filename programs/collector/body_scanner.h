// Follows the body of a call as its bytes come: the envelope, then one encoded value and the end
// tag. It keeps nothing of them. It tells
//   - when the body is whole, which a body without packets tells in no other way;
//   - that it never will be, at the first byte that cannot belong to a call;
//   - that its values would take more memory or time than their bytes can justify, before the
//     decoder makes them: two bytes make an empty map, which takes about a hundred.
// Each byte is looked at once at most; contents of texts and binaries are stepped over.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "lumo/codec/value_skipper.h"

namespace TAVU::collector {

enum class ScanState : std::uint8_t { kIncomplete, kComplete, kRefused };

// Adds up what decoding the values would cost and refuses the first that costs too much.
class DecodingCost final : public lumo::SkipObserver {
 public:
  // A request may hold this many values. Containers count for more than one; see the source file.
  static constexpr std::size_t kMostValues = 1'000'000;
  // Keys that are doubles or containers, or have one hash, are looked for one by one, so that
  // filling a map with them takes time that grows with the square of its size.
  static constexpr std::size_t kMostMapEntries = 1000;
  // Pairs of values that are compared at the most to tell keys apart that are containers: such a
  // key may have to be compared with all that came before it in its map, part by part.
  static constexpr std::size_t kMostComparisons = 50'000'000;

  [[nodiscard]] bool OnValue(lumo::ValueType type, lumo::Place place) override;
  [[nodiscard]] bool OnColumn() override;
  [[nodiscard]] bool OnRow() override;
  void OnContent(std::span<const std::byte> piece) override { content_ += piece.size(); }
  void OnContainerEnd() override { levels_.pop_back(); }

  [[nodiscard]] const char* complaint() const noexcept { return complaint_; }  // empty while none
  // Bytes that it holds besides itself.
  [[nodiscard]] std::size_t memory() const noexcept { return levels_.capacity() * sizeof(Level); }

 private:
  // An open container. The rest is of a map only.
  struct Level {
    std::size_t entries = 0;
    bool has_container_key = false;  // the entry that came last
    std::size_t weight_before_key = 0;
    std::size_t weight_of_keys = 0;  // of those that are containers
  };

  [[nodiscard]] bool Count(std::size_t cost);
  [[nodiscard]] bool CountComparisons(Level& map);
  [[nodiscard]] bool Complain(const char* complaint);
  // What there is to compare so far.
  [[nodiscard]] std::size_t Weight() const noexcept;

  std::size_t cost_ = 0;     // of all values so far
  std::size_t content_ = 0;  // bytes of texts and binaries
  std::size_t comparisons_ = 0;
  std::vector<Level> levels_;
  const char* complaint_ = "";
};

class BodyScanner {
 public:
  // Looks at the next bytes; returns how many of them belong to the body. Fewer than all only when
  // the state is not kIncomplete any more.
  std::size_t Feed(std::span<const std::byte> bytes);

  [[nodiscard]] ScanState state() const noexcept { return state_; }
  [[nodiscard]] bool call_begun() const noexcept { return envelope_position_ >= kEnvelopeSize; }
  [[nodiscard]] const char* reason() const noexcept { return reason_; }  // of kRefused; static
  [[nodiscard]] std::size_t memory() const noexcept { return cost_.memory(); }  // besides itself

 private:
  static constexpr std::size_t kEnvelopeSize = 4;  // its fixed bytes
  static constexpr std::size_t kHeadSize = kEnvelopeSize + 2;

  void LookAtEnvelope(std::uint8_t byte);
  void LookAtEnd(std::uint8_t byte);
  [[nodiscard]] std::size_t FeedValue(std::span<const std::byte> bytes);
  void Refuse(const char* reason);

  ScanState state_ = ScanState::kIncomplete;
  std::size_t envelope_position_ = 0;
  std::size_t name_left_ = 0;  // bytes of the service's name
  DecodingCost cost_;
  lumo::ValueSkipper value_;  // the argument
  const char* reason_ = "";
};

}  // namespace TAVU::collector
