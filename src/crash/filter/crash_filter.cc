#include "crash/filter/crash_filter.h"

#include <atomic>
#include <string>

#include "api/frame/api_lock.h"
#include "api/frame/instance_registry.h"
#include "api/frame/text_conversion.h"
#include "crash/attempt.h"
#include "crash/crash_handler.h"
#include "crash/document/crash_document.h"
#include "crash/files/mini_dump.h"
#include "crash/launch/process_launch.h"
#include "crash/launch/reporter_command_line.h"

namespace TAVU::crash {

namespace {

// Tells when the filter is called inside its own sequence: by a callback of the host that has a
// boundary of its own and asks UnhandledExceptionFilter, as C runtimes do. Waiting for the lock
// would hang the process for good.
class SequenceUnderWay {
 public:
  SequenceUnderWay() noexcept { thread_ = ::GetCurrentThreadId(); }
  SequenceUnderWay(const SequenceUnderWay&) = delete;
  SequenceUnderWay& operator=(const SequenceUnderWay&) = delete;
  ~SequenceUnderWay() { thread_ = 0; }

  [[nodiscard]] static bool OnThisThread() noexcept { return thread_ == ::GetCurrentThreadId(); }

 private:
  static constinit inline std::atomic<DWORD> thread_ = 0;  // 0 is no thread's
};

// What the steps work on.
struct Crash {
  const api::ApiLock::Guard& held;
  EXCEPTION_POINTERS* exceptionPointers;
  CrashHandler& handler;
  const api::InstanceRecord* instance;  // the owner of the crash handler
};

void NameFiles(Crash& crash) {
  SYSTEMTIME now = {};
  ::GetLocalTime(&now);
  crash.handler.files.SetTime(now);
}

void WriteDocument(Crash& crash) {
  BuildCrashInfoDocument(crash.held, crash.exceptionPointers, crash.handler.customInfo,
                         crash.handler.files.infoPath());
}

void WriteDump(Crash& crash) {
  WriteMiniDump(crash.exceptionPointers, crash.handler.files.dumpPath());
}

void LaunchReporter(Crash& crash) {
  const CrashHandler& handler = crash.handler;
  const api::InstanceRecord& instance = *crash.instance;
  std::wstring server_host;
  api::AnsiToWide(instance.serverHost, server_host);
  StartProcessAndWait(handler.reporterPath,
                      BuildReporterCommandLine({
                          .exceptionAddress = ExceptionAddressOf(crash.exceptionPointers),
                          .dumpPath = handler.files.dumpPath(),
                          .infoPath = handler.files.infoPath(),
                          .reporterPath = handler.reporterPath,
                          .appExeFile = handler.appExeFile,
                          .softwareId = instance.softwareId,
                          .softwareVer = instance.softwareVer,
                          .userId = instance.userId,
                          .serverHost = server_host,
                          .serverPort = instance.serverPort,
                          .autoReport = instance.autoReport,
                          .appShowName = instance.appShowName,
                          .reportLang = instance.reportLang,
                      }));
}

void DeleteFiles(Crash& crash) {
  if (!crash.instance->deleteLocalDumpFile) return;
  ::DeleteFileW(crash.handler.files.infoPath().c_str());
  ::DeleteFileW(crash.handler.files.dumpPath().c_str());
}

void LaunchRestart(Crash& crash) {
  if (!crash.instance->appRestart) return;
  const std::wstring& folder = crash.handler.reporterPath;
  StartProcess(folder, BuildRestartCommandLine(folder, crash.instance->appExecuteCmd));
}

// The document before the dump: it is small, and what people and servers read first. The dump needs
// the most of the stack and of the system, and takes the longest.
constexpr void (*kSteps[])(Crash& crash) = {
    &NameFiles, &WriteDocument, &WriteDump, &LaunchReporter, &DeleteFiles, &LaunchRestart,
};

void RunCrashSequence(const api::ApiLock::Guard& held, EXCEPTION_POINTERS* exceptionPointers) {
  CrashHandler& handler = CrashHandler::Get(held);
  // Stays pinned: the process is about to end.
  const api::InstanceRecord* const owner =
      api::InstanceRegistry::Get().AcquireInstance(held, handler.installation.owner());
  if (owner == nullptr) return;
  Crash crash = {held, exceptionPointers, handler, owner};
  for (const auto step : kSteps) {
    Attempt([&] { step(crash); });
  }
}

}  // namespace

LONG WINAPI CrashFilter(EXCEPTION_POINTERS* exceptionPointers) noexcept {
  if (SequenceUnderWay::OnThisThread()) return EXCEPTION_EXECUTE_HANDLER;
  const api::ApiLock::Guard held;
  const SequenceUnderWay under_way;
  Attempt([&] { RunCrashSequence(held, exceptionPointers); });
  return EXCEPTION_EXECUTE_HANDLER;
}

}  // namespace TAVU::crash
