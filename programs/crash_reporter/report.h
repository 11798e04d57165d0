// What a start of the reporter is about: one crash to report, or a host to start again. Portable.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "pairs.h"

namespace crash_reporter {

struct Server {
  std::wstring host;
  std::uint16_t port = 0;
};

// "host:port". Nothing when either is missing, or when the library cut the text (at 63 characters)
// before the port. A port that was cut itself cannot be told from a whole one; no server will
// answer there, and the report is kept.
[[nodiscard]] std::optional<Server> ParseServer(std::wstring_view address);

// One crash, as the library describes it, and what its user said. The files may be missing: the
// library names them even when it could not write them.
struct CrashReport {
  std::wstring document_path;
  std::wstring dump_path;
  std::wstring exception_address;
  std::wstring user_id;  // empty: none was set
  std::wstring software_id;
  std::wstring software_version;
  std::wstring server_address;
  std::wstring app_show_name;
  std::wstring app_exe_file;
  bool auto_report = false;
  std::uint32_t language = 0;
  std::wstring comment;  // not on the command line: typed by the user
  bool agreed = false;   // nor is this: the user chose to send the report

  // Nothing when the pairs name no dump and no document.
  [[nodiscard]] static std::optional<CrashReport> From(const Pairs& pairs);
  [[nodiscard]] Pairs ToPairs() const;

  // Whether a later start may send the report without asking about it: the host asked for that, or
  // the user has agreed to this very report.
  [[nodiscard]] bool MaySendUnasked() const noexcept { return auto_report || agreed; }

  // What to call the application: never empty.
  [[nodiscard]] std::wstring DisplayName() const;
};

struct RestartRequest {
  std::wstring command_line;
  std::uint32_t process_id = 0;  // of the crashed host; 0: not known

  // Nothing when the pairs do not ask for a restart.
  [[nodiscard]] static std::optional<RestartRequest> From(const Pairs& pairs);
};

}  // namespace crash_reporter
