// The local end of a connection as text.
#pragma once

#include <winsock2.h>

#include <string>

namespace TAVU::delivery {

// The IPv4 address that `socket` is bound to, dotted; "0.0.0.0" when the system does not tell. May
// throw std::bad_alloc.
[[nodiscard]] std::string LocalAddressOf(SOCKET socket);

}  // namespace TAVU::delivery
