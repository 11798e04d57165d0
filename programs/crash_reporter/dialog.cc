#include "dialog.h"

#include <array>

#include "files.h"
#include "form.h"

namespace crash_reporter {

namespace {

// Longer names would push the question off a small screen.
constexpr std::size_t kLongestName = 80;

std::wstring ShownName(const CrashReport& report) {
  std::wstring name = report.DisplayName();
  if (name.size() > kLongestName) name.replace(kLongestName - 1, std::wstring::npos, L"…");
  for (wchar_t& character : name) {
    if (character < L' ') character = L' ';
  }
  return name;
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

Answer AskToSend(const Texts& texts, const CrashReport& report, std::size_t earlier) {
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
               {RowKind::kLabel, texts.files},
               {RowKind::kPaths, files},
               {RowKind::kLabel, texts.comment},
               {RowKind::kEntry, L""}};
  if (earlier > 0) {
    form.rows.push_back(
        {RowKind::kCheckBox, Filled(texts.send_earlier_too, std::to_wstring(earlier))});
  }
  form.folder_button = texts.open_folder;
  form.folder_item = IsFile(dump) ? dump : document;
  form.buttons = {texts.send, texts.do_not_send};
  FormResult result = ShowForm(form);
  return {DecisionOf(result.end), result.checked, std::move(result.entry)};
}

Decision AskToSendEarlier(const Texts& texts, std::size_t count, const std::wstring& folder) {
  FormContent form;
  form.title = texts.earlier_title;
  form.rows = {{RowKind::kHeading, texts.earlier_title},
               {RowKind::kText, Filled(texts.earlier_request, std::to_wstring(count))},
               {RowKind::kText, texts.contents}};
  form.folder_button = texts.open_folder;
  form.folder_item = folder;
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

void TellNotSent(const Texts& texts, const CrashReport& report, const std::wstring& folder,
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
    form.rows.push_back({RowKind::kPaths, folder});
    form.folder_button = texts.open_folder;
    form.folder_item = folder;
  }
  form.buttons = {texts.close};
  FormLife life;
  life.timeout = time;
  static_cast<void>(ShowForm(form, life));
}

}  // namespace crash_reporter
