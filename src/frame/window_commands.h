#pragma once
// What the controls of the window do: a click on a check box or button, and Enter in an edit box. Both faces
// share it; only the Win32 face has controls that call it. Everything runs on the message thread, stores at
// once and hands long work to the main loop by a pending flag.

#include "base/parameters.h"

#include <cstdint>
#include <string_view>

namespace ory {

// Check boxes toggle their parameter and store it; buttons do their work or set its pending flag.
void onCommand(std::uint16_t controlId);
// Enter in the edit box controlId, whose text is text (UTF-8).
void onEditEnter(std::uint16_t controlId, std::string_view text);

// The text of an integer box: empty takes the default (parking_percentage 0), a number is clamped to the
// limits; true when the value changed.
bool procesTbInt(IntParameter& parameter, std::string_view text);
// The same for MAX_FIT_FL: the hours are rounded to a half hour through MAX_FIT, which is stored.
bool procesTbFloat(FloatParameter& parameter, std::string_view text);
// A parking option changed: the static parking is renewed at the next fifteenth second.
void parkingChanged();

// Every control shows its parameter's value, as when the window is made.
void showControlValues();
// The controls usable while the start-up works, and then the rest; all are disabled at the start of a run.
void disableAllControls();
void enableStartUpControls();
void enableRemainingControls();

} // namespace ory
