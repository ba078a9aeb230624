// The Windows entry: one instance, the log, the window, then the start message and the message loop.
#include "base/log.h"
#include "base/paths.h"
#include "frame/window.h"
#include "frame/window_win32.h"
#include "os/instance.h"

#include <windows.h>

#include <filesystem>

int WINAPI wWinMain(HINSTANCE instance, HINSTANCE, PWSTR, int) {
  if (!ory::claimSingleInstance("Local\\$Trovalyn_P3D$")) return -1;
  try {
    ory::openLog();
  } catch (const std::exception& e) {
    MessageBoxA(nullptr, e.what(), "Trovalyn_P3D", MB_ICONERROR | MB_OK);
    return 1;
  }
  if (!ory::createMainWindow(instance)) return 0;
  try {
    std::filesystem::create_directories(ory::appDataProgramFolder());
  } catch (const std::exception& e) {
    ory::showError(e.what());
  }
  ory::postWindowMessage(ory::startMessage);
  return ory::runMessageLoop();
}
