// Follows the body of a call as its bytes come: the envelope, then one encoded value and the end
// tag. It keeps nothing of them. It tells
//   - when the body is whole, which a body without packets tells in no other way;
//   - that it never will be, at the first byte that cannot belong to a call;
//   - that its values would take more memory than their bytes can justify, before the decoder makes
//     them: two bytes make an empty map, which takes about a hundred.
// Each byte is looked at once at most; contents of texts and binaries are stepped over.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace TAVU::collector {

enum class ScanState : std::uint8_t { kIncomplete, kComplete, kRefused };

class BodyScanner {
 public:
  // A request may hold this many values. Containers count for more than one; see the source file.
  static constexpr std::size_t kMostValues = 1'000'000;
  // Keys that are doubles or containers, or have one hash, are looked for one by one, so that
  // filling a map with them takes time that grows with the square of its size.
  static constexpr std::size_t kMostMapEntries = 1000;

  // Looks at the next bytes; returns how many of them belong to the body. Fewer than all only when
  // the state is not kIncomplete any more.
  std::size_t Feed(std::span<const std::byte> bytes);

  [[nodiscard]] ScanState state() const noexcept { return state_; }
  [[nodiscard]] bool call_begun() const noexcept { return expected_ != Expected::kEnvelope; }
  [[nodiscard]] const char* reason() const noexcept { return reason_; }  // of kRefused; static

 private:
  // What the next byte is.
  enum class Expected : std::uint8_t {
    kEnvelope,    // one of its fixed bytes
    kLengthHigh,  // of a 16-bit length, the first byte
    kLengthLow,
    kArgument,      // a value's tag
    kElement,       // a value's tag, or the end of the container
    kMapValue,      // a value's tag
    kListStart,     // a count, a value's tag or the end
    kChunk,         // another chunk of the same kind
    kTableColumns,  // the tag of the column list
    kColumnCount,   // the tag of its count
    kColumnName,    // a column's name, or the end of the list
    kColumnType,
    kTableRows,  // the tag of the row list
    kRowsStart,  // a count, a row or the end
    kRow,        // a row or the end
    kTableEnd,
    kBodyEnd,
  };
  enum class Container : std::uint8_t { kList, kMap, kRow };
  struct Level {
    Container container;
    bool key_next = true;     // of a map
    std::size_t entries = 0;  // of a map
  };

  void Look(std::uint8_t byte);
  void LookAtValue(std::uint8_t tag);
  void LookAtColumnsOrRows(std::uint8_t byte);
  void Require(std::uint8_t byte, std::uint8_t tag, Expected next);
  void StepOver(std::size_t count, Expected next);
  void StepOverText(Expected next);  // a 16-bit length and as many bytes
  void Open(Container container, std::size_t cost);
  void CloseContainer();
  void EndValue();
  void Count(std::size_t cost);
  void Refuse(const char* reason);

  ScanState state_ = ScanState::kIncomplete;
  Expected expected_ = Expected::kEnvelope;
  Expected after_length_ = Expected::kEnvelope;
  std::uint8_t chunk_tag_ = 0;  // of the latest chunk
  std::size_t envelope_position_ = 0;
  std::size_t length_ = 0;     // being read
  std::size_t step_over_ = 0;  // bytes that need no look
  std::size_t cost_ = 0;       // of all values so far
  std::vector<Level> levels_;  // the open containers
  const char* reason_ = "";
};

}  // namespace TAVU::collector
