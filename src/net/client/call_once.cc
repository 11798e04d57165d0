#include "net/client/call_once.h"

#include "net/client/qtc_client.h"

namespace TAVU::QTC {

namespace {

void SetText(lumo::BasicString<char>& error_text, ResultCode code) noexcept {
  const char* text = ResultText(code);
  if (text == nullptr) return;
  try {
    error_text.Assign(text);
  } catch (...) {
    // Memory is exhausted; the code tells as much as the text would.
  }
}

}  // namespace

bool CallOnce(const Endpoint& server, Protocol protocol, const char* method,
              const lumo::Value& argument, lumo::BasicString<char>& error_text,
              ResultCode& code) noexcept {
  const QtcClientPtr client = CreateQtcClient();
  code = ResultCode::kStreamFault;
  if (client) {
    // Called after a failed open too: the header says who sees the difference.
    static_cast<void>(Open(*client, server, protocol));
    code = client->Call(method, argument);
  }
  SetText(error_text, code);
  return true;
}

}  // namespace TAVU::QTC
