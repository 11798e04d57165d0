#include "body_scanner.h"

#include <algorithm>

#include "lumo/codec/codec.h"

namespace TAVU::collector {
namespace {

namespace tag = lumo::tag;

constexpr std::uint8_t kEnvelope[] = {'c', 1, 0, 'm'};

// What a decoded value takes in memory, in units of about 64 bytes.
constexpr std::size_t kScalarCost = 1;
constexpr std::size_t kListCost = 2;
constexpr std::size_t kMapCost = 16;  // that of one which has grown an index
constexpr std::size_t kTableCost = 16;
constexpr std::size_t kRowCost = 2;
constexpr std::size_t kColumnCost = 2;

constexpr const char* kNoValue = "unknown value tag";
constexpr const char* kBadTable = "malformed table";

bool IsStringTag(std::uint8_t byte) {
  return byte == tag::kString || byte == tag::kStringChunk;
}
bool IsBinaryTag(std::uint8_t byte) {
  return byte == tag::kBinary || byte == tag::kBinaryChunk;
}
bool IsFinalChunk(std::uint8_t byte) {
  return byte == tag::kString || byte == tag::kBinary;
}

}  // namespace

std::size_t BodyScanner::Feed(std::span<const std::byte> bytes) {
  std::size_t position = 0;
  while (state_ == ScanState::kIncomplete && position < bytes.size()) {
    const std::size_t over = std::min(step_over_, bytes.size() - position);
    position += over;
    step_over_ -= over;
    if (position == bytes.size()) break;
    Look(std::to_integer<std::uint8_t>(bytes[position++]));
  }
  return position;
}

void BodyScanner::Look(std::uint8_t byte) {
  switch (expected_) {
    case Expected::kEnvelope:
      if (byte != kEnvelope[envelope_position_]) return Refuse("not a call");
      if (++envelope_position_ == std::size(kEnvelope)) StepOverText(Expected::kArgument);
      return;
    case Expected::kLengthHigh:
      length_ = std::size_t{byte} << 8;
      expected_ = Expected::kLengthLow;
      return;
    case Expected::kLengthLow:
      length_ |= byte;
      if (after_length_ == Expected::kChunk && length_ > lumo::kLongestChunk) {
        return Refuse("chunk too long");
      }
      return StepOver(length_, after_length_);
    case Expected::kArgument:
    case Expected::kMapValue:
      return LookAtValue(byte);
    case Expected::kListStart:
      if (byte == tag::kLength) return StepOver(4, Expected::kElement);
      expected_ = Expected::kElement;
      [[fallthrough]];
    case Expected::kElement:
      if (byte == tag::kEnd) return CloseContainer();
      return LookAtValue(byte);
    case Expected::kChunk:
      if (IsStringTag(byte) != IsStringTag(chunk_tag_) ||
          IsBinaryTag(byte) != IsBinaryTag(chunk_tag_)) {
        return Refuse("chunk of another kind");
      }
      return LookAtValue(byte);
    case Expected::kBodyEnd:
      if (byte != tag::kEnd) return Refuse("more than one argument");
      state_ = ScanState::kComplete;
      return;
    default:
      return LookAtColumnsOrRows(byte);
  }
}

void BodyScanner::LookAtValue(std::uint8_t byte) {
  switch (byte) {
    case tag::kNull:
    case tag::kTrue:
    case tag::kFalse:
      Count(kScalarCost);
      return EndValue();
    case tag::kChar:
      Count(kScalarCost);
      step_over_ = 1;
      return EndValue();
    case tag::kInt:
      Count(kScalarCost);
      step_over_ = 4;
      return EndValue();
    case tag::kLong:
    case tag::kDouble:
    case tag::kDate:
      Count(kScalarCost);
      step_over_ = 8;
      return EndValue();
    case tag::kString:
    case tag::kStringChunk:
    case tag::kBinary:
    case tag::kBinaryChunk:
      Count(kScalarCost);
      chunk_tag_ = byte;
      if (!IsFinalChunk(byte)) return StepOverText(Expected::kChunk);
      EndValue();  // sets what is expected behind the content
      return StepOverText(expected_);
    case tag::kList:
      Open(Container::kList, kListCost);
      expected_ = Expected::kListStart;
      return;
    case tag::kMap:
      return Open(Container::kMap, kMapCost);
    case tag::kTable:
      Count(kTableCost);
      expected_ = Expected::kTableColumns;
      return;
    case tag::kEnd:
      return Refuse(expected_ == Expected::kMapValue ? "key without a value"
                                                     : "call without an argument");
    default:
      return Refuse(kNoValue);
  }
}

void BodyScanner::LookAtColumnsOrRows(std::uint8_t byte) {
  switch (expected_) {
    case Expected::kTableColumns:
      return Require(byte, tag::kList, Expected::kColumnCount);
    case Expected::kColumnCount:
      if (byte != tag::kLength) return Refuse(kBadTable);
      return StepOver(4, Expected::kColumnName);
    case Expected::kColumnName:
      if (byte == tag::kEnd) {
        expected_ = Expected::kTableRows;
        return;
      }
      if (byte != tag::kString) return Refuse(kBadTable);
      Count(kColumnCost);
      return StepOverText(Expected::kColumnType);
    case Expected::kColumnType:
      if (byte != tag::kColumnType) return Refuse(kBadTable);
      return StepOverText(Expected::kColumnName);
    case Expected::kTableRows:
      return Require(byte, tag::kList, Expected::kRowsStart);
    case Expected::kRowsStart:
      if (byte == tag::kLength) return StepOver(4, Expected::kRow);
      [[fallthrough]];
    case Expected::kRow:
      if (byte == tag::kEnd) {
        expected_ = Expected::kTableEnd;
        return;
      }
      if (byte != tag::kList) return Refuse(kBadTable);
      return Open(Container::kRow, kRowCost);
    case Expected::kTableEnd:
      if (byte != tag::kEnd) return Refuse(kBadTable);
      return EndValue();
    default:
      return Refuse(kNoValue);
  }
}

void BodyScanner::Require(std::uint8_t byte, std::uint8_t wanted, Expected next) {
  if (byte != wanted) return Refuse(kBadTable);
  expected_ = next;
}

void BodyScanner::StepOver(std::size_t count, Expected next) {
  step_over_ = count;
  expected_ = next;
}

void BodyScanner::StepOverText(Expected next) {
  after_length_ = next;
  expected_ = Expected::kLengthHigh;
}

void BodyScanner::Open(Container container, std::size_t cost) {
  Count(cost);
  if (levels_.size() == lumo::kDeepestNesting) return Refuse("values nested too deeply");
  levels_.push_back({container});
  expected_ = Expected::kElement;
}

void BodyScanner::CloseContainer() {
  const Container closed = levels_.back().container;
  levels_.pop_back();
  if (closed != Container::kRow) return EndValue();
  expected_ = Expected::kRow;
}

void BodyScanner::EndValue() {
  if (levels_.empty()) {
    expected_ = Expected::kBodyEnd;
    return;
  }
  Level& level = levels_.back();
  expected_ = Expected::kElement;
  if (level.container != Container::kMap) return;
  if (level.key_next) {
    expected_ = Expected::kMapValue;
    if (++level.entries > kMostMapEntries) Refuse("map with too many entries");
  }
  level.key_next = !level.key_next;
}

void BodyScanner::Count(std::size_t cost) {
  cost_ += cost;
  if (cost_ > kMostValues) Refuse("too many values");
}

void BodyScanner::Refuse(const char* reason) {
  if (state_ == ScanState::kRefused) return;  // the first reason counts
  state_ = ScanState::kRefused;
  reason_ = reason;
}

}  // namespace TAVU::collector
