#pragma once
// The control window's interface. Two faces stand behind it: the Win32 window, and a headless face on Linux
// that prints the message and error lines to standard output. Worker threads reach the window only through
// these calls; the painting itself stays on the message thread.

#include "base/display.h"

namespace ory {

// Window messages of the program, always posted, never sent.
inline constexpr unsigned startMessage = 0x8001; // runs lf_startUpTrovalyn
inline constexpr unsigned endMessage = 0x8002;   // ends the program

void postWindowMessage(unsigned message);
bool windowExists();

// MAIN_WINDOW_X and MAIN_WINDOW_Y from parameters.xml, which is not created here; a value at a limit of its
// parameter goes back to its default and is stored.
void readWindowPosition();
// Stores where the window stands at the end; a coordinate that lands on a limit (a minimised window reports
// -32000) keeps the value it had.
void keepWindowPosition(int left, int top);

// The frame's handling of its own messages, shared by both faces.
void onStartMessage(); // 0x8001: starts lf_startUpTrovalyn on its own thread
void onCloseRequest(); // the user closes the window
void onEndMessage();   // 0x8002, after the face has saved its position: log the time, close the log

// Headless face: waits up to timeoutMs for the next posted message; 0 when none came.
unsigned nextPostedMessage(int timeoutMs);

} // namespace ory
