#include "frame/window_commands.h"

#include "base/display.h"
#include "base/log.h"
#include "base/run.h"
#include "base/version.h"
#include "frame/main_loop.h"
#include "os/utf.h"
#include "parking/stands.h"
#include "updates/download.h"
#include "updates/updates.h"

#include <fmt/format.h>

#include <charconv>
#include <cmath>
#include <filesystem>
#include <optional>
#include <string>

namespace ory {

namespace {

// A check box: what its change says, on or off, and does beyond the store. An empty text says nothing;
// clearOtherwise clears the message line when the text of the other state is empty.
struct CheckRow {
  BoolParameter* parameter;
  std::string_view onText;
  std::string_view offText;
  bool clearOtherwise;
  void (*action)(bool on);
};

void lf_nothing(bool) {}

void lf_noteWhileParking(bool) {
  if (parkingSessionOpen) parameterChanged = true;
}

void lf_parkingOption(bool) {
  parkingChanged();
}

void lf_navLights(bool) {
  navLightsPending = true;
}

void lf_topmost(bool on) {
  setTopmost(on);
}

// On: the range the user set is kept to come back to, and the main loop computes it. Off: it comes back.
void lf_autoRange(bool on) {
  parameterChanged = true;
  if (on) {
    manualLateralRange = LATERAL_RANGE.value.load();
    autoRange();
    enableControl(LATERAL_RANGE, false);
    return;
  }
  enableControl(LATERAL_RANGE, true);
  LATERAL_RANGE.set(manualLateralRange);
  setRange(LATERAL_RANGE.value);
  showInt(LATERAL_RANGE);
}

const CheckRow checkRows[] = {
    {&SCAN_LIVERIES,
     "Your liveries will be scanned at the next start of {}, recommended after you have add/removed AI "
     "aircraft models/liveries",
     "", true, lf_nothing},
    {&SCAN_AIRPORTS,
     "Your airports will be scanned at the next start of {}, recommended after you have add/removed airports",
     "", true, lf_nothing},
    {&LIG_AUTOMATIC, "", "The liveries defined by your lfolder parameters will be scanned", false,
     lf_nothing},
    {&LIG_PRIORITIZE, "Liveries in lower lfolders that are already available will be skipped", "", false,
     lf_nothing},
    {&AFG_AUTOMATIC, "", "The airports defined by your afolder parameters will be scanned", false,
     lf_nothing},
    {&PARK_SOFT, "", "", false, lf_parkingOption},
    {&PARK_FAKE, "", "", false, lf_parkingOption},
    {&WEEK, "", "", false, lf_parkingOption},
    {&INITIAL_LOAD_ONLY,
     "Initial Load Only: static parked aircraft are generated once, no renewal every 20 minutes", "", true,
     lf_noteWhileParking},
    {&COLLISION_LIVE_PARKED_GND, "",
     "Be aware, no collision avoidance with live aircraft vs parked static on the ground", false, lf_nothing},
    {&COLLISION_USER_GND, "", "Be aware, no collision avoidance with user aircraft on the ground", false,
     lf_nothing},
    {&COLLISION_USER_AIR, "", "Be aware, no collision avoidance with user aircraft in the air", false,
     lf_nothing},
    {&SUPPRESS_STUB, "Exclude FSLTL-liveries titles ending with _STUB from scan", "", false, lf_nothing},
    {&ALWAYS_ON_TOP, "{}'s window will remain visible", "", true, lf_topmost},
    {&AEROWINX, "Note: This mode is for Aerowinx PSX users only, please re-start {}", "", false, lf_nothing},
    {&LEARN_SOFT, "", "", false, lf_noteWhileParking},
    {&GUID_CHANGES, "",
     "Be aware, no more livery updates: you miss correct data for Learn, LittleNavMap, etc..", false,
     lf_nothing},
    {&AUTO_RANGE, "", "", false, lf_autoRange},
    {&NAV_LIGHTS_WHILE_PARKED, "", "", false, lf_navLights},
    {&LOG, "", "", false, lf_nothing},
    {&LIGHT_AIRCRAFT, "", "", false, lf_nothing},
    {&HELICOPTERS, "", "", false, lf_nothing},
    {&HIGH_PERF_AIRCRAFT, "", "", false, lf_nothing},
};

IntParameter* const intBoxes[] = {&MATCHING_DEPTH, &LATERAL_RANGE,  &MAX_LIVE,
                                  &AIRPORT_RANGE,  &AIRPORT_HEIGHT, &parking_percentage};

Control* const startUpControls[] = {&SIM_INSTALL_PATH,
                                    &LOG,
                                    &ALWAYS_ON_TOP,
                                    &AEROWINX,
                                    &GUID_CHANGES,
                                    &LIGHT_AIRCRAFT,
                                    &HELICOPTERS,
                                    &HIGH_PERF_AIRCRAFT,
                                    &COLLISION_USER_GND,
                                    &COLLISION_USER_AIR,
                                    &COLLISION_LIVE_PARKED_GND,
                                    &NAV_LIGHTS_WHILE_PARKED,
                                    &LEARN_SOFT,
                                    &MAX_LIVE,
                                    &BLOCK_CALLSIGN,
                                    &AUTO_RANGE,
                                    &AIRPORT_RANGE,
                                    &AIRPORT_HEIGHT};
Control* const remainingControls[] = {&SCAN_LIVERIES, &LIG_AUTOMATIC, &LIG_PRIORITIZE,    &SUPPRESS_STUB,
                                      &SCAN_AIRPORTS, &AFG_AUTOMATIC, &MATCHING_DEPTH,    &PARK_FAKE,
                                      &WEEK,          &PARK_SOFT,     &INITIAL_LOAD_ONLY, &MAX_FIT_FL};
// Enabled by the work they belong to: the range box by AUTO_RANGE, "Unblock" by a blocked callsign,
// "Re-read" once the simulator is there, "Flush static" and the percentage by an open parking session, "Check
// version" when the start-up didn't check the day's versions itself.
Control* const laterControls[] = {&LATERAL_RANGE,     &unblockButton,      &reReadButton,
                                  &flushStaticButton, &checkVersionButton, &parking_percentage};

template <std::size_t N>
void lf_enable(Control* const (&controls)[N], bool enable) {
  for (Control* control : controls)
    enableControl(*control, enable);
}

void lf_say(std::string_view text) {
  showMessage(fmt::format(fmt::runtime(text), programName), false);
}

void lf_toggle(const CheckRow& row) {
  BoolParameter& parameter = *row.parameter;
  const bool on = !parameter.value;
  parameter.value = on;
  storeBool(parameter);
  showBool(parameter);
  const std::string_view text = on ? row.onText : row.offText;
  if (!text.empty())
    lf_say(text);
  else if (row.clearOtherwise)
    clearMessage();
  row.action(on);
  repaintWindow();
}

void lf_unblock() {
  const std::string old = BLOCK_CALLSIGN.value;
  BLOCK_CALLSIGN.value.clear();
  storeText(BLOCK_CALLSIGN);
  showText(BLOCK_CALLSIGN);
  enableControl(unblockButton, false);
  showMessage(fmt::format("no more blocking of live aircraft \"{}\"", old), true);
  blockPending = true;
}

// The server may take its time: the check runs off the message thread, and the button stays disabled for
// the run.
void lf_checkVersion() {
  try {
    checkVersionNow(updateServer);
  } catch (const std::exception& e) {
    showMessage(fmt::format("Check version failed: {}", e.what()), true);
  }
}

void lf_pressButton(std::uint16_t controlId) {
  if (controlId == unblockButton.controlId) {
    if (BLOCK_CALLSIGN.value.empty())
      showMessage("Nothing to block or unblock...", false);
    else
      lf_unblock();
  } else if (controlId == checkVersionButton.controlId) {
    enableControl(checkVersionButton, false);
    startCountedThread(lf_checkVersion);
  } else if (controlId == reReadButton.controlId) {
    reReadPending = true;
    enableControl(reReadButton, false);
  } else if (controlId == flushStaticButton.controlId) {
    showMessage("All static parked aircraft will be removed ...", false);
    flushPending = true;
    enableControl(flushStaticButton, false);
  }
}

std::string_view lf_trimmed(std::string_view text) {
  const auto first = text.find_first_not_of(" \t");
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(" \t") - first + 1);
}

// The whole text must be the number: "12abc" is no more a number to the user than "abc".
template <typename Number>
std::optional<Number> lf_number(std::string_view text) {
  text = lf_trimmed(text);
  if (!text.empty() && text.front() == '+') text.remove_prefix(1);
  Number number{};
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (text.empty() || error != std::errc() || end != text.data() + text.size()) return std::nullopt;
  if constexpr (std::is_floating_point_v<Number>)
    if (!std::isfinite(number)) return std::nullopt;
  return number;
}

void lf_showIntBox(const IntParameter& parameter) {
  if (&parameter == &MAX_LIVE && parameter.value == parameter.defaultValue)
    clearEdit(parameter);
  else
    showInt(parameter);
}

void lf_refuse(std::string_view text) {
  showMessage(fmt::format("invalid input: {}", text), true);
}

void lf_intEntered(IntParameter& parameter, std::string_view text) {
  const std::int32_t before = parameter.value;
  if (!procesTbInt(parameter, text)) return;
  if (&parameter == &parking_percentage) {
    parkingChanged();
  } else if (&parameter == &LATERAL_RANGE) {
    parameterChanged = true;
    manualLateralRange = LATERAL_RANGE.value.load();
    setRange(LATERAL_RANGE.value);
  } else if (&parameter == &MAX_LIVE) {
    if (parkingSessionOpen) parameterChanged = true;
  } else if (&parameter == &MATCHING_DEPTH) {
    if (parameter.value > before) clearNoMatchPending = true;
  }
}

void lf_floatEntered(FloatParameter& parameter, std::string_view text) {
  if (procesTbFloat(parameter, text) && parkingSessionOpen) parkingChanged();
}

void lf_installPathEntered(std::string_view text) {
  std::error_code error;
  if (!std::filesystem::is_directory(utf8ToPath(text), error)) {
    showMessage(fmt::format("This install path does not exist: {}", text), false);
    return;
  }
  SIM_INSTALL_PATH.value = text;
  storeText(SIM_INSTALL_PATH);
  showMessage("Install path exists, re-start", false);
  requestExit(ExitReason::restartIpp, 3);
}

void lf_callsignEntered(std::string_view text) {
  if (text.empty()) {
    if (!BLOCK_CALLSIGN.value.empty()) lf_unblock();
    return;
  }
  if (text.size() < 4 || text.size() > 8) {
    showMessage(fmt::format("callsign \"{}\" is not valid", text), false);
    showText(BLOCK_CALLSIGN);
    return;
  }
  std::string callsign(text);
  for (char& c : callsign)
    if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
  if (callsign == BLOCK_CALLSIGN.value) {
    showMessage(fmt::format("This callsign ({}) was already set ...", callsign), false);
    showText(BLOCK_CALLSIGN);
    return;
  }
  BLOCK_CALLSIGN.value = callsign;
  storeText(BLOCK_CALLSIGN);
  showText(BLOCK_CALLSIGN);
  enableControl(unblockButton, true);
  showMessage(fmt::format("live aircraft with callsign \"{}\" will be blocked", callsign), true);
  blockPending = true;
}

} // namespace

void onCommand(std::uint16_t controlId) {
  for (const CheckRow& row : checkRows)
    if (row.parameter->controlId == controlId) return lf_toggle(row);
  lf_pressButton(controlId);
  repaintWindow();
}

void onEditEnter(std::uint16_t controlId, std::string_view text) {
  clearMessage();
  for (IntParameter* parameter : intBoxes)
    if (parameter->controlId == controlId) return lf_intEntered(*parameter, text);
  if (controlId == MAX_FIT_FL.controlId) return lf_floatEntered(MAX_FIT_FL, text);
  if (controlId == BLOCK_CALLSIGN.controlId) return lf_callsignEntered(text);
  if (controlId == SIM_INSTALL_PATH.controlId) lf_installPathEntered(text);
}

bool procesTbInt(IntParameter& parameter, std::string_view text) {
  try {
    const bool perAirport = &parameter == &parking_percentage;
    if (text.empty()) {
      parameter.set(perAirport ? 0 : parameter.defaultValue);
    } else {
      const std::optional<std::int64_t> number = lf_number<std::int64_t>(text);
      if (!number) {
        lf_refuse(text);
        lf_showIntBox(parameter);
        return false;
      }
      if (*number == parameter.value) {
        showMessage(fmt::format("Same {} value {}, no changes made", parameter.name, *number), true);
        lf_showIntBox(parameter);
        return false;
      }
      parameter.set(*number);
    }
    if (!perAirport) storeInt(parameter);
    showMessage(fmt::format("The new {} is {}", parameter.name, parameter.value.load()), false);
    lf_showIntBox(parameter);
    return true;
  } catch (const std::exception& e) {
    logLine(fmt::format("procesTbInt exception {}, h={}", e.what(), parameter.handle));
    return false;
  }
}

bool procesTbFloat(FloatParameter& parameter, std::string_view text) {
  try {
    if (text.empty()) {
      MAX_FIT.set(MAX_FIT.defaultValue);
    } else {
      const std::optional<float> hours = lf_number<float>(text);
      if (!hours) {
        lf_refuse(text);
        showFloat(parameter);
        return false;
      }
      if (*hours == parameter.value) {
        showMessage(fmt::format("Same {} value {}, no changes made", parameter.name, *hours), true);
        return false;
      }
      MAX_FIT.set(std::lround(parameter.clamp(*hours) * 2.0f) - 1);
    }
    storeInt(MAX_FIT);
    parameter.value = maxFitHours(MAX_FIT.value);
    showMessage(fmt::format("The new {} is {:.1F}", parameter.name, parameter.value.load()), false);
    showFloat(parameter);
    return true;
  } catch (const std::exception& e) {
    logLine(fmt::format("procesTbFloat exception {}, h={}", e.what(), parameter.handle));
    return false;
  }
}

void parkingChanged() {
  if (parkingSessionOpen) parameterChanged = true;
  if (INITIAL_LOAD_ONLY.value) {
    clearMessage();
    return;
  }
  const std::int32_t seconds = (15 - secondCount % 15) % 15;
  if (seconds > 0)
    showMessage(
        fmt::format("{} will respond in {} second{} ...", programName, seconds, seconds == 1 ? "" : "s"),
        false);
  renewalPending = true;
}

void showControlValues() {
  for (const CheckRow& row : checkRows)
    showBool(*row.parameter);
  for (IntParameter* parameter : intBoxes)
    lf_showIntBox(*parameter);
  showFloat(MAX_FIT_FL);
  showText(BLOCK_CALLSIGN);
  showText(SIM_INSTALL_PATH);
}

void disableAllControls() {
  lf_enable(startUpControls, false);
  lf_enable(remainingControls, false);
  lf_enable(laterControls, false);
}

void enableStartUpControls() {
  lf_enable(startUpControls, true);
  if (!AUTO_RANGE.value) enableControl(LATERAL_RANGE, true);
  if (!BLOCK_CALLSIGN.value.empty()) enableControl(unblockButton, true);
}

void enableRemainingControls() {
  lf_enable(remainingControls, true);
}

} // namespace ory
