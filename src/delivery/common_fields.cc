#include "delivery/common_fields.h"

#include <cstddef>

#include "delivery/record_fields.h"

namespace TAVU::delivery {

void AddCommonFields(lumo::Map& record, const api::InstanceRecord& instance, std::int32_t level,
                     std::string_view logType, std::string_view message) {
  PutText(record, RecordKey::kConstantZero, "0");
  PutText(record, RecordKey::kSoftwareId, instance.softwareIdUtf8);
  PutText(record, RecordKey::kSoftwareVer, instance.softwareVerUtf8);
  PutText(record, RecordKey::kLevel, kLevelDigits[static_cast<std::size_t>(level)]);
  PutText(record, RecordKey::kLogType, logType);
  PutText(record, RecordKey::kUserId, instance.userIdEncoded);
  PutText(record, RecordKey::kLocalAddress, instance.localAddress);
  PutText(record, RecordKey::kMessage, message);
}

}  // namespace TAVU::delivery
