// Finds the end of an encoded value without building the value.
//
// Bytes go in as they come, in pieces of any size. The skipper remembers only where in the grammar
// they stopped, so a value of any size needs about a kilobyte of memory: no allocation, no
// recursion, no comparison of keys, and time in proportion to the bytes. It accepts what ReadValue
// accepts, stops where ReadValue stops, and bounds nesting in the same way.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

#include "lumo/codec/byte_stream.h"
#include "lumo/codec/encoding.h"
#include "lumo/value/value_type.h"

namespace TAVU::lumo {

// Where a value stands.
enum class Place : std::uint8_t { kAlone, kElement, kKey, kMapValue, kCell };

// What a skipper tells of the parts that it passes, for those who want to know more than the end.
// The functions that return false refuse the value with that. Whoever overrides none is told
// nothing.
class SkipObserver {
 public:
  virtual ~SkipObserver() = default;
  // A value begins. Of a container, its content follows, then OnContainerEnd.
  [[nodiscard]] virtual bool OnValue(ValueType /*type*/, Place /*place*/) { return true; }
  [[nodiscard]] virtual bool OnColumn() { return true; }  // of the table that began last
  [[nodiscard]] virtual bool OnRow() { return true; }     // its cells follow
  // Content of the string or binary that began last, in pieces as the bytes come.
  virtual void OnContent(std::span<const std::byte> /*piece*/) {}
  virtual void OnContainerEnd() {}
};

class ValueSkipper {
 public:
  enum class State : std::uint8_t { kInside, kWhole, kRefused };
  enum class Fault : std::uint8_t {
    kNone,
    kUnknownTag,
    kKeyWithoutValue,
    kMixedChunks,  // of a string and of a binary
    kLongChunk,
    kBrokenTable,
    kTooDeep,
    kObserver,  // the observer refused
  };

  // Looks at the next bytes and returns how many of them belong to the value: fewer than all only
  // when the state is not kInside any more. A refusal counts the byte that brought it.
  // `observer`, which may be null, is told of what is in these bytes.
  std::size_t Feed(std::span<const std::byte> bytes, SkipObserver* observer = nullptr);

  [[nodiscard]] State state() const noexcept { return state_; }
  [[nodiscard]] Fault fault() const noexcept { return fault_; }  // of kRefused
  // Of the value that is skipped, once its first byte has come. As ReadValue has it, the tag "z" is
  // whole and of type kEnd.
  [[nodiscard]] ValueType type() const noexcept { return type_; }

 private:
  // What the next byte is.
  enum class Expected : std::uint8_t {
    kValue,      // a tag
    kElement,    // a tag, or the end of the elements, cells or entries
    kListStart,  // a count, a tag or the end
    kChunk,      // another chunk of the same kind
    kChunkSize,  // 16 bits
    kValueEnd,   // no byte: the value ends where it stands
    kColumnList,
    kCountTag,
    kColumnCount,  // 32 bits
    kColumn,       // a column's name, or the end of the list
    kColumnNameSize,
    kColumnType,
    kColumnTypeSize,
    kRowList,
    kRowsStart,  // a count, a row or the end
    kRow,        // a row or the end
    kTableEnd,
  };

  void Look(std::uint8_t byte);
  void LookAtTable(std::uint8_t byte);
  void BeginValue(std::uint8_t value_tag);
  void BeginContainer(Place content, Expected first);
  void EndElements();
  void EndContainer();
  void EndValue();
  void EndChunkSize(std::size_t size);
  void StepOver(std::size_t count, Expected next);
  void ReadNumber(int bytes, Expected number);
  [[nodiscard]] bool NumberIsWhole(std::uint8_t byte);
  void Refuse(Fault fault);

  [[nodiscard]] Place place() const noexcept {
    return depth_ == 0 ? Place::kAlone : levels_[depth_ - 1];
  }

  SkipObserver* observer_ = nullptr;  // while bytes are fed
  State state_ = State::kInside;
  Fault fault_ = Fault::kNone;
  ValueType type_ = ValueType::kNull;
  Expected expected_ = Expected::kValue;
  bool in_content_ = false;     // whether what is stepped over is a text's content
  std::uint8_t chunk_tag_ = 0;  // of the latest chunk
  int number_left_ = 0;         // bytes to come of the number that is being read
  std::uint32_t number_ = 0;    // what has come of it
  std::uint32_t columns_left_ = 0;
  std::size_t step_over_ = 0;                    // bytes that need no look
  std::size_t depth_ = 0;                        // open containers
  std::array<Place, kDeepestNesting> levels_{};  // of each, what its next value is
};

// Reads past one value. False where ReadValue gives false, with the same thread error. `observer`
// may be null.
[[nodiscard]] bool SkipValue(ByteSource& source, ValueType& type, SkipObserver* observer = nullptr);

}  // namespace TAVU::lumo
