#include "delivery/crash_info_sender.h"

#include "base/release_pool.h"
#include "delivery/file_reading.h"
#include "delivery/record_fields.h"

namespace TAVU::delivery {

namespace {

constexpr std::int32_t kCrashLevel = 0;

std::string_view AsText(std::span<const std::byte> bytes) noexcept {
  return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

}  // namespace

SendResult SendCrashInfo(const api::ApiLock::Guard& held, api::InstanceRecord& instance,
                         const CrashUpload& upload) {
  base::ReleasePool files;  // declared first: the record borrows from it
  lumo::Map record;
  PutText(record, RecordKey::kRecordKind, record_kind::kUpload);
  PutText(record, RecordKey::kDescription, upload.description);

  const auto document = ReadWholeFile(upload.documentPath.c_str(), files);
  if (!document) return SendResult::kFileUnreadable;
  PutText(record, RecordKey::kDocument, AsText(*document));

  const auto dump = ReadWholeFile(upload.dumpPath.c_str(), files);
  if (!dump) return SendResult::kFileUnreadable;
  PutField(record, RecordKey::kContent, lumo::Value::BorrowBinary(*dump));

  return SendRecord(held, record, instance, {kCrashLevel, log_type::kCrash, upload.message},
                    QTC::Protocol::kTcp);
}

}  // namespace TAVU::delivery
