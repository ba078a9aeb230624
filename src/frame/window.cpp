#include "frame/window.h"

#include "base/log.h"
#include "base/run.h"
#include "base/version.h"
#include "frame/startup.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

namespace ory {

namespace {
bool lf_atLimit(const IntParameter& parameter) {
  return parameter.value == parameter.minimum || parameter.value == parameter.maximum;
}
} // namespace

void readWindowPosition() {
  for (IntParameter* parameter : {&MAIN_WINDOW_X, &MAIN_WINDOW_Y}) {
    if (!readIntParameter(*parameter) || !lf_atLimit(*parameter)) continue;
    parameter->set(parameter->defaultValue);
    storeInt(*parameter);
  }
}

void keepWindowPosition(int left, int top) {
  for (auto [parameter, value] : {std::pair{&MAIN_WINDOW_X, left}, std::pair{&MAIN_WINDOW_Y, top}}) {
    const std::int32_t before = parameter->value;
    parameter->set(value);
    if (lf_atLimit(*parameter)) parameter->set(before);
    storeInt(*parameter);
  }
}

void onStartMessage() {
  launchStartUp();
}

void onCloseRequest() {
  showMessage(fmt::format("Close window button clicked, closing {} ...", programName), false);
  requestExit(ExitReason::userClosedSim, 0);
}

void onEndMessage() {
  logLine(utcText(std::time(nullptr)));
  closeLog();
}

} // namespace ory
