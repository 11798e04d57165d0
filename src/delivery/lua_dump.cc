#include "delivery/lua_dump.h"

#include <charconv>
#include <cstddef>
#include <cstring>
#include <new>
#include <span>
#include <string_view>
#include <utility>

#include "delivery/record_fields.h"
#include "lumo/value/map.h"

namespace TAVU::delivery {

namespace {

constexpr std::uint32_t kTimeoutMs = 2000;  // to connect, and again for the reply
constexpr std::string_view kNoUser = "USER_SERVER";

constexpr std::size_t kFieldCount = 12;

// Bytes that the texts of a record take in its own memory, with what is lost between them. The
// three numbers have 20 digits at the most.
std::size_t SizeOfTexts(const LuaDump& dump) noexcept {
  constexpr std::size_t kNumbersAndGaps = 3 * 24 + 4 * 8;
  const std::size_t user_size = dump.user ? dump.user->size() : 0;
  return dump.message.size() + dump.dump.size() + user_size + dump.extra.size() + kNumbersAndGaps;
}

// A copy in the record's own memory, which lives as long as the record.
std::string_view CopyInto(lumo::Map& record, std::string_view text) {
  std::byte* const copy = record.Room(text.size());
  std::memcpy(copy, text.data(), text.size());
  return {reinterpret_cast<const char*>(copy), text.size()};
}

// Decimal, as %lld and %u print it.
template <typename Integer>
void PutNumber(lumo::Map& record, RecordKey key, Integer number) {
  char digits[20];  // "-9223372036854775808" fits
  const std::to_chars_result end = std::to_chars(digits, digits + sizeof digits, number);
  PutText(record, key, CopyInto(record, {digits, end.ptr}));
}

std::string_view CopyOrStandIn(lumo::Map& record, std::string_view text) {
  return text.empty() ? kStandIn : CopyInto(record, text);
}

}  // namespace

lumo::Value BuildLuaDumpRecord(const LuaDump& dump) {
  auto owned = std::make_unique<lumo::Map>();
  lumo::Map& record = *owned;
  // All in one block: many records may be queued, and the heap is what takes the time then.
  record.Reserve(kFieldCount, SizeOfTexts(dump));
  PutText(record, RecordKey::kConstantZero, "0");
  PutNumber(record, RecordKey::kSoftwareId, dump.softwareIdNumber);
  PutNumber(record, RecordKey::kSoftwareVer, dump.softwareVerNumber);
  PutText(record, RecordKey::kLevel, kLevelDigits[0]);
  PutText(record, RecordKey::kLogType, log_type::kLuaDump);
  PutText(record, RecordKey::kRecordKind, record_kind::kLuaDump);
  PutText(record, RecordKey::kUserId, dump.user ? CopyOrStandIn(record, *dump.user) : kNoUser);
  PutText(record, RecordKey::kLocalAddress, "0.0.0.0");
  PutText(record, RecordKey::kMessage, CopyOrStandIn(record, dump.message));
  PutText(record, RecordKey::kLuaExtra, CopyOrStandIn(record, dump.extra));
  PutNumber(record, RecordKey::kLuaDumpNumber, dump.dumpNumber);
  const std::string_view content = CopyOrStandIn(record, dump.dump);
  PutField(record, RecordKey::kLuaDump,
           lumo::Value::BorrowBinary(std::as_bytes(std::span(content))));
  return lumo::Value::AdoptMap(std::move(owned));
}

std::unique_ptr<LuaDumpSender> LuaDumpSender::Create(const char* host, std::uint16_t port,
                                                     QTC::PendingOnStop pending) noexcept {
  std::unique_ptr<QTC::AsyncSender> sender =
      QTC::AsyncSender::Create({host, port, kTimeoutMs}, pending, QTC::Protocol::kTcp);
  if (sender == nullptr) return nullptr;
  return std::unique_ptr<LuaDumpSender>(new (std::nothrow) LuaDumpSender(std::move(sender)));
}

bool LuaDumpSender::Post(const LuaDump& dump) {
  return sender_->Enqueue(kLuaDumpService, BuildLuaDumpRecord(dump));
}

}  // namespace TAVU::delivery
