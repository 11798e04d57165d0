#include "delivery/local_address.h"

namespace TAVU::delivery {

std::string LocalAddressOf(SOCKET socket) {
  sockaddr_in address = {};
  int length = sizeof address;
  // The result is not looked at: the address stays zero then, and a record without a useful address
  // is worth more than no record.
  static_cast<void>(::getsockname(socket, reinterpret_cast<sockaddr*>(&address), &length));
  const char* text = ::inet_ntoa(address.sin_addr);
  return text != nullptr ? text : "";
}

}  // namespace TAVU::delivery
