#include "base/display.h"

#include "base/log.h"

#include <fmt/format.h>

#include <algorithm>

namespace ory {

std::mutex windowTextLock;
DisplayState display;
std::atomic<std::int32_t> messageClock{0};
std::atomic<std::int32_t> messageStamp{0};

void showMessage(std::string_view text, bool alsoLog) {
  std::lock_guard lock(windowTextLock);
  if (!display.errorText.empty()) return;
  display.messageText = text;
  messageStamp = text.empty() ? 0 : std::max(1, messageClock.load());
  if (alsoLog && !text.empty()) logLine(text);
  paintMessageBand(display.messageText, false);
}

void showError(std::string_view text) {
  std::lock_guard lock(windowTextLock);
  display.messageText.clear();
  messageStamp = 0;
  display.errorText = text;
  logLine(fmt::format("Error {}", text));
  paintMessageBand(display.errorText, true);
}

void clearMessage() {
  std::lock_guard lock(windowTextLock);
  display.messageText.clear();
  messageStamp = 0;
  if (display.errorText.empty()) paintMessageBand("", false);
}

void clearError() {
  std::lock_guard lock(windowTextLock);
  display.errorText.clear();
  paintMessageBand(display.messageText, false);
}

void resetDisplay() {
  {
    std::lock_guard lock(windowTextLock);
    display.messageText.clear();
    display.errorText.clear();
    display.simText.clear();
    display.simSubText.clear();
    display.rtStatusText.clear();
    display.standText.clear();
    display.qualityText.clear();
  }
  messageStamp = 0;
  display.trafficMark = FeedMark::notConnected;
  display.weatherMark = FeedMark::notConnected;
  display.rtLinkUp = false;
  display.simConnected = false;
  display.minutesToRenewal = 0;
  display.liveCount = 0;
  display.parkedCount = 0;
  display.parkedLiveCount = 0;
  display.standCount = 0;
  display.wantedStands = 0;
  display.updateCount = 0;
  display.fitAverage = -1.0f;
  repaintWindow();
}

} // namespace ory
