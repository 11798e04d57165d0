// What the library knows of one reporting instance.
#pragma once

#include <atomic>
#include <cstdint>
#include <string>

namespace TAVU::api {

// Made by TAVU_Create*, owned by the InstanceRegistry; its address is the host's handle. Fields are
// read and written under the ApiLock. Texts for records are UTF-8; wide ones are for the crash
// reporter's command line and the getters.
struct InstanceRecord {
  std::string softwareIdUtf8;
  std::wstring softwareId;
  std::string softwareVerUtf8;
  std::wstring softwareVer;
  std::wstring appShowName;
  std::string userIdEncoded;   // percent-encoded
  std::wstring userId;         // empty: never set
  std::wstring appExecuteCmd;  // command line of the restart after a crash
  std::string localAddress;    // dotted IPv4; that of the first connection, not changed later
  bool deleteLocalDumpFile = true;
  bool appRestart = false;
  bool autoReport = false;
  std::string serverHost;  // ANSI: a dotted address or a name
  std::uint16_t serverPort = 0;
  std::int32_t timeoutMs = 3000;
  std::uint32_t reportLang = 0;
  std::atomic<std::uint32_t> refCount = 1;  // the creation reference

  [[nodiscard]] bool HasServer() const noexcept { return !serverHost.empty() && serverPort != 0; }
};

}  // namespace TAVU::api
