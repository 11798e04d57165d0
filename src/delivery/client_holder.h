// The one client of the process, which all instances and all senders but the LuaDump ones share.
#pragma once

#include "api/frame/api_lock.h"
#include "base/singleton.h"
#include "net/client/qtc_client.h"

namespace TAVU::delivery {

// Made on first use, destroyed at process exit. The guard in the signature is the proof that no two
// calls use the client at once.
class ClientHolder {
 public:
  // Throws std::bad_alloc when there is no memory for the client (the next call tries again), and
  // std::logic_error after process exit has destroyed it.
  [[nodiscard]] static QTC::IQtcClient& Client(const api::ApiLock::Guard&) {
    return *base::Singleton<ClientHolder>::Get().client_;
  }

 private:
  friend class base::Singleton<ClientHolder>;
  ClientHolder();

  // Never released: the holder is destroyed while the library is being unloaded, and Windows
  // forbids the WinSock clean-up of a client there. What is left is one small object without a
  // socket.
  QTC::IQtcClient* client_;
};

}  // namespace TAVU::delivery
