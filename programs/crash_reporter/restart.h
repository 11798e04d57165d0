// The second kind of start: the crashed host is to be started again.
#pragma once

#include "report.h"

namespace crash_reporter {

// Waits until the crashed process has ended, for 30 seconds at the most (it may hang in its end),
// and starts the command. False when that fails. The new process has the reporter's own working
// folder, which is the one that the library starts the reporter in.
[[nodiscard]] bool RestartHost(const RestartRequest& request);

}  // namespace crash_reporter
