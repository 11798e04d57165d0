// A small window of rows over a band of buttons, laid out from the measured size of its texts in
// the system's message font, so that every language fits at every resolution.
//
// It runs on the calling thread, which needs no window of its own, and is gone when ShowForm()
// returns. Where no window can be made or seen (a service, no desktop) ShowForm() says so at once.
#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include <windows.h>

namespace crash_reporter {

enum class RowKind {
  kHeading,   // large, beside a warning sign
  kText,      // wrapped text
  kLabel,     // wrapped text that belongs to the row below it
  kPaths,     // lines to be read and copied, not changed
  kEntry,     // one line that the user may type
  kCheckBox,  // not ticked at first: a tick is the user's consent
  kProgress,  // something goes on, nobody knows how long
};

struct Row {
  RowKind kind;
  std::wstring text;
};

struct FormContent {
  std::wstring title;
  std::vector<Row> rows;              // from top to bottom
  std::wstring folder_button;         // empty: none
  std::wstring folder_item;           // the file or folder that the button shows to the user
  std::vector<std::wstring> buttons;  // two at most, from left to right
};

enum class FormEnd {
  kAgreed,  // the first of two buttons
  kClosed,  // the other one, the only one, or the window's own closing
  kTimeout,
  kWorkDone,
  kNoWindow,  // none could be made, or nobody could see it
};

struct FormResult {
  FormEnd end = FormEnd::kNoWindow;
  std::wstring entry;    // as typed
  bool checked = false;  // false as well when there is no check box
};

struct FormLife {
  std::optional<std::chrono::milliseconds> timeout;  // nothing: until a button is chosen
  HANDLE work = nullptr;  // not owned; the form ends when it is signalled
};

[[nodiscard]] FormResult ShowForm(const FormContent& content, const FormLife& life = {});

}  // namespace crash_reporter
