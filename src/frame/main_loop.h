#pragma once
// The heartbeat of a running session: mainLoop every 10 ms on its own thread. The fast beat (engine ticks)
// runs while the simulator reports a running flight; the slow beat of one second is driven by the simulator's
// data (secondTick), so that the seconds stop when the simulator stops delivering.

#include <atomic>
#include <cstdint>
#include <stop_token>

namespace ory {

extern std::atomic<std::int32_t> secondCount;    // seconds of the slow beat, back to 0 after 86,400
extern std::atomic<std::int32_t> pauseCountdown; // 100 down to 0 while paused: a second without the simulator
extern std::atomic<bool> flightPaused; // the loop saw the flight stop; owned by the main-loop thread

void mainLoopThread(std::stop_token stop);
void mainLoop();

// The periodic jobs due at one second of the slow beat.
struct DueJobs {
  std::int32_t s = 0; // the second count the late jobs (16, 59, 61) test; 0 after the daily reset
  bool every5 = false, every15 = false, every30 = false, every60 = false, every1200 = false, daily = false;
  bool every16 = false, every59 = false, every61 = false;
};
// Adds one to secondCount and tells the jobs due; at 86,400 the count goes back to 0 before the late tests.
DueJobs advanceSecond(std::atomic<std::int32_t>& secondCount);

// Ages the message line: clears it 25 seconds of the slow beat after it was set.
void ageMessage();

// The range in nautical miles from the user's state: 8 on the ground, 40 above AIRPORT_HEIGHT, else by the
// distance to the nearest park airport (10,000 when there is none).
std::int32_t autoRangeFor(bool onGround, double altitudeFt, double distanceNm);
// Sets rangeNm and rangeMetres unclamped, LATERAL_RANGE clamped, and rewrites its box when it changed.
void applyRange(std::int32_t rangeNm);
// The range from the user's state as the simulator link last delivered it, and the first park airport.
void autoRange();

void resetMainLoopState();

} // namespace ory
