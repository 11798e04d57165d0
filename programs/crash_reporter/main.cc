// TAVU_CrashReporter.exe: started by the library in a host that has crashed, once with the report
// and, when the host is to be started again, a second time for that. Started by hand, it offers the
// reports that could not be sent earlier.
#include <exception>
#include <functional>
#include <set>

#include <windows.h>

#include "dialog.h"
#include "exit_code.h"
#include "kept_reports.h"
#include "pairs.h"
#include "report.h"
#include "restart.h"
#include "scoped.h"
#include "texts.h"
#include "upload.h"

namespace crash_reporter {

namespace {

// The host waits for the reporter, perhaps on a machine that nobody looks at: where nobody was
// asked, the notice goes by itself.
constexpr std::chrono::seconds kUnattendedNotice(10);

// For all that was kept earlier: a server that takes reports and never answers costs its time-out
// for each, and the host may be waiting.
constexpr ULONGLONG kLongestForEarlierMs = 60'000;

using Earlier = std::vector<KeptReport>;

// Sends these reports and deletes what arrived. A server that is away is tried once.
void SendEarlier(const KeptReports& kept_reports, const Earlier& earlier) {
  if (earlier.empty()) return;
  const KeptReports::Lock lock = kept_reports.TryLock();
  if (!lock) return;  // another reporter is at it
  std::set<std::wstring> away;
  const ULONGLONG start = ::GetTickCount64();
  for (const KeptReport& kept : earlier) {
    if (::GetTickCount64() - start > kLongestForEarlierMs) break;
    // Another reporter may have sent it while the user was asked.
    if (!HasEvidence(kept.report) || away.count(kept.report.server_address)) continue;
    const UploadResult result = Upload(kept.report);
    if (result == UploadResult::kDelivered) kept_reports.Remove(lock, kept);
    if (result == UploadResult::kUnreachable) away.insert(kept.report.server_address);
  }
}

// Runs `work` on a thread of its own while a window tells about it.
void RunBehindWindow(const Texts& texts, const std::function<void()>& work) {
  const auto run = [](void* argument) -> DWORD {
    (*static_cast<const std::function<void()>*>(argument))();
    return 0;
  };
  auto* argument = const_cast<std::function<void()>*>(&work);  // called only
  const ScopedHandle thread(::CreateThread(nullptr, 0, run, argument, 0, nullptr));
  if (!thread) return work();
  ShowSending(texts, thread.get());
  ::WaitForSingleObject(thread.get(), INFINITE);
}

void RemoveSurplus(const KeptReports& kept_reports) {
  if (const KeptReports::Lock lock = kept_reports.TryLock()) kept_reports.RemoveSurplus(lock);
}

ExitCode KeepReport(const KeptReports& kept_reports, const CrashReport& report) {
  const std::optional<std::filesystem::path> folder = kept_reports.Keep(report);
  RemoveSurplus(kept_reports);
  TellNotSent(TextsFor(report.language), report, folder.value_or(std::filesystem::path()),
              report.auto_report ? NoticeTime(kUnattendedNotice) : std::nullopt);
  return folder ? ExitCode::kKept : ExitCode::kLost;
}

ExitCode SendReport(const KeptReports& kept_reports, const CrashReport& report,
                    const Earlier& earlier) {
  UploadResult result = UploadResult::kFailed;
  const auto send = [&] {
    result = Upload(report);
    if (result == UploadResult::kDelivered) SendEarlier(kept_reports, earlier);
  };
  if (report.auto_report) {
    send();
  } else {
    RunBehindWindow(TextsFor(report.language), send);
  }
  return result == UploadResult::kDelivered ? ExitCode::kDone : KeepReport(kept_reports, report);
}

ExitCode AskAndSend(const KeptReports& kept_reports, CrashReport report) {
  const Earlier earlier = kept_reports.List(report.software_id);
  Answer answer = AskToSend(TextsFor(report.language), report, earlier);
  if (answer.decision == Decision::kDoNotSend) return ExitCode::kDeclined;
  report.agreed = answer.decision == Decision::kSend;
  // Without an answer nothing is sent; a later start asks.
  if (answer.decision == Decision::kCouldNotAsk) return KeepReport(kept_reports, report);
  report.comment = std::move(answer.comment);
  return SendReport(kept_reports, report, answer.earlier_too ? earlier : Earlier());
}

// What nobody has agreed to waits for a start that asks.
ExitCode SendUnasked(const KeptReports& kept_reports, const CrashReport& report) {
  Earlier earlier = kept_reports.List(report.software_id);
  std::erase_if(earlier, [](const KeptReport& kept) { return !kept.report.MaySendUnasked(); });
  return SendReport(kept_reports, report, earlier);
}

ExitCode HandleReport(const CrashReport& report) {
  const KeptReports kept_reports;
  RemoveSurplus(kept_reports);
  if (!ParseServer(report.server_address)) return KeepReport(kept_reports, report);
  return report.auto_report ? SendUnasked(kept_reports, report) : AskAndSend(kept_reports, report);
}

ExitCode OfferEarlier() {
  const KeptReports kept_reports;
  RemoveSurplus(kept_reports);
  const Earlier earlier = kept_reports.List(L"");
  if (earlier.empty()) return ExitCode::kNothingToSend;
  const Texts& texts = TextsFor(earlier.back().report.language);
  switch (AskToSendEarlier(texts, earlier)) {
    case Decision::kSend:
      break;
    case Decision::kDoNotSend:
      return ExitCode::kDeclined;
    case Decision::kCouldNotAsk:
      return ExitCode::kKept;
  }
  RunBehindWindow(texts, [&] { SendEarlier(kept_reports, earlier); });
  const Earlier left = kept_reports.List(L"");
  if (left.empty()) return ExitCode::kDone;
  TellNotSent(texts, left.back().report, left.back().folder, std::nullopt);
  return ExitCode::kKept;
}

ExitCode Run(const Pairs& pairs) {
  if (const std::optional<RestartRequest> restart = RestartRequest::From(pairs)) {
    return RestartHost(*restart) ? ExitCode::kDone : ExitCode::kRestartFailed;
  }
  const std::optional<CrashReport> report = CrashReport::From(pairs);
  if (!report) return OfferEarlier();
  return HasEvidence(*report) ? HandleReport(*report) : ExitCode::kNothingToSend;
}

}  // namespace

}  // namespace crash_reporter

int WINAPI WinMain(HINSTANCE, HINSTANCE, LPSTR, int) {
  // When memory runs out. The runtime's own end of a windowed program is a box that the crashed
  // host would wait for.
  std::set_terminate([] { ::ExitProcess(static_cast<UINT>(crash_reporter::ExitCode::kLost)); });
  // The line as it is: whatever splits it into arguments gives quotes a meaning that they do not
  // have here.
  const auto pairs = crash_reporter::Pairs::ParseCommandLine(::GetCommandLineW());
  return static_cast<int>(crash_reporter::Run(pairs));
}
