#pragma once
// What the window shows, as every subsystem reaches it: the display state, the message and error lines and
// the parameter controls. The window's face (Win32, or headless on Linux) paints them; the painting itself
// stays on the message thread.

#include "base/parameters.h"

#include <atomic>
#include <cstdint>
#include <mutex>
#include <string>
#include <string_view>

namespace ory {

enum class FeedMark : std::int32_t { running = 1, stale = 2, notConnected = 3 };

// The strings and marks the window shows, filled from other threads; strings under windowTextLock.
struct DisplayState {
  std::string messageText;
  std::string errorText;
  std::string simText;      // simulator name and version
  std::string simSubText;   // the user's aircraft and flight
  std::string rtStatusText; // "RT{} edition: {}, archive: week {}"
  std::string standText;    // the park airport's lines
  std::string qualityText;  // the park airport's quality factors, "87/12"
  std::atomic<FeedMark> trafficMark{FeedMark::notConnected};
  std::atomic<FeedMark> weatherMark{FeedMark::notConnected};
  std::atomic<bool> rtLinkUp{false}; // the traffic link is connected, or not in use
  std::atomic<bool> simConnected{false};
  std::atomic<std::int32_t> minutesToRenewal{0};
  std::atomic<std::int32_t> liveryCount{-1}; // -1 while unknown
  std::atomic<std::int32_t> orbxAirportCount{-1};
  std::atomic<std::int32_t> thirdpartyAirportCount{-1};
  std::atomic<std::int32_t> tbloAirportCount{0};
  std::atomic<std::int32_t> liveCount{0};
  std::atomic<std::int32_t> parkedCount{0};     // static parked aircraft
  std::atomic<std::int32_t> parkedLiveCount{0}; // live aircraft standing on a stand
  std::atomic<std::int32_t> standCount{0};
  std::atomic<std::int32_t> wantedStands{0}; // stands that static parking fills at the percentage
  std::atomic<std::int32_t> updateCount{0};
  std::atomic<std::int32_t> archiveWeek{0};
  std::atomic<std::int32_t> qnh{1013};
  std::atomic<float> fitAverage{-1.0f}; // -1 for none
};

extern std::mutex windowTextLock; // taken before the log mutex, never after
extern DisplayState display;
extern std::atomic<std::int32_t> messageClock; // seconds of the slow beat since the session began
extern std::atomic<std::int32_t>
    messageStamp; // messageClock when the message was set (at least 1), 0 when empty

void showMessage(std::string_view text, bool alsoLog);
void showError(std::string_view text); // stays until cleared; a message doesn't overwrite it
void clearMessage();
void clearError();
// Back to the state of a fresh start: texts, counts and marks.
void resetDisplay();

// Controls of the parameters.
void showBool(const BoolParameter& parameter);
void showInt(const IntParameter& parameter);
void showFloat(const FloatParameter& parameter);
void showText(const TextParameter& parameter);
void clearEdit(const Control& control);
void enableControl(const Control& control, bool enable);
void setTopmost(bool topmost);
void repaintWindow();

// Implemented by the window's face: redraws the message band with text, red for an error line, lime
// otherwise. Called under windowTextLock.
void paintMessageBand(std::string_view text, bool errorLine);

} // namespace ory
