#pragma once
// The Win32 face's entry points, for wWinMain only. Handles are opaque here: the instance is an HINSTANCE.

namespace ory {

// Registers the class and creates the 880 by 488 window at MAIN_WINDOW_X and MAIN_WINDOW_Y; false on failure.
bool createMainWindow(void* instance);
// The message loop; gives the quit code.
int runMessageLoop();

} // namespace ory
