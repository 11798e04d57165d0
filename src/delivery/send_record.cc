#include "delivery/send_record.h"

#include "delivery/client_holder.h"
#include "delivery/common_fields.h"
#include "delivery/local_address.h"
#include "delivery/record_fields.h"
#include "lumo/value/value.h"
#include "net/client/qtc_client.h"

namespace TAVU::delivery {

namespace {

using QTC::ResultCode;

QTC::Endpoint ServerOf(const api::InstanceRecord& instance) noexcept {
  return {instance.serverHost.c_str(), instance.serverPort,
          static_cast<std::uint32_t>(instance.timeoutMs)};
}

// The shared client while it is connected to a server.
class Connection {
 public:
  Connection(QTC::IQtcClient& client, const QTC::Endpoint& server, QTC::Protocol protocol) noexcept
      : client_(client), open_(QTC::Open(client, server, protocol) == ResultCode::kSuccess) {}
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;
  ~Connection() {
    if (open_) client_.Close();
  }

  explicit operator bool() const noexcept { return open_; }

 private:
  QTC::IQtcClient& client_;
  bool open_;
};

}  // namespace

SendResult SendRecord(const api::ApiLock::Guard& held, lumo::Map& record,
                      api::InstanceRecord& instance, const CommonTexts& common,
                      QTC::Protocol protocol) {
  QTC::IQtcClient& client = ClientHolder::Client(held);
  const Connection connection(client, ServerOf(instance), protocol);
  if (!connection) return SendResult::kConnectFailed;

  // That of the first connection, even when later ones leave through another interface: a server
  // groups one host's records by it.
  if (instance.localAddress.empty()) instance.localAddress = LocalAddressOf(client.GetSocket());
  AddCommonFields(record, instance, common.level, common.logType, common.message);

  const ResultCode code = client.Call(kServerService, lumo::Value::BorrowMap(record));
  return code == ResultCode::kSuccess ? SendResult::kSent : SendResult::kCallFailed;
}

}  // namespace TAVU::delivery
