// tavu_host: an application that reports through TAVU. Copy from here.
//
// usage: tavu_host HOST PORT     (a running tavu_collector, for instance)
//
// It sends log records of all levels over TCP and UDP, a file, and a dump of a script's state, and
// says how each call went. Exit code: 0 when all went well, 1 when a call failed, 2 for a wrong
// command line.
#include <tavu/tavu.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

bool all_went_well = true;

// Says how a call went and passes its result on. The error code is the calling thread's own and
// means something after a failure only, so it has to be asked for at once.
bool Report(const char* what, bool success) {
  if (success) {
    std::printf("%-44s ok\n", what);
  } else {
    std::printf("%-44s FAILED, error %u\n", what, static_cast<unsigned>(TAVU_GetLastError()));
    all_went_well = false;
  }
  return success;
}

// Over TCP a call returns when the server has confirmed the record: for what must not get lost.
// Over UDP it returns at once, and nobody knows whether the record arrives: for what may.
void SendLogs(TAVU_HANDLE tavu) {
  const struct {
    std::int32_t level;
    const wchar_t* type;
    const wchar_t* extra_data;  // null for none
    const wchar_t* message;
  } logs[] = {
      {TAVU_LEVEL_EMERGENCY, L"save", nullptr, L"the saved game cannot be written"},
      {TAVU_LEVEL_ALERT, L"disk", L"{\"free\": 0}", L"no space left"},
      {TAVU_LEVEL_CRITICAL, L"render", nullptr, L"the device was removed"},
      {TAVU_LEVEL_ERROR, L"net", L"{\"attempt\": 3}", L"connection lost"},
      // Texts of all languages arrive as they are: "Jos\u00e9 entered the \u57ce (castle)".
      {TAVU_LEVEL_WARNING, L"chat/\u00e9t\u00e9", L"\u4e2d\u6587, \U0001F600",
       L"Jos\u00e9 entered the \u57ce (100% of them)"},
      {TAVU_LEVEL_NOTICE, L"session", L"", L"a player has signed in"},
      {TAVU_LEVEL_INFO, L"frame", L"{\"ms\": 41}", L"slow frame"},
      {TAVU_LEVEL_DEBUG, L"ai", nullptr, L"path found in 12 steps"},
  };
  for (const auto& log : logs) {
    char what[64];
    std::snprintf(what, sizeof what, "log of level %d over TCP", static_cast<int>(log.level));
    Report(what, TAVU_SendLog_TCPW(tavu, log.level, log.type, log.extra_data, log.message));
    std::snprintf(what, sizeof what, "log of level %d over UDP", static_cast<int>(log.level));
    Report(what, TAVU_SendLog_UDPW(tavu, log.level, log.type, log.extra_data, log.message));
  }
  // Each function has an 8-bit form, too, for texts in the system's ANSI code page.
  Report("8-bit log over TCP",
         TAVU_SendLog_TCPA(tavu, TAVU_LEVEL_INFO, "exit", nullptr, "goodbye"));
  Report("8-bit log over UDP", TAVU_SendLog_UDPA(tavu, TAVU_LEVEL_INFO, "exit", "0", "goodbye"));
}

// A file is a block of memory that is sent from where it lies.
void SendFile(TAVU_HANDLE tavu) {
  const char settings[] = "[video]\nwidth = 1920\nheight = 1080\n";
  Report("a file", TAVU_SendFileW(tavu, std::strlen(settings), settings, L"settings.ini",
                                  L"settings at the time of the failure"));
}

// Script dumps go through a sender of their own: a call only queues, and a thread of the sender
// delivers. These functions leave no error code.
bool SendLuaDump(const char* host, std::uint16_t port) {
  // The last argument: do not drop at TAVU_LUADUMP_Destroy what is still queued, but deliver it.
  const TAVU_LUADUMP_SENDER sender = TAVU_LUADUMP_Create(host, port, false);
  if (sender == nullptr) return false;
  const bool queued = TAVU_LUADUMP_SendLuaDumpW(
      sender, /*dumpNumber=*/1, /*softwareIdNumber=*/1001, /*softwareVerNumber=*/103,
      L"attempt to index a nil value",
      L"stack traceback:\n\tquest.lua:7: in function 'h\u00f6re'\n", L"kim lee", L"quest 12");
  return TAVU_LUADUMP_Destroy(sender) && queued;
}

// A port, 1 to 65535; 0 for anything else.
std::uint16_t ParsePort(const char* text) {
  char* end = nullptr;
  const unsigned long port = std::strtoul(text, &end, 10);
  return *text != '\0' && *end == '\0' && port <= 65535 ? static_cast<std::uint16_t>(port) : 0;
}

}  // namespace

int main(int argc, char** argv) {
  const std::uint16_t port = argc == 3 ? ParsePort(argv[2]) : std::uint16_t{0};
  if (port == 0) {
    std::fprintf(stderr, "usage: tavu_host HOST PORT\n");
    return 2;
  }
  const char* host = argv[1];

  // An identifier, a version (letters, digits and dots) and a name for people.
  const TAVU_HANDLE tavu = TAVU_CreateW(L"tavu-host", L"1.0.3", L"TAVU's example host");
  if (!Report("create an instance", tavu != nullptr)) return 1;
  Report("set the report server", TAVU_SetReportServerA(tavu, host, port));
  Report("set the user", TAVU_SetUserIDW(tavu, L"Kim L\u00e9 / \u674e"));
  Report("set the time-out", TAVU_SetTimeout(tavu, 5000));  // milliseconds

  SendLogs(tavu);
  SendFile(tavu);
  const bool dumped = SendLuaDump(host, port);
  std::printf("%-44s %s\n", "a script dump", dumped ? "queued, and its turn has come" : "FAILED");

  Report("destroy the instance", TAVU_Destroy(tavu));
  return all_went_well && dumped ? 0 : 1;
}
