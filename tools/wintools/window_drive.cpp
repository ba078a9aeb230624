// window-drive: acts on the program's window as a user would, and reads back what the user would see. The
// first word names the Wine desktop the program runs on ("wine explorer /desktop=NAME,..."), whose start
// costs 20 seconds a call; every further word is one step, run in order:
//   click ID        a click on the check box or button ID (refused when it is disabled, as for a user)
//   type ID TEXT    TEXT typed into the edit box ID over what it holds, then Enter
//   empty ID        the edit box ID emptied, then Enter
//   text ID         prints the text of control ID (the message line is 32900)
//   checked ID      prints 1 or 0
//   enabled ID      prints 1 or 0
//   wait ID TEXT    waits up to 20 seconds until control ID shows TEXT; "enabled"/"disabled" wait for that
//   close 0         the window's close button
// Exit code 0 when every step worked; 1 with a line on standard error at the first that didn't.
#include <windows.h>

#include <cstdio>
#include <cwchar>
#include <string>

namespace {

HWND lf_window = nullptr;

int lf_fail(const wchar_t* what, const wchar_t* detail) {
  std::fwprintf(stderr, L"window-drive: %ls %ls\n", what, detail);
  return 1;
}

// The window is found while it may still be making its controls.
HWND lf_control(const wchar_t* id) {
  const int controlId = static_cast<int>(std::wcstol(id, nullptr, 10));
  for (int attempt = 0; attempt < 200; ++attempt) {
    if (HWND control = GetDlgItem(lf_window, controlId)) return control;
    Sleep(100);
  }
  return nullptr;
}

std::wstring lf_text(HWND control) {
  wchar_t text[1024] = {};
  SendMessageW(control, WM_GETTEXT, 1024, reinterpret_cast<LPARAM>(text));
  return text;
}

// Selects what the box holds, so that the first character typed replaces it; Backspace empties it.
void lf_type(HWND box, const std::wstring& text) {
  SendMessageW(box, EM_SETSEL, 0, -1);
  SendMessageW(box, WM_CHAR, VK_BACK, 0);
  for (wchar_t c : text)
    SendMessageW(box, WM_CHAR, c, 0);
  SendMessageW(box, WM_CHAR, VK_RETURN, 0);
}

bool lf_shows(HWND control, const std::wstring& wanted) {
  if (wanted == L"enabled") return IsWindowEnabled(control);
  if (wanted == L"disabled") return !IsWindowEnabled(control);
  return lf_text(control) == wanted;
}

bool lf_waitUntil(HWND control, const std::wstring& wanted) {
  for (int round = 0; round < 200; ++round) {
    if (lf_shows(control, wanted)) return true;
    Sleep(100);
  }
  return false;
}

} // namespace

// FindWindowW looks on the desktop of the calling thread.
bool lf_joinDesktop(const wchar_t* name) {
  HDESK desktop = OpenDesktopW(name, 0, FALSE, GENERIC_ALL);
  return desktop && SetThreadDesktop(desktop);
}

int wmain(int count, wchar_t** words) {
  if (count < 2) return lf_fail(L"no desktop named", L"");
  // The desktop and the window may both still be coming.
  bool joined = false;
  for (int attempt = 0; attempt < 200 && !lf_window; ++attempt) {
    joined = joined || lf_joinDesktop(words[1]);
    if (joined) lf_window = FindWindowW(L"Trovalyn_P3D", nullptr);
    if (!lf_window) Sleep(100);
  }
  if (!lf_window) return lf_fail(L"no window", L"");
  for (int i = 2; i < count; i += 2) {
    const std::wstring step = words[i];
    const bool withText = step == L"type" || step == L"wait";
    if (i + 1 >= count || (withText && i + 2 >= count)) return lf_fail(L"incomplete step", words[i]);
    if (step == L"close") {
      PostMessageW(lf_window, WM_CLOSE, 0, 0);
      continue;
    }
    HWND control = lf_control(words[i + 1]);
    if (!control) return lf_fail(L"no control", words[i + 1]);
    if ((step == L"click" || step == L"type" || step == L"empty") && !IsWindowEnabled(control))
      return lf_fail(L"disabled control", words[i + 1]);
    if (step == L"click") {
      SendMessageW(control, BM_CLICK, 0, 0);
    } else if (step == L"type") {
      lf_type(control, words[i + 2]);
    } else if (step == L"empty") {
      lf_type(control, L"");
    } else if (step == L"wait") {
      if (!lf_waitUntil(control, words[i + 2]))
        return lf_fail(L"waited in vain:", (std::wstring(words[i + 1]) + L" shows \"" + lf_text(control) +
                                            L"\", not \"" + words[i + 2] + L"\"")
                                               .c_str());
    } else if (step == L"text") {
      std::wprintf(L"%ls\n", lf_text(control).c_str());
    } else if (step == L"checked") {
      std::wprintf(L"%d\n", SendMessageW(control, BM_GETCHECK, 0, 0) == BST_CHECKED ? 1 : 0);
    } else if (step == L"enabled") {
      std::wprintf(L"%d\n", IsWindowEnabled(control) ? 1 : 0);
    } else {
      return lf_fail(L"unknown step", words[i]);
    }
    i += withText ? 1 : 0;
    std::fflush(stdout);
  }
  return 0;
}
