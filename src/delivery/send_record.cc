#include "delivery/send_record.h"

#include "delivery/client_holder.h"
#include "delivery/common_fields.h"
#include "delivery/local_address.h"
#include "delivery/record_fields.h"
#include "lumo/value.h"

namespace TAVU::delivery {

namespace {

using QTC::ResultCode;

// The shared client while it is connected to an instance's server.
class Connection {
 public:
  Connection(QTC::IQtcClient& client, const api::InstanceRecord& instance, QTC::Protocol protocol)
      : client_(client), open_(Open(instance, protocol) == ResultCode::kSuccess) {}
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;
  ~Connection() {
    if (open_) client_.Close();
  }

  explicit operator bool() const noexcept { return open_; }

 private:
  ResultCode Open(const api::InstanceRecord& instance, QTC::Protocol protocol) noexcept {
    const auto timeout = static_cast<std::uint32_t>(instance.timeoutMs);
    return protocol == QTC::Protocol::kTcp
               ? client_.OpenTcp(instance.serverHost.c_str(), instance.serverPort, timeout)
               : client_.OpenUdp(instance.serverHost.c_str(), instance.serverPort, timeout);
  }

  QTC::IQtcClient& client_;
  bool open_;
};

}  // namespace

SendResult SendRecord(const api::ApiLock::Guard& held, lumo::Map& record,
                      api::InstanceRecord& instance, const CommonTexts& common,
                      QTC::Protocol protocol) {
  QTC::IQtcClient& client = ClientHolder::Client(held);
  const Connection connection(client, instance, protocol);
  if (!connection) return SendResult::kConnectFailed;

  // Kept from the first connection on, even when later ones leave through another interface: a
  // server tells one host's records by it.
  if (instance.localAddress.empty()) instance.localAddress = LocalAddressOf(client.GetSocket());
  AddCommonFields(record, instance, common.level, common.logType, common.message);

  const ResultCode code = client.Call(kServerService, lumo::Value::BorrowMap(record));
  return code == ResultCode::kSuccess ? SendResult::kSent : SendResult::kCallFailed;
}

}  // namespace TAVU::delivery
