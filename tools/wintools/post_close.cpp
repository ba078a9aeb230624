// post-close: finds the program's window and posts WM_CLOSE to it, as the user's close button does.
// Exit code 0 when posted, 1 when no window appeared within 20 seconds.
#include <windows.h>

int wmain() {
  for (int attempt = 0; attempt < 200; ++attempt) {
    if (HWND window = FindWindowW(L"Trovalyn_P3D", nullptr))
      return PostMessageW(window, WM_CLOSE, 0, 0) ? 0 : 1;
    Sleep(100);
  }
  return 1;
}
