// How the reporter ends. The library ignores it; scripts and tests read it. docs/crashes.md tables
// the numbers.
#pragma once

namespace crash_reporter {

enum class ExitCode : int {
  kDone = 0,           // the report was delivered, or the host started again
  kDeclined = 1,       // the user chose not to send
  kKept = 2,           // not delivered; copies of the files were kept for another attempt
  kLost = 3,           // not delivered, and the files could not be kept either
  kNothingToSend = 4,  // no report on the command line, or its files are both missing
  kRestartFailed = 5,  // the host's command could not be started
};

}  // namespace crash_reporter
