#include "lumo/codec/value_skipper.h"

#include <algorithm>

namespace TAVU::lumo {

namespace {

// kNull for a tag that begins no value.
constexpr ValueType TypeOf(std::uint8_t value_tag) noexcept {
  switch (value_tag) {
    case tag::kTrue:
    case tag::kFalse:
      return ValueType::kBool;
    case tag::kChar:
      return ValueType::kChar;
    case tag::kInt:
      return ValueType::kInt;
    case tag::kLong:
      return ValueType::kLong;
    case tag::kDouble:
      return ValueType::kDouble;
    case tag::kDate:
      return ValueType::kDate;
    case tag::kStringChunk:
    case tag::kString:
      return ValueType::kString;
    case tag::kBinaryChunk:
    case tag::kBinary:
      return ValueType::kBinary;
    case tag::kList:
      return ValueType::kList;
    case tag::kMap:
      return ValueType::kMap;
    case tag::kTable:
      return ValueType::kTable;
    case tag::kEnd:
      return ValueType::kEnd;
    default:
      return ValueType::kNull;
  }
}

constexpr bool IsFinalChunk(std::uint8_t chunk_tag) noexcept {
  return chunk_tag == tag::kString || chunk_tag == tag::kBinary;
}

constexpr std::size_t kCountSize = 4;  // of elements or rows; not looked at, the end tags count

}  // namespace

std::size_t ValueSkipper::Feed(std::span<const std::byte> bytes, SkipObserver* observer) {
  observer_ = observer;
  std::size_t position = 0;
  while (state_ == State::kInside && position < bytes.size()) {
    if (step_over_ == 0) {
      Look(std::to_integer<std::uint8_t>(bytes[position++]));
      continue;
    }
    const std::size_t step = std::min(step_over_, bytes.size() - position);
    if (in_content_ && observer_ != nullptr) observer_->OnContent(bytes.subspan(position, step));
    position += step;
    step_over_ -= step;
    if (step_over_ == 0 && expected_ == Expected::kValueEnd) EndValue();
  }
  observer_ = nullptr;
  return position;
}

void ValueSkipper::Look(std::uint8_t byte) {
  switch (expected_) {
    case Expected::kValue:
      return BeginValue(byte);
    case Expected::kListStart:
      if (byte == tag::kLength) return StepOver(kCountSize, Expected::kElement);
      [[fallthrough]];
    case Expected::kElement:
      return byte == tag::kEnd ? EndElements() : BeginValue(byte);
    case Expected::kChunk:
      if (TypeOf(byte) != TypeOf(chunk_tag_)) return Refuse(Fault::kMixedChunks);
      chunk_tag_ = byte;
      return ReadNumber(2, Expected::kChunkSize);
    case Expected::kChunkSize:
      return NumberIsWhole(byte) ? EndChunkSize(number_) : void();
    default:
      return LookAtTable(byte);
  }
}

void ValueSkipper::BeginValue(std::uint8_t value_tag) {
  const ValueType type = TypeOf(value_tag);
  if (type == ValueType::kNull && value_tag != tag::kNull) return Refuse(Fault::kUnknownTag);
  if (type == ValueType::kEnd && depth_ != 0) return Refuse(Fault::kKeyWithoutValue);
  if (depth_ == 0) type_ = type;
  if (observer_ != nullptr && !observer_->OnValue(type, place())) return Refuse(Fault::kObserver);
  switch (type) {
    case ValueType::kString:
    case ValueType::kBinary:
      chunk_tag_ = value_tag;
      return ReadNumber(2, Expected::kChunkSize);
    case ValueType::kList:
      return BeginContainer(Place::kElement, Expected::kListStart);
    case ValueType::kMap:
      return BeginContainer(Place::kKey, Expected::kElement);
    case ValueType::kTable:
      return BeginContainer(Place::kCell, Expected::kColumnList);
    default:
      return StepOver(ScalarSize(value_tag) - 1, Expected::kValueEnd);
  }
}

void ValueSkipper::BeginContainer(Place content, Expected first) {
  if (depth_ == levels_.size()) return Refuse(Fault::kTooDeep);
  levels_[depth_++] = content;
  expected_ = first;
}

// The end tag that closes a list, a map or a row. A table has its own.
void ValueSkipper::EndElements() {
  if (place() == Place::kCell) {
    expected_ = Expected::kRow;
    return;
  }
  EndContainer();
}

void ValueSkipper::EndContainer() {
  --depth_;
  if (observer_ != nullptr) observer_->OnContainerEnd();
  EndValue();
}

void ValueSkipper::EndValue() {
  expected_ = Expected::kElement;
  switch (place()) {
    case Place::kAlone:
      state_ = State::kWhole;
      return;
    case Place::kKey:
      levels_[depth_ - 1] = Place::kMapValue;
      expected_ = Expected::kValue;
      return;
    case Place::kMapValue:
      levels_[depth_ - 1] = Place::kKey;
      return;
    default:
      return;
  }
}

void ValueSkipper::EndChunkSize(std::size_t size) {
  const bool is_final = IsFinalChunk(chunk_tag_);
  if (!is_final && size > kLongestChunk) return Refuse(Fault::kLongChunk);
  StepOver(size, is_final ? Expected::kValueEnd : Expected::kChunk);
  in_content_ = true;
}

// The columns, the rows and the end of a table, in this order.
void ValueSkipper::LookAtTable(std::uint8_t byte) {
  const auto require = [&](std::uint8_t wanted, Expected next) {
    byte == wanted ? void(expected_ = next) : Refuse(Fault::kBrokenTable);
  };
  switch (expected_) {
    case Expected::kColumnList:
      return require(tag::kList, Expected::kCountTag);
    case Expected::kCountTag:
      if (byte != tag::kLength) return Refuse(Fault::kBrokenTable);
      return ReadNumber(4, Expected::kColumnCount);
    case Expected::kColumnCount:
      if (!NumberIsWhole(byte)) return;
      columns_left_ = number_;
      expected_ = Expected::kColumn;
      return;
    case Expected::kColumn:
      if (columns_left_ == 0) return require(tag::kEnd, Expected::kRowList);
      if (byte != tag::kString) return Refuse(Fault::kBrokenTable);
      --columns_left_;
      if (observer_ != nullptr && !observer_->OnColumn()) return Refuse(Fault::kObserver);
      return ReadNumber(2, Expected::kColumnNameSize);
    case Expected::kColumnType:
      if (byte != tag::kColumnType) return Refuse(Fault::kBrokenTable);
      return ReadNumber(2, Expected::kColumnTypeSize);
    case Expected::kColumnNameSize:
    case Expected::kColumnTypeSize:
      if (!NumberIsWhole(byte)) return;
      if (number_ >= kLongestChunk) return Refuse(Fault::kBrokenTable);
      return StepOver(number_, expected_ == Expected::kColumnNameSize ? Expected::kColumnType
                                                                      : Expected::kColumn);
    case Expected::kRowList:
      return require(tag::kList, Expected::kRowsStart);
    case Expected::kRowsStart:
      if (byte == tag::kLength) return StepOver(kCountSize, Expected::kRow);
      [[fallthrough]];
    case Expected::kRow:
      if (byte == tag::kEnd) return void(expected_ = Expected::kTableEnd);
      if (byte != tag::kList) return Refuse(Fault::kBrokenTable);
      if (observer_ != nullptr && !observer_->OnRow()) return Refuse(Fault::kObserver);
      expected_ = Expected::kElement;
      return;
    default:  // kTableEnd
      return byte == tag::kEnd ? EndContainer() : Refuse(Fault::kBrokenTable);
  }
}

void ValueSkipper::StepOver(std::size_t count, Expected next) {
  step_over_ = count;
  in_content_ = false;
  expected_ = next;
  if (count == 0 && next == Expected::kValueEnd) EndValue();
}

void ValueSkipper::ReadNumber(int bytes, Expected number) {
  number_left_ = bytes;
  number_ = 0;
  expected_ = number;
}

bool ValueSkipper::NumberIsWhole(std::uint8_t byte) {
  number_ = number_ << 8 | byte;
  return --number_left_ == 0;
}

void ValueSkipper::Refuse(Fault fault) {
  state_ = State::kRefused;
  fault_ = fault;
}

bool SkipValue(ByteSource& source, ValueType& type, SkipObserver* observer) {
  ValueSkipper skipper;
  while (skipper.state() == ValueSkipper::State::kInside) {
    std::uint8_t next = 0;
    if (!source.PeekByte(next)) return false;
    const std::span<const std::byte> bytes = source.at_hand();
    source.Commit(bytes.data() + skipper.Feed(bytes, observer));
  }
  type = skipper.type();
  return skipper.state() == ValueSkipper::State::kWhole;
}

}  // namespace TAVU::lumo
