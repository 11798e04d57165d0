#include "delivery/lua_dump.h"

#include <charconv>
#include <new>
#include <span>
#include <string_view>
#include <utility>

#include "delivery/record_fields.h"
#include "lumo/map.h"

namespace TAVU::delivery {

namespace {

constexpr std::uint32_t kTimeoutMs = 2000;  // to connect, and again for the reply
constexpr std::string_view kStandIn = "-";  // travels in the place of an empty text
constexpr std::string_view kNoUser = "USER_SERVER";

// Decimal, as %lld and %u print it.
template <typename Integer>
lumo::Value NumberText(Integer number) {
  char digits[20];  // "-9223372036854775808" fits
  const std::to_chars_result end = std::to_chars(digits, digits + sizeof digits, number);
  return lumo::Value::CopyString({digits, end.ptr});
}

lumo::Value TextOrStandIn(std::string_view text) {
  return text.empty() ? lumo::Value::BorrowString(kStandIn) : lumo::Value::CopyString(text);
}

lumo::Value BinaryOrStandIn(std::string_view text) {
  return text.empty() ? lumo::Value::BorrowBinary(std::as_bytes(std::span(kStandIn)))
                      : lumo::Value::CopyBinary(std::as_bytes(std::span(text)));
}

}  // namespace

lumo::Value BuildLuaDumpRecord(const LuaDump& dump) {
  auto record = std::make_unique<lumo::Map>();
  PutText(*record, RecordKey::kConstantZero, "0");
  PutField(*record, RecordKey::kSoftwareId, NumberText(dump.softwareIdNumber));
  PutField(*record, RecordKey::kSoftwareVer, NumberText(dump.softwareVerNumber));
  PutText(*record, RecordKey::kLevel, kLevelDigits[0]);
  PutText(*record, RecordKey::kLogType, "LuaDump");
  PutText(*record, RecordKey::kRecordKind, record_kind::kLuaDump);
  PutField(*record, RecordKey::kUserId,
           dump.user ? TextOrStandIn(*dump.user) : lumo::Value::BorrowString(kNoUser));
  PutText(*record, RecordKey::kLocalAddress, "0.0.0.0");
  PutField(*record, RecordKey::kMessage, TextOrStandIn(dump.message));
  PutField(*record, RecordKey::kLuaExtra, TextOrStandIn(dump.extra));
  PutField(*record, RecordKey::kLuaDumpNumber, NumberText(dump.dumpNumber));
  PutField(*record, RecordKey::kLuaDump, BinaryOrStandIn(dump.dump));
  return lumo::Value::AdoptMap(std::move(record));
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
