// What the records that travel to the server are made of: their keys, and the texts in them that
// never change. The library writes by it and collectors read by it; docs/wire.md tables it for
// those who write a collector of their own. Portable.
#pragma once

#include <array>
#include <cstdint>
#include <string_view>

namespace TAVU::delivery {

// The service that takes every record of a reporting instance.
inline constexpr char kServerService[] = "tavu_server";
// The service that takes the records of the LuaDump senders.
inline constexpr char kLuaDumpService[] = "LuaDump";

// Collectors in the field find a record's fields by these numbers: one that changed would be a
// field that none of them reads.
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

// The key as the number that travels.
[[nodiscard]] constexpr std::int32_t NumberOf(RecordKey key) noexcept {
  return static_cast<std::int32_t>(key);
}

// The texts under RecordKey::kRecordKind. An uploaded file and a crash are of one kind: the log
// type tells them apart.
namespace record_kind {
inline constexpr std::string_view kLog = "0";
inline constexpr std::string_view kUpload = "1";
inline constexpr std::string_view kLogWithExtraData = "3";
inline constexpr std::string_view kLuaDump = "4";
}  // namespace record_kind

// The log types that the library itself gives to what it sends. None has a character that
// percent-encoding would change.
namespace log_type {
inline constexpr std::string_view kCrash = "crash";
inline constexpr std::string_view kFile = "customfile";
inline constexpr std::string_view kLuaDump = "LuaDump";
}  // namespace log_type

// Travels in the place of a text that must not be empty.
inline constexpr std::string_view kStandIn = "-";

// The levels of a log record as the texts under RecordKey::kLevel.
inline constexpr std::array<std::string_view, 8> kLevelDigits = {"0", "1", "2", "3",
                                                                 "4", "5", "6", "7"};

[[nodiscard]] constexpr bool IsLevel(std::int32_t level) noexcept {
  return level >= 0 && level < static_cast<std::int32_t>(kLevelDigits.size());
}

}  // namespace TAVU::delivery
