// What the reporter asks and tells the user, in the language of a Texts.
//
// All of it runs on the calling thread until the user, the work or the time-out ends it.
#pragma once

#include <chrono>
#include <optional>
#include <span>
#include <string>

#include <windows.h>

#include "kept_reports.h"
#include "report.h"
#include "texts.h"

namespace crash_reporter {

enum class Decision {
  kSend,
  kDoNotSend,
  kCouldNotAsk,  // no window could be made, or nobody could see it
};

struct Answer {
  Decision decision = Decision::kCouldNotAsk;
  bool earlier_too = false;
  std::wstring comment;
};

// Names the application, says what would be sent, to whom, and that others may read it; shows the
// files, asks for a comment and offers to send the `earlier` reports along. Nothing may leave the
// machine unless the answer says kSend.
[[nodiscard]] Answer AskToSend(const Texts& texts, const CrashReport& report,
                               std::span<const KeptReport> earlier);

// The same for reports that were kept earlier, one at least, without a new one.
[[nodiscard]] Decision AskToSendEarlier(const Texts& texts, std::span<const KeptReport> earlier);

// Shows that something is being sent, until `work` is signalled.
void ShowSending(const Texts& texts, HANDLE work);

using NoticeTime = std::optional<std::chrono::milliseconds>;  // nothing: until the user closes it

// The report could not be sent, or names no server; its files are in `folder`, or lost when that is
// empty.
void TellNotSent(const Texts& texts, const CrashReport& report, const std::filesystem::path& folder,
                 NoticeTime time);

}  // namespace crash_reporter
