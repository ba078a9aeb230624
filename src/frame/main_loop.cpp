#include "frame/main_loop.h"

#include "base/log.h"
#include "base/parameters.h"
#include "base/run.h"
#include "engine/conflicts.h"
#include "engine/engine.h"
#include "engine/flight_plans.h"
#include "engine/tables.h"
#include "feed/feed.h"
#include "feed/inbox.h"
#include "feed/traffic_link.h"
#include "frame/window.h"
#include "liveries/matching.h"
#include "os/timer.h"
#include "parking/park_airports.h"
#include "parking/parked_aircraft.h"
#include "parking/static_parking.h"
#include "simlink/batches.h"
#include "simlink/user_aircraft.h"

#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <thread>

namespace ory {

std::atomic<std::int32_t> secondCount{0};
std::atomic<std::int32_t> pauseCountdown{0};
std::atomic<bool> flightPaused{false};

namespace {

constexpr std::int32_t secondsPerDay = 86400;

bool lf_aMarkIsStale() {
  return display.trafficMark == FeedMark::stale || display.weatherMark == FeedMark::stale;
}

// "Re-read": the park airports are read again here once this program loads them; the button comes back when
// the work is done.
// The counts of the window's status band, from the tables this thread owns.
void lf_updateWindowStatistics() {
  display.liveCount = static_cast<std::int32_t>(liveAircraft.size());
  display.parkedCount = static_cast<std::int32_t>(parkedAircraft.size());
  display.parkedLiveCount = static_cast<std::int32_t>(std::count_if(
      liveAircraft.begin(), liveAircraft.end(), [](const LiveAircraft& a) { return a.phase == Parked; }));
  display.wantedStands = wantedStands;
  repaintWindow();
}

void lf_pausedPass() {
  if (!flightPaused) {
    // Traffic that arrives during the pause is dropped by the reader.
    setQueueOpen(false);
    flightPaused = true;
    pauseCountdown = 100;
    {
      // Positions of before the pause would set the aircraft back when it ends.
      std::lock_guard lock(batchLock);
      positionBatch.engineHalf.clear();
      positionBatch.simulatorHalf.clear();
    }
    logLine(fmt::format("{} Flight not running", timeOfDay()));
  }
  workOffSimCommands();
  if (--pauseCountdown > 0) return;
  serveReRead();
  // Also how a RealTraffic lost during the pause is noticed.
  sendUserPosition(userPosition());
  lf_updateWindowStatistics();
  updateNowSlot();
  pauseCountdown = 100;
}

void lf_every5Seconds() {
  const UserPosition user = userPosition();
  setReaderUserPosition(user.lat, user.lon);
  if (rtProfessional) sendSimTime();
  clearReservedStand();
  serveReRead();
}

void lf_runJobs(const DueJobs& jobs) {
  if (jobs.every5) lf_every5Seconds();
  if (jobs.every15 && lf_aMarkIsStale()) feedWatchdog();
  serveRenewal(jobs.s);
  if (jobs.every30) {
    serveNoMatchClear();
    if (AUTO_RANGE.value) autoRange();
    if (readerError) {
      showError("1001: RT error");
      requestExit(ExitReason::systemError, 0);
    }
    flushLog();
  }
  if (jobs.every60) display.minutesToRenewal = 20 - ((jobs.s / 60) % 20);
  if (jobs.every1200) writeNoMatchList();
  if (jobs.daily) {
    writeMatchingSummary();
    flightPlanBookkeeping();
  }
  if (jobs.every16 && !renewalCollecting) checkParkAirport(false);
  if (jobs.every59) feedWatchdog();
  if (jobs.every61 && !parkedAircraft.empty()) sweepDuplicates();
}

// A lowered MAX_LIVE, from the window or the start, takes effect at the next second.
void lf_applyLiveLimit() {
  static std::int32_t applied = MAX_LIVE.maximum;
  const std::int32_t limit = MAX_LIVE.value;
  if (limit < applied) enforceMaxLive();
  applied = limit;
}

void lf_secondPass() {
  if (flightPaused) {
    flightPaused = false;
    logLine(fmt::format("{} Flight resumed", timeOfDay()));
    setQueueOpen(true);
  }
  ++messageClock;
  ageMessage();
  lf_updateWindowStatistics();
  updateNowSlot();
  lf_applyLiveLimit();
  serveNewLiveHexid();
  serveFlush();
  avoidUserCollisions();
  avoidLiveParkedCollisions();
  serveBlockedCallsign();
  serveNavLights();
  lf_runJobs(advanceSecond(secondCount));
}

} // namespace

DueJobs advanceSecond(std::atomic<std::int32_t>& counter) {
  DueJobs jobs;
  jobs.s = ++counter;
  const std::int32_t s = jobs.s;
  jobs.every5 = s % 5 == 0;
  jobs.every15 = s % 15 == 0;
  jobs.every30 = s % 30 == 0;
  jobs.every60 = s % 60 == 0;
  jobs.every1200 = s % 1200 == 0;
  jobs.daily = s % secondsPerDay == 0;
  if (jobs.daily) {
    counter = 0;
    jobs.s = 0;
  }
  jobs.every16 = jobs.s % 16 == 0;
  jobs.every59 = jobs.s % 59 == 0;
  jobs.every61 = jobs.s % 61 == 0;
  return jobs;
}

void ageMessage() {
  const std::int32_t stamp = messageStamp;
  if (stamp >= 1 && messageClock - stamp >= 25) clearMessage();
}

void mainLoop() {
  if (!simRunning) {
    lf_pausedPass();
    return;
  }
  engineTick();
  // One step of a running static parking calculation a pass, so that it never holds the beat.
  stepStaticParking();
  bool expected = true;
  if (!secondTick.compare_exchange_strong(expected, false)) return;
  lf_secondPass();
}

void mainLoopThread(std::stop_token stop) {
  try {
    feedWatchdog();
    flushLog();
    secondCount = 0;
    using Clock = std::chrono::steady_clock;
    constexpr auto period = std::chrono::nanoseconds(10'000'000);
    auto next = Clock::now() + period;
    updateNowSlot();
    setQueueOpen(true);
    const TimerPeriod millisecondSleeps;
    while (!stop.stop_requested()) {
      mainLoop();
      if (next - Clock::now() >= std::chrono::milliseconds(1)) std::this_thread::sleep_until(next);
      // A fixed grid that catches up after a long pass, laid anew at each simulator second.
      next = secondTick ? Clock::now() + period : next + period;
    }
  } catch (...) {
    reportException("mainLoop");
  }
}

std::int32_t autoRangeFor(bool onGround, double altitudeFt, double distanceNm) {
  if (onGround) return 8;
  if (altitudeFt > AIRPORT_HEIGHT.value) return 40;
  if (distanceNm <= 5) return 8;
  if (distanceNm < 37) return static_cast<std::int32_t>(std::lround(distanceNm)) + 3;
  return 40;
}

void applyRange(std::int32_t newRangeNm) {
  setRange(newRangeNm);
  const std::int32_t before = LATERAL_RANGE.value;
  LATERAL_RANGE.set(newRangeNm);
  if (LATERAL_RANGE.value != before) showInt(LATERAL_RANGE);
}

void autoRange() {
  const UserAircraft user = readUserAircraft();
  applyRange(autoRangeFor(userOnGround, user.aboveGround, firstParkAirportDistance(user.lat, user.lon)));
}

void resetMainLoopState() {
  secondTick = false;
  flightPaused = false;
  secondCount = 0;
  pauseCountdown = 0;
  renewalPending = false;
  renewalCollecting = false;
  flushPending = false;
  blockPending = false;
  clearNoMatchPending = false;
  reReadPending = false;
  navLightsPending = false;
}

} // namespace ory
