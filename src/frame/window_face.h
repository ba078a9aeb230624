#pragma once
// What each face of the window (Win32, headless) implements for the shared window logic.

#include <string_view>

namespace ory {

// Redraws the message band with TEXT, red for an error line, lime otherwise. Called under windowTextLock.
void paintMessageBand(std::string_view TEXT, bool ERROR_LINE);

} // namespace ory
