#include "body_scanner.h"

#include <algorithm>

#include "lumo/codec/encoding.h"
#include "net/wire/message.h"

namespace TAVU::collector {
namespace {

using lumo::Place;
using lumo::ValueSkipper;
using lumo::ValueType;

namespace envelope = QTC::envelope;
constexpr std::uint8_t kEnvelope[] = {envelope::kCall, envelope::kVersion[0], envelope::kVersion[1],
                                      envelope::kMethod};

// What a decoded value takes in memory, in units of about 64 bytes.
constexpr std::size_t kScalarCost = 1;
constexpr std::size_t kListCost = 2;
constexpr std::size_t kMapCost = 16;  // that of one which has grown an index
constexpr std::size_t kTableCost = 16;
constexpr std::size_t kRowCost = 2;
constexpr std::size_t kColumnCost = 2;

constexpr std::size_t kComparedAtOnce = 64;  // bytes of texts, about, in the time of one value

constexpr std::size_t CostOf(ValueType type) {
  switch (type) {
    case ValueType::kList:
      return kListCost;
    case ValueType::kMap:
      return kMapCost;
    case ValueType::kTable:
      return kTableCost;
    default:
      return kScalarCost;
  }
}

constexpr bool IsContainer(ValueType type) {
  return type == ValueType::kList || type == ValueType::kMap || type == ValueType::kTable;
}

const char* TextOf(ValueSkipper::Fault fault) {
  switch (fault) {
    case ValueSkipper::Fault::kKeyWithoutValue:
      return "key without a value";
    case ValueSkipper::Fault::kMixedChunks:
      return "chunk of another kind";
    case ValueSkipper::Fault::kLongChunk:
      return "chunk too long";
    case ValueSkipper::Fault::kBrokenTable:
      return "malformed table";
    case ValueSkipper::Fault::kTooDeep:
      return "values nested too deeply";
    default:
      return "unknown value tag";
  }
}

}  // namespace

// --- DecodingCost --------------------------------------------------------------------------------

bool DecodingCost::OnValue(ValueType type, Place place) {
  if (place == Place::kKey) {
    Level& map = levels_.back();
    if (++map.entries > kMostMapEntries) return Complain("map with too many entries");
    map.has_container_key = IsContainer(type);
    map.weight_before_key = Weight();
  } else if (place == Place::kMapValue && !CountComparisons(levels_.back())) {
    return false;
  }
  if (!Count(CostOf(type))) return false;
  if (IsContainer(type)) levels_.emplace_back();
  return true;
}

bool DecodingCost::OnColumn() {
  return Count(kColumnCost);
}

bool DecodingCost::OnRow() {
  return Count(kRowCost);
}

bool DecodingCost::Count(std::size_t cost) {
  cost_ += cost;
  return cost_ <= kMostValues || Complain("too many values");
}

// The key that ended just now is hashed, and compared with the others before it.
bool DecodingCost::CountComparisons(Level& map) {
  if (!map.has_container_key) return true;
  const std::size_t weight = Weight() - map.weight_before_key;
  comparisons_ += weight * (map.weight_of_keys + 1);
  map.weight_of_keys += weight;
  return comparisons_ <= kMostComparisons || Complain("keys too costly to compare");
}

bool DecodingCost::Complain(const char* complaint) {
  complaint_ = complaint;
  return false;
}

std::size_t DecodingCost::Weight() const noexcept {
  return cost_ + content_ / kComparedAtOnce;
}

// --- BodyScanner ---------------------------------------------------------------------------------

std::size_t BodyScanner::Feed(std::span<const std::byte> bytes) {
  std::size_t position = 0;
  while (state_ == ScanState::kIncomplete && position < bytes.size()) {
    const std::span<const std::byte> rest = bytes.subspan(position);
    const auto byte = std::to_integer<std::uint8_t>(rest.front());
    if (envelope_position_ < kHeadSize) {
      LookAtEnvelope(byte);
      ++position;
    } else if (name_left_ != 0) {
      const std::size_t step = std::min(name_left_, rest.size());
      name_left_ -= step;
      position += step;
    } else if (value_.state() == ValueSkipper::State::kInside) {
      position += FeedValue(rest);
    } else {
      LookAtEnd(byte);
      ++position;
    }
  }
  return position;
}

// The fixed bytes, then the length of the name.
void BodyScanner::LookAtEnvelope(std::uint8_t byte) {
  static_assert(sizeof kEnvelope == kEnvelopeSize);
  if (envelope_position_ >= kEnvelopeSize) {
    name_left_ = name_left_ << 8 | byte;
  } else if (byte != kEnvelope[envelope_position_]) {
    return Refuse("not a call");
  }
  ++envelope_position_;
}

std::size_t BodyScanner::FeedValue(std::span<const std::byte> bytes) {
  const std::size_t used = value_.Feed(bytes, &cost_);
  if (value_.state() == ValueSkipper::State::kRefused) {
    const bool is_too_costly = value_.fault() == ValueSkipper::Fault::kObserver;
    Refuse(is_too_costly ? cost_.complaint() : TextOf(value_.fault()));
  } else if (value_.state() == ValueSkipper::State::kWhole && value_.type() == ValueType::kEnd) {
    Refuse("call without an argument");
  }
  return used;
}

void BodyScanner::LookAtEnd(std::uint8_t byte) {
  if (byte != lumo::tag::kEnd) return Refuse("more than one argument");
  state_ = ScanState::kComplete;
}

void BodyScanner::Refuse(const char* reason) {
  state_ = ScanState::kRefused;
  reason_ = reason;
}

}  // namespace TAVU::collector
