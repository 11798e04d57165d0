#include "delivery/file_sender.h"

#include "delivery/record_fields.h"

namespace TAVU::delivery {

namespace {

constexpr std::int32_t kFileLevel = 5;
// Stands where a crash has its document.
constexpr std::string_view kEmptyDocument = "<root></root>";

// A binary over no bytes is a binary even when the host has no block to point at; a value made from
// a null pointer would be null.
lumo::Value ContentValue(std::span<const std::byte> content) noexcept {
  static constexpr std::byte kNothing[1] = {};
  return lumo::Value::BorrowBinary(content.empty() ? std::span(kNothing, 0) : content);
}

}  // namespace

SendResult SendFile(const api::ApiLock::Guard& held, api::InstanceRecord& instance,
                    const FileUpload& upload) {
  lumo::Map record;
  PutText(record, RecordKey::kRecordKind, record_kind::kUpload);
  PutText(record, RecordKey::kDescription, upload.description);
  PutText(record, RecordKey::kDocument, kEmptyDocument);
  PutField(record, RecordKey::kContent, ContentValue(upload.content));
  const std::string_view message =
      upload.message.empty() ? kStandIn : std::string_view(upload.message);
  return SendRecord(held, record, instance, {kFileLevel, log_type::kFile, message},
                    QTC::Protocol::kTcp);
}

}  // namespace TAVU::delivery
