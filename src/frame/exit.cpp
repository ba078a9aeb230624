#include "base/exceptions.h"
#include "base/log.h"
#include "base/parameters.h"
#include "base/run.h"
#include "base/version.h"
#include "engine/engine.h"
#include "engine/flight_plans.h"
#include "engine/tables.h"
#include "feed/feed.h"
#include "feed/inbox.h"
#include "feed/traffic_link.h"
#include "frame/main_loop.h"
#include "frame/window.h"
#include "liveries/matching.h"
#include "parking/airport_file.h"
#include "parking/park_airports.h"
#include "parking/stands.h"
#include "simlink/session.h"
#include "simlink/user_aircraft.h"

#include <fmt/format.h>

#include <chrono>
#include <thread>

namespace ory {

namespace {

using namespace std::chrono_literals;

bool lf_isRestart(ExitReason reason) {
  return reason == ExitReason::restart || reason == ExitReason::restartIpp;
}

// Only this thread left, or about 10 seconds: a hung thread is left behind.
void lf_waitForThreads() {
  for (int round = 0; round < 101 && threadCount.load() >= 2; ++round)
    std::this_thread::sleep_for(100ms);
}

void lf_resetForRestart(ExitReason reason) {
  clearError();
  resetFeed();
  clearTrafficInbox(); // records of the run that ended
  if (reason != ExitReason::restartIpp) {
    SCAN_LIVERIES.value = false;
    storeBool(SCAN_LIVERIES);
    SCAN_AIRPORTS.value = false;
    storeBool(SCAN_AIRPORTS);
  }
  resetRunState();
  resetMainLoopState();
  resetSimLink();
  userStateReset();
  // Here rather than in userStateReset, which the simulator thread also runs while the main loop may tick.
  resetEngine();
  resetStands();
  forgetParkAirports();
  exiting = false;
  LATERAL_RANGE.set(LATERAL_RANGE.value);
  setRange(LATERAL_RANGE.value);
  resetDisplay();
}

// A new exit during the countdown (the run state is reset, so the user can close again) ends it early.
void lf_countDown(int seconds) {
  if (seconds <= 0) return;
  logLine(fmt::format("Restarting after {} seconds\n\n\n\n", seconds));
  for (int left = seconds; left > 0; --left) {
    if (exiting || userClosed) return;
    showMessage(fmt::format("Restarting after {} second{}", left, left == 1 ? "" : "s"), false);
    std::this_thread::sleep_for(1s);
  }
}

// The exit's work; true when it is to post its message, false when a later exit has taken over.
bool lf_exitSteps(ExitReason reason, int seconds) {
  const CountedScope counted;
  try {
    logLineFlushed(fmt::format("Exiting: {}", exitReasonText(reason)));
    if (reason == ExitReason::restart) showMessage("Prepare for a restart ...", false);
    std::this_thread::sleep_for(300ms);
    // Closed sockets end the readers' and the link's waits.
    stopReaders();
    closeLink();
    if (reason == ExitReason::systemError) std::this_thread::sleep_for(5s);
    if (reason == ExitReason::userClosedSim) {
      logLine(fmt::format("User closed {}", programName));
      userClosed = true;
    }
    stopRunThreads();
    gf_removeFlightPlanFolder();
    if (!lf_isRestart(reason)) {
      BLOCK_CALLSIGN.value.clear();
      storeText(BLOCK_CALLSIGN);
      writeMatchingSummary();
      writeNoMatchList();
    }
    lf_waitForThreads();
    // The stands belong to the main loop: saved once it has ended, or given up waiting for.
    closeParkAirport();
    // The ghosts refused stay refused over a restart, not beyond the run of the program.
    if (!lf_isRestart(reason)) ghostCallsigns.clear();
    if (lf_isRestart(reason)) {
      lf_resetForRestart(reason);
      lf_countDown(seconds);
      // An exit that began during the countdown has the last word.
      if (exiting) return false;
    }
  } catch (...) {
    reportException("FinalExit");
  }
  exiting = false;
  flushLog();
  return true;
}

// Posting is the last act: once the end message is in, the process may be gone.
void lf_finalExit(int seconds) {
  const ExitReason reason = exitReason;
  if (lf_exitSteps(reason, seconds) && windowExists())
    postWindowMessage(lf_isRestart(reason) ? startMessage : endMessage);
}

} // namespace

void requestExit(ExitReason reason, int seconds) {
  bool expected = false;
  if (!exiting.compare_exchange_strong(expected, true)) return;
  exitReason = reason;
  // Counted before the start like every thread, and given back before the end message is posted.
  threadCount.fetch_add(1);
  std::thread(lf_finalExit, seconds).detach();
}

void reportException(std::string_view where) {
  try {
    throw;
  } catch (const UserErrorException& e) {
    showError(e.what());
  } catch (const fmt::format_error& e) {
    showError(fmt::format("std::format error: {}", e.what()));
  } catch (const std::exception& e) {
    showError(fmt::format("{}: {}", where, e.what()));
    requestExit(ExitReason::systemError, 0);
  } catch (...) {
    showError("Unknown exception");
  }
}

} // namespace ory
