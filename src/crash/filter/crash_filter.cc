#include "crash/filter/crash_filter.h"

#include <atomic>
#include <string>

#include "api/frame/api_lock.h"
#include "api/frame/instance_registry.h"
#include "api/frame/text_conversion.h"
#include "crash/document/crash_document.h"
#include "crash/files/crash_files.h"
#include "crash/files/mini_dump.h"
#include "crash/filter/attempt.h"
#include "crash/filter/crash_handler.h"
#include "crash/launch/process_launch.h"
#include "crash/launch/reporter_command_line.h"

namespace TAVU::crash {

namespace {

// Tells a crash inside the sequence itself (of a callback of the host, say), which comes back to
// the filter on the same thread. Waiting for the lock would hang the process for good.
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

void LaunchReporter(const EXCEPTION_POINTERS* exceptionPointers, const CrashHandler& handler,
                    const api::InstanceRecord& instance, const CrashFiles& files) {
  std::wstring server_host;
  api::AnsiToWide(instance.serverHost, server_host);
  StartProcessAndWait(handler.reporterPath,
                      BuildReporterCommandLine({
                          .exceptionAddress = ExceptionAddressOf(exceptionPointers),
                          .dumpPath = files.dumpPath,
                          .infoPath = files.infoPath,
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

void LaunchRestart(const CrashHandler& handler, const api::InstanceRecord& instance) {
  StartProcess(handler.reporterPath,
               BuildRestartCommandLine(handler.reporterPath, instance.appExecuteCmd));
}

void RunCrashSequence(const api::ApiLock::Guard& held, EXCEPTION_POINTERS* exceptionPointers) {
  const CrashHandler& handler = CrashHandler::Get();
  SYSTEMTIME now = {};
  ::GetLocalTime(&now);
  const CrashFiles files = NameCrashFiles(handler.tempPath, handler.appExeFile, now);

  // Stays pinned: the process is about to end.
  const api::InstanceRecord* const instance =
      api::InstanceRegistry::Get().AcquireInstance(held, handler.ownerHandle);
  if (instance == nullptr) return;

  Attempt([&] { BuildCrashInfoDocument(exceptionPointers, files.infoPath); });
  Attempt([&] { WriteMiniDump(exceptionPointers, files.dumpPath); });
  Attempt([&] { LaunchReporter(exceptionPointers, handler, *instance, files); });
  if (instance->deleteLocalDumpFile) {
    ::DeleteFileW(files.infoPath.c_str());
    ::DeleteFileW(files.dumpPath.c_str());
  }
  if (instance->appRestart) Attempt([&] { LaunchRestart(handler, *instance); });
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
