#include "form.h"

#include <algorithm>
#include <array>

#include <commctrl.h>
#include <objbase.h>
#include <shellapi.h>
#include <shlobj.h>

#include "scoped.h"

namespace crash_reporter {

namespace {

// Sizes at 96 dots per inch.
constexpr int kContentWidth = 460;
constexpr int kMargin = 16;
constexpr int kRowGap = 12;
constexpr int kLabelGap = 4;
constexpr int kBandPadding = 12;
constexpr int kIconSize = 32;
constexpr int kIconGap = 12;
constexpr int kBoxPadding = 5;
constexpr int kCheckMarkWidth = 20;
constexpr int kProgressHeight = 14;
constexpr int kButtonPadding = 14;
constexpr int kLeastButtonWidth = 88;
constexpr int kButtonGap = 8;

constexpr int kMostPathLines = 6;
constexpr std::size_t kLongestEntry = 500;

constexpr WORD kFirstButtonId = 100;
constexpr WORD kFolderButtonId = 200;
constexpr WORD kEntryId = 300;
constexpr WORD kCheckBoxId = 301;
constexpr WORD kPathsId = 302;

// How each kind of row is made; its height is Form::HeightOf's.
struct RowStyle {
  RowKind kind;
  const wchar_t* window_class;
  DWORD style;
  DWORD extended_style;
  WORD id;
  int gap_below;
};

constexpr DWORD kStaticStyle = SS_LEFT | SS_NOPREFIX;
constexpr RowStyle kRowStyles[] = {
    {RowKind::kHeading, L"STATIC", kStaticStyle, 0, 0, kRowGap},
    {RowKind::kText, L"STATIC", kStaticStyle, 0, 0, kRowGap},
    {RowKind::kLabel, L"STATIC", kStaticStyle, 0, 0, kLabelGap},
    {RowKind::kPaths, L"EDIT", ES_MULTILINE | ES_READONLY | WS_TABSTOP, WS_EX_CLIENTEDGE, kPathsId,
     kRowGap},
    {RowKind::kEntry, L"EDIT", ES_AUTOHSCROLL | WS_TABSTOP, WS_EX_CLIENTEDGE, kEntryId, kRowGap},
    {RowKind::kCheckBox, L"BUTTON", BS_AUTOCHECKBOX | BS_MULTILINE | BS_TOP | WS_TABSTOP, 0,
     kCheckBoxId, kRowGap},
    {RowKind::kProgress, PROGRESS_CLASSW, PBS_MARQUEE, 0, 0, kRowGap},
};

const RowStyle& StyleOf(RowKind kind) noexcept {
  return *std::find_if(std::begin(kRowStyles), std::end(kRowStyles),
                       [kind](const RowStyle& style) { return style.kind == kind; });
}

// Opens the item's folder with the item chosen. Through the shell's own names for files, because
// a command line for Explorer would trip over quotes and commas in a path.
void ShowInFolder(const std::wstring& item) noexcept {
  // The shell wants COM. It stays for the thread's life: the folder's window may rest on it.
  static_cast<void>(::CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED));
  PIDLIST_ABSOLUTE name = nullptr;
  if (FAILED(::SHParseDisplayName(item.c_str(), nullptr, &name, 0, nullptr))) return;
  static_cast<void>(::SHOpenFolderAndSelectItems(name, 0, nullptr, 0));
  ::CoTaskMemFree(name);
}

// A window on a station that nobody sees, such as a service's, would wait for its answer for ever,
// and the crashed host with it.
bool CanBeSeen() noexcept {
  USEROBJECTFLAGS station = {};
  return !::GetUserObjectInformationW(::GetProcessWindowStation(), UOI_FLAGS, &station,
                                      sizeof station, nullptr) ||
         (station.dwFlags & WSF_VISIBLE) != 0;
}

class Form {
 public:
  explicit Form(const FormContent& content) : content_(content) {}

  FormResult Run(const FormLife& life) {
    if (!Create()) return {};
    const FormEnd end = Pump(life);
    FormResult result{end, EntryText(), ::IsDlgButtonChecked(window_, kCheckBoxId) == BST_CHECKED};
    ::DestroyWindow(window_);
    return result;
  }

 private:
  bool Create() {
    // A dialog without controls: what this buys is the keyboard handling of dialogs.
    struct {
      DLGTEMPLATE header;
      std::array<WORD, 3> no_menu_class_title;
    } form = {};
    form.header.style = WS_POPUP | WS_CAPTION | WS_SYSMENU | DS_MODALFRAME;
    form.header.dwExtendedStyle = WS_EX_APPWINDOW;
    window_ = ::CreateDialogIndirectParamW(::GetModuleHandleW(nullptr), &form.header, nullptr,
                                           &Form::Procedure, reinterpret_cast<LPARAM>(this));
    if (!window_) return false;
    LayOut();
    ShowInFront();
    return true;
  }

  void LayOut() {
    ::SetWindowTextW(window_, content_.title.c_str());
    PrepareFonts();
    width_ = std::max(Scaled(kContentWidth), ButtonsWidth());
    int y = Scaled(kMargin);
    for (const Row& row : content_.rows) y = AddRow(row, y);
    y += Scaled(kMargin - kRowGap);
    band_top_ = y;
    if (HasButtons()) y = AddButtons(y + Scaled(kBandPadding)) + Scaled(kBandPadding);
    SizeWindow(width_ + 2 * Scaled(kMargin), y);
  }

  void PrepareFonts() {
    NONCLIENTMETRICSW metrics = {};
    metrics.cbSize = sizeof metrics;
    ::SystemParametersInfoW(SPI_GETNONCLIENTMETRICS, sizeof metrics, &metrics, 0);
    LOGFONTW font = metrics.lfMessageFont;
    text_font_.reset(::CreateFontIndirectW(&font));
    font.lfHeight = ::MulDiv(font.lfHeight, 14, 10);
    font.lfWeight = FW_SEMIBOLD;
    heading_font_.reset(::CreateFontIndirectW(&font));
    const HDC screen = ::GetDC(nullptr);
    dots_per_inch_ = ::GetDeviceCaps(screen, LOGPIXELSY);
    ::ReleaseDC(nullptr, screen);
  }

  int AddRow(const Row& row, int y) {
    const RowStyle& style = StyleOf(row.kind);
    int x = Scaled(kMargin);
    int width = width_;
    const bool heading = row.kind == RowKind::kHeading;
    if (heading) {
      AddIcon(x, y);
      x += Scaled(kIconSize + kIconGap);
      width -= Scaled(kIconSize + kIconGap);
    }
    const int height = HeightOf(row, width);
    // A heading of one line stands beside the middle of its sign.
    const int beside_icon = heading ? std::max(0, (Scaled(kIconSize) - height) / 2) : 0;
    const HWND control =
        AddControl(style.window_class, row.text.c_str(), style.style, style.extended_style,
                   {x, y + beside_icon, x + width, y + beside_icon + height}, style.id);
    if (heading) SetFont(control, heading_font_.get());
    if (row.kind == RowKind::kEntry) ::SendMessageW(control, EM_LIMITTEXT, kLongestEntry, 0);
    if (row.kind == RowKind::kProgress) ::SendMessageW(control, PBM_SETMARQUEE, TRUE, 0);
    return y + std::max(height, heading ? Scaled(kIconSize) : 0) + Scaled(style.gap_below);
  }

  int HeightOf(const Row& row, int width) const {
    const int line = TextSize(L"Ag", text_font_.get(), width, 0).cy;
    const int box = 2 * Scaled(kBoxPadding);
    switch (row.kind) {
      case RowKind::kHeading:
        return TextSize(row.text, heading_font_.get(), width, DT_WORDBREAK).cy;
      case RowKind::kPaths: {
        const int lines =
            TextSize(row.text, text_font_.get(), width - box, DT_WORDBREAK | DT_EDITCONTROL).cy;
        return std::min(lines, kMostPathLines * line) + box;
      }
      case RowKind::kEntry:
        return line + box;
      case RowKind::kCheckBox:
        return TextSize(row.text, text_font_.get(), width - Scaled(kCheckMarkWidth), DT_WORDBREAK)
                   .cy +
               Scaled(2);
      case RowKind::kProgress:
        return Scaled(kProgressHeight);
      case RowKind::kText:
      case RowKind::kLabel:
        break;
    }
    return TextSize(row.text, text_font_.get(), width, DT_WORDBREAK).cy;
  }

  void AddIcon(int x, int y) {
    const HWND icon = AddControl(L"STATIC", L"", SS_ICON | SS_REALSIZECONTROL, 0,
                                 {x, y, x + Scaled(kIconSize), y + Scaled(kIconSize)}, 0);
    const HICON sign = ::LoadIconW(nullptr, reinterpret_cast<LPCWSTR>(IDI_WARNING));
    ::SendMessageW(icon, STM_SETICON, reinterpret_cast<WPARAM>(sign), 0);
    ::SendMessageW(window_, WM_SETICON, ICON_BIG, reinterpret_cast<LPARAM>(sign));
  }

  // The buttons that end the form at the right, the one that shows the folder at the left.
  int AddButtons(int y) {
    const int height = ButtonHeight();
    int right = Scaled(kMargin) + width_;
    for (std::size_t i = content_.buttons.size(); i-- > 0;) {
      const int left = right - ButtonWidth(content_.buttons[i]);
      // A question has no default button: a key that was meant for the program that has just
      // crashed must not give consent.
      const bool is_default = !IsQuestion();
      const HWND button =
          AddControl(L"BUTTON", content_.buttons[i].c_str(),
                     WS_TABSTOP | (is_default ? BS_DEFPUSHBUTTON : BS_PUSHBUTTON), 0,
                     {left, y, right, y + height}, static_cast<WORD>(kFirstButtonId + i));
      // Made from right to left, reached from left to right.
      ::SetWindowPos(button, last_row_, 0, 0, 0, 0, SWP_NOMOVE | SWP_NOSIZE | SWP_NOACTIVATE);
      right = left - Scaled(kButtonGap);
    }
    if (!content_.folder_button.empty()) {
      const int left = Scaled(kMargin);
      AddControl(L"BUTTON", content_.folder_button.c_str(), WS_TABSTOP | BS_PUSHBUTTON, 0,
                 {left, y, left + ButtonWidth(content_.folder_button), y + height},
                 kFolderButtonId);
    }
    return y + height;
  }

  bool IsQuestion() const noexcept { return content_.buttons.size() > 1; }

  bool HasButtons() const noexcept {
    return !content_.buttons.empty() || !content_.folder_button.empty();
  }

  int ButtonsWidth() const {
    int width = content_.folder_button.empty() ? 0 : ButtonWidth(content_.folder_button);
    for (const std::wstring& text : content_.buttons) {
      width += ButtonWidth(text) + Scaled(kButtonGap);
    }
    return width;
  }

  int ButtonWidth(const std::wstring& text) const {
    const int text_width = TextSize(text, text_font_.get(), 0, DT_SINGLELINE).cx;
    return std::max(Scaled(kLeastButtonWidth), text_width + 2 * Scaled(kButtonPadding));
  }

  int ButtonHeight() const {
    return TextSize(L"Ag", text_font_.get(), 0, DT_SINGLELINE).cy + Scaled(11);
  }

  HWND AddControl(const wchar_t* window_class, const wchar_t* text, DWORD style,
                  DWORD extended_style, const RECT& place, WORD id) {
    const HWND control = ::CreateWindowExW(
        extended_style, window_class, text, WS_CHILD | WS_VISIBLE | style, place.left, place.top,
        place.right - place.left, place.bottom - place.top, window_,
        reinterpret_cast<HMENU>(static_cast<UINT_PTR>(id)), ::GetModuleHandleW(nullptr), nullptr);
    SetFont(control, text_font_.get());
    if (id < kFirstButtonId || id > kFolderButtonId) last_row_ = control;
    return control;
  }

  static void SetFont(HWND control, HFONT font) {
    ::SendMessageW(control, WM_SETFONT, reinterpret_cast<WPARAM>(font), TRUE);
  }

  SIZE TextSize(std::wstring_view text, HFONT font, int width, UINT flags) const {
    const HDC screen = ::GetDC(window_);
    const HGDIOBJ earlier = ::SelectObject(screen, font);
    RECT area = {0, 0, width, 0};
    ::DrawTextW(screen, text.data(), static_cast<int>(text.size()), &area, flags | DT_CALCRECT);
    ::SelectObject(screen, earlier);
    ::ReleaseDC(window_, screen);
    return {area.right, area.bottom};
  }

  void SizeWindow(int client_width, int client_height) {
    RECT area = {0, 0, client_width, client_height};
    ::AdjustWindowRectEx(&area, static_cast<DWORD>(::GetWindowLongPtrW(window_, GWL_STYLE)), FALSE,
                         static_cast<DWORD>(::GetWindowLongPtrW(window_, GWL_EXSTYLE)));
    const int width = area.right - area.left;
    const int height = area.bottom - area.top;
    POINT pointer = {};
    ::GetCursorPos(&pointer);
    MONITORINFO monitor = {};
    monitor.cbSize = sizeof monitor;
    ::GetMonitorInfoW(::MonitorFromPoint(pointer, MONITOR_DEFAULTTOPRIMARY), &monitor);
    const RECT& screen = monitor.rcWork;
    const int x = (screen.left + screen.right - width) / 2;
    const int y = std::max<int>(screen.top, (screen.top + screen.bottom - height) / 2);
    ::SetWindowPos(window_, nullptr, x, y, width, height, SWP_NOZORDER | SWP_NOACTIVATE);
  }

  // The crashed program may still fill the screen: the form comes before it once, without staying
  // above the windows that the user opens next.
  void ShowInFront() {
    ::SetWindowPos(window_, HWND_TOPMOST, 0, 0, 0, 0, SWP_NOMOVE | SWP_NOSIZE | SWP_SHOWWINDOW);
    ::SetWindowPos(window_, HWND_NOTOPMOST, 0, 0, 0, 0, SWP_NOMOVE | SWP_NOSIZE);
    ::SetForegroundWindow(window_);
    const HWND entry = ::GetDlgItem(window_, kEntryId);
    const auto last = static_cast<int>(kFirstButtonId + content_.buttons.size() - 1);
    ::SetFocus(entry ? entry : ::GetDlgItem(window_, last));
  }

  FormEnd Pump(const FormLife& life) {
    const ULONGLONG start = ::GetTickCount64();
    while (!ended_) {
      DWORD wait_for = INFINITE;
      if (life.timeout) {
        const auto limit = static_cast<ULONGLONG>(life.timeout->count());
        const ULONGLONG passed = ::GetTickCount64() - start;
        if (passed >= limit) return FormEnd::kTimeout;
        wait_for = static_cast<DWORD>(limit - passed);
      }
      const DWORD handles = life.work ? 1 : 0;
      const DWORD woken =
          ::MsgWaitForMultipleObjects(handles, &life.work, FALSE, wait_for, QS_ALLINPUT);
      if (life.work && woken == WAIT_OBJECT_0) return FormEnd::kWorkDone;
      Dispatch();
    }
    return *ended_;
  }

  void Dispatch() {
    MSG message = {};
    while (!ended_ && ::PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE)) {
      if (message.message == WM_QUIT) ended_ = FormEnd::kClosed;
      if (::IsDialogMessageW(window_, &message)) continue;
      ::TranslateMessage(&message);
      ::DispatchMessageW(&message);
    }
  }

  std::wstring EntryText() const {
    std::array<wchar_t, kLongestEntry + 1> text = {};
    ::GetDlgItemTextW(window_, kEntryId, text.data(), static_cast<int>(text.size()));
    return text.data();
  }

  void OnCommand(WORD id) {
    if (id == kFolderButtonId) return ShowInFolder(content_.folder_item);
    // IDCANCEL is the Escape key or the window's own closing button. Without buttons the form ends
    // with the work alone.
    if (id == IDCANCEL && !content_.buttons.empty()) ended_ = FormEnd::kClosed;
    const std::size_t button = static_cast<std::size_t>(id) - kFirstButtonId;
    if (id < kFirstButtonId || button >= content_.buttons.size()) return;
    ended_ = IsQuestion() && button == 0 ? FormEnd::kAgreed : FormEnd::kClosed;
  }

  // The rows lie on the colour of a page, the buttons on a band of the colour of dialogs.
  void PaintBackground(HDC target) const {
    RECT area = {};
    ::GetClientRect(window_, &area);
    RECT page = area;
    if (HasButtons()) page.bottom = band_top_;
    ::FillRect(target, &page, ::GetSysColorBrush(COLOR_WINDOW));
    area.top = page.bottom;
    ::FillRect(target, &area, ::GetSysColorBrush(COLOR_BTNFACE));
  }

  static INT_PTR PageColours(HDC target, HWND control) {
    const bool page = ::GetDlgCtrlID(control) != kPathsId;
    ::SetTextColor(target, ::GetSysColor(page ? COLOR_WINDOWTEXT : COLOR_BTNTEXT));
    ::SetBkColor(target, ::GetSysColor(page ? COLOR_WINDOW : COLOR_BTNFACE));
    return reinterpret_cast<INT_PTR>(::GetSysColorBrush(page ? COLOR_WINDOW : COLOR_BTNFACE));
  }

  static INT_PTR CALLBACK Procedure(HWND window, UINT message, WPARAM wparam, LPARAM lparam) {
    if (message == WM_INITDIALOG) {
      ::SetWindowLongPtrW(window, DWLP_USER, lparam);
      return FALSE;  // the focus is set once the controls are there
    }
    auto* form = reinterpret_cast<Form*>(::GetWindowLongPtrW(window, DWLP_USER));
    if (!form || !form->window_) return FALSE;
    switch (message) {
      case WM_COMMAND:
        form->OnCommand(LOWORD(wparam));
        return TRUE;
      case WM_ERASEBKGND:
        form->PaintBackground(reinterpret_cast<HDC>(wparam));
        ::SetWindowLongPtrW(window, DWLP_MSGRESULT, TRUE);
        return TRUE;
      case WM_CTLCOLORSTATIC:
        return PageColours(reinterpret_cast<HDC>(wparam), reinterpret_cast<HWND>(lparam));
      default:
        return FALSE;
    }
  }

  int Scaled(int size) const noexcept { return ::MulDiv(size, dots_per_inch_, 96); }

  const FormContent& content_;
  HWND window_ = nullptr;
  HWND last_row_ = nullptr;
  ScopedFont text_font_;
  ScopedFont heading_font_;
  int dots_per_inch_ = 96;
  int width_ = 0;     // of the rows
  int band_top_ = 0;  // of the buttons
  std::optional<FormEnd> ended_;
};

}  // namespace

FormResult ShowForm(const FormContent& content, const FormLife& life) {
  if (!CanBeSeen()) return {};
  const INITCOMMONCONTROLSEX controls = {sizeof controls,
                                         ICC_STANDARD_CLASSES | ICC_PROGRESS_CLASS};
  ::InitCommonControlsEx(&controls);
  return Form(content).Run(life);
}

}  // namespace crash_reporter
