// What all connections to a stream's servers have in common.
#pragma once

#include <string>

#include "nats_handles.h"

namespace TAVU::collector {

// `servers`: URLs, with commas between them. A connection that is lost is looked for without end,
// at another server if there is one. `name`: for those who watch the servers.
[[nodiscard]] natsStatus SetServers(natsOptions* options, const std::string& servers,
                                    const char* name);

}  // namespace TAVU::collector
