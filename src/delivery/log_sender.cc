#include "delivery/log_sender.h"

#include "delivery/record_fields.h"

namespace TAVU::delivery {

SendResult SendLog(const api::ApiLock::Guard& held, api::InstanceRecord& instance,
                   const LogLine& line, QTC::Protocol protocol) {
  lumo::Map record;
  if (line.extraData) {
    PutText(record, RecordKey::kRecordKind, record_kind::kLogWithExtraData);
    PutText(record, RecordKey::kExtraData, *line.extraData);
  } else {
    PutText(record, RecordKey::kRecordKind, record_kind::kLog);
  }
  return SendRecord(held, record, instance, {line.level, line.logType, line.message}, protocol);
}

}  // namespace TAVU::delivery
