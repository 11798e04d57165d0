#include "dialog.h"

#include <set>

#include "files.h"
#include "form.h"

namespace crash_reporter {

namespace {

// Longer names would push the question off a small screen.
constexpr std::size_t kLongestName = 80;

std::wstring Shown(std::wstring name) {
  if (name.size() > kLongestName) name.replace(kLongestName - 1, std::wstring::npos, L"…");
  for (wchar_t& character : name) {
    if (character < L' ') character = L' ';
  }
  return name;
}

std::wstring ShownName(const CrashReport& report) {
  return Shown(report.DisplayName());
}

// Each server once, in the order of the reports.
std::wstring ServersOf(std::span<const KeptReport> reports) {
  std::set<std::wstring> seen;
  std::wstring servers;
  for (const KeptReport& kept : reports) {
    const std::wstring& server = kept.report.server_address;
    if (!seen.insert(server).second) continue;
    servers += (servers.empty() ? L"" : L", ") + Shown(server);
  }
  return servers;
}

// How many earlier reports the user is asked about, and to whom they go if not to `server` alone.
std::wstring CountAndServers(std::span<const KeptReport> earlier, const std::wstring& server) {
  const std::wstring count = std::to_wstring(earlier.size());
  const std::wstring servers = ServersOf(earlier);
  return servers == Shown(server) ? count : count + L" → " + servers;
}

// The library's paths hold a doubled backslash; nobody needs to see it.
std::wstring CleanPath(const std::wstring& path) {
  std::wstring clean(32768, L'\0');
  const DWORD length =
      ::GetFullPathNameW(path.c_str(), static_cast<DWORD>(clean.size()), clean.data(), nullptr);
  if (length == 0 || length >= clean.size()) return path;
  clean.resize(length);
  return clean;
}

Decision DecisionOf(FormEnd end) noexcept {
  if (end == FormEnd::kNoWindow) return Decision::kCouldNotAsk;
  return end == FormEnd::kAgreed ? Decision::kSend : Decision::kDoNotSend;
}

}  // namespace

Answer AskToSend(const Texts& texts, const CrashReport& report,
                 std::span<const KeptReport> earlier) {
  const std::wstring name = ShownName(report);
  const std::wstring document = CleanPath(report.document_path);
  const std::wstring dump = CleanPath(report.dump_path);
  std::wstring files = IsFile(document) ? document : L"";
  if (IsFile(dump)) files += (files.empty() ? L"" : L"\r\n") + dump;

  FormContent form;
  form.title = Filled(texts.title, name);
  form.rows = {{RowKind::kHeading, Filled(texts.crashed, name)},
               {RowKind::kText, texts.request},
               {RowKind::kText, texts.contents},
               {RowKind::kText, Filled(texts.recipient, Shown(report.server_address))},
               {RowKind::kLabel, texts.files},
               {RowKind::kPaths, files},
               {RowKind::kLabel, texts.comment},
               {RowKind::kEntry, L""}};
  if (!earlier.empty()) {
    form.rows.push_back(
        {RowKind::kCheckBox,
         Filled(texts.send_earlier_too, CountAndServers(earlier, report.server_address))});
  }
  form.folder_button = texts.open_folder;
  form.folder_item = IsFile(dump) ? dump : document;
  form.buttons = {texts.send, texts.do_not_send};
  FormResult result = ShowForm(form);
  return {DecisionOf(result.end), result.checked, std::move(result.entry)};
}

Decision AskToSendEarlier(const Texts& texts, std::span<const KeptReport> earlier) {
  FormContent form;
  form.title = texts.earlier_title;
  form.rows = {{RowKind::kHeading, texts.earlier_title},
               {RowKind::kText, Filled(texts.earlier_request, std::to_wstring(earlier.size()))},
               {RowKind::kText, texts.contents},
               {RowKind::kText, Filled(texts.recipient, ServersOf(earlier))}};
  form.folder_button = texts.open_folder;
  form.folder_item = earlier.back().folder.native();
  form.buttons = {texts.send, texts.do_not_send};
  return DecisionOf(ShowForm(form).end);
}

void ShowSending(const Texts& texts, HANDLE work) {
  FormContent form;
  form.title = texts.sending;
  form.rows = {{RowKind::kText, texts.sending}, {RowKind::kProgress, L""}};
  FormLife life;
  life.work = work;
  static_cast<void>(ShowForm(form, life));
}

void TellNotSent(const Texts& texts, const CrashReport& report, const std::filesystem::path& folder,
                 NoticeTime time) {
  const std::wstring name = ShownName(report);
  const bool has_server = ParseServer(report.server_address).has_value();
  FormContent form;
  form.title = Filled(texts.title, name);
  form.rows = {{RowKind::kHeading, Filled(has_server ? texts.not_sent : texts.crashed, name)}};
  if (folder.empty()) {
    form.rows.push_back({RowKind::kText, texts.not_kept});
  } else {
    form.rows.push_back({RowKind::kLabel, has_server ? texts.kept : texts.kept_without_server});
    form.rows.push_back({RowKind::kPaths, folder.native()});
    form.folder_button = texts.open_folder;
    form.folder_item = folder.native();
  }
  form.buttons = {texts.close};
  FormLife life;
  life.timeout = time;
  static_cast<void>(ShowForm(form, life));
}

}  // namespace crash_reporter
