// The fields of the records that travel to the server: their keys and the texts that never change.
// docs/wire.md tables them for those who write a collector.
#pragma once

#include <array>
#include <cstdint>
#include <string_view>
#include <utility>

#include "lumo/value/map.h"
#include "lumo/value/value.h"

namespace TAVU::delivery {

// The service that takes every record of a reporting instance.
inline constexpr char kServerService[] = "tavu_server";
// The service that takes the records of the LuaDump senders.
inline constexpr char kLuaDumpService[] = "LuaDump";

// Part of the wire format: none of the numbers may change.
enum class RecordKey : std::int32_t {
  kConstantZero = 0,  // always "0"
  kSoftwareId = 1,
  kSoftwareVer = 2,
  kLevel = 3,  // one decimal digit
  kLogType = 4,
  kRecordKind = 5,
  kUserId = 6,
  kLocalAddress = 7,  // dotted IPv4
  kMessage = 8,
  kDescription = 101,  // of an upload
  kDocument = 102,     // of an upload: an XML document
  kContent = 103,      // of an upload: a binary
  kExtraData = 301,    // of a log line
  kLuaExtra = 401,
  kLuaDumpNumber = 402,
  kLuaDump = 403,  // a binary
};

// The texts under RecordKey::kRecordKind. An uploaded file and a crash are of one kind: the log
// type tells them apart.
namespace record_kind {
inline constexpr std::string_view kLog = "0";
inline constexpr std::string_view kUpload = "1";
inline constexpr std::string_view kLogWithExtraData = "3";
inline constexpr std::string_view kLuaDump = "4";
}  // namespace record_kind

// Travels in the place of a text that must not be empty.
inline constexpr std::string_view kStandIn = "-";

// The levels of a log record as the texts under RecordKey::kLevel.
inline constexpr std::array<std::string_view, 8> kLevelDigits = {"0", "1", "2", "3",
                                                                 "4", "5", "6", "7"};

[[nodiscard]] constexpr bool IsLevel(std::int32_t level) noexcept {
  return level >= 0 && level < static_cast<std::int32_t>(kLevelDigits.size());
}

// Puts one field into a record that does not have it yet. The record borrows what a borrowing value
// borrows and keeps what an owning one owns. Throws base::BadAllocation.
inline void PutField(lumo::Map& record, RecordKey key, lumo::Value value) {
  record.Insert(lumo::Value::Int(static_cast<std::int32_t>(key)), std::move(value));
}

// The same for a text that outlives the record.
inline void PutText(lumo::Map& record, RecordKey key, std::string_view text) {
  PutField(record, key, lumo::Value::BorrowString(text));
}

}  // namespace TAVU::delivery
