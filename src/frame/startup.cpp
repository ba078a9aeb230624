#include "frame/startup.h"

#include "base/exceptions.h"
#include "base/log.h"
#include "base/parameters.h"
#include "base/paths.h"
#include "base/run.h"
#include "base/version.h"
#include "engine/engine.h"
#include "engine/flight_plans.h"
#include "engine/geometry.h"
#include "engine/tables.h"
#include "feed/feed.h"
#include "feed/inbox.h"
#include "feed/traffic_link.h"
#include "frame/main_loop.h"
#include "frame/window.h"
#include "frame/window_commands.h"
#include "liveries/dbase.h"
#include "liveries/fixes.h"
#include "liveries/liveries_scan.h"
#include "os/registry.h"
#include "parking/airport_database.h"
#include "parking/park_airports.h"
#include "scenery/scenery_scan.h"
#include "simlink/session.h"
#include "simlink/user_aircraft.h"
#include "updates/download.h"
#include "updates/updates.h"

#include <fmt/format.h>

#include <chrono>
#include <ctime>
#include <filesystem>
#include <thread>

namespace ory {

namespace {

using namespace std::chrono_literals;
namespace fs = std::filesystem;

constexpr std::string_view p3dKey = "SOFTWARE\\Lockheed Martin\\Prepar3D v";

bool lf_stopWanted() {
  return exiting || userClosed;
}

void lf_requireProgramFolder() {
  std::error_code error;
  const fs::file_status status = fs::status(docsFolder, error);
  if (error && error != std::errc::no_such_file_or_directory)
    throw fs::filesystem_error("status", docsFolder, error);
  if (!fs::is_directory(status))
    throw UserErrorException(41, fmt::format("{} must be run from the {} folder!", programName, programName));
}

void lf_makeDataTree() {
  for (const fs::path& folder :
       {outputFolder, infoFolder, errorsFolder, airportsFolder, learnedFolder, learnedFolder / stockWord,
        learnedFolder / orbxWord, learnedFolder / thirdpartyWord})
    fs::create_directories(folder);
}

bool lf_anyFolderParameter() {
  for (const auto* folders : {&lfolder, &afolder})
    for (const TextParameter& folder : *folders)
      if (!folder.value.empty()) return true;
  return false;
}

void lf_detectSimulatorInRegistry() {
  const auto present = [](char version) {
    return registryKeyExists(RegistryRoot::localMachine, fmt::format("{}{}", p3dKey, version));
  };
  detectSimulator(present('4'), present('5'), present('6'));
}

void lf_logSinceLastRun() {
  const std::string text =
      sinceLastRunText(static_cast<std::int64_t>(std::time(nullptr)) - LAST_EPOCH_TIME.value);
  if (!text.empty()) logLine(text);
}

std::int32_t lf_countFiles(const fs::path& folder) {
  std::error_code error;
  std::int32_t count = 0;
  for (fs::directory_iterator it(folder, error), end; !error && it != end; it.increment(error))
    if (it->is_regular_file()) ++count;
  return count;
}

// The aircraft data stay unchanged for the process: a restart does not read them again.
bool lf_aircraftDataRead = false;

void lf_readAircraftDataOnce() {
  if (lf_aircraftDataRead) return;
  readDbase();
  readFixes();
  lf_aircraftDataRead = true;
}

void lf_initialise() {
  lf_makeDataTree();
  loadParameters();
  if (MAX_LIVE.value == MAX_LIVE.defaultValue) clearEdit(MAX_LIVE);
  enableStartUpControls();
  PROGRAM_INSTALL_PATH.value = fs::current_path().string();
  storeText(PROGRAM_INSTALL_PATH);
  updateNowSlot();
  checkDataAtStart(updateServer);
  lf_readAircraftDataOnce();
  const std::string checkedBefore = DATA_CHECKED_AT_DATE.value;
  checkDataOfTheDay(updateServer);
  display.archiveWeek = versionOrZero(ARCHIVE_VERSION.value).major;
  if (SIM_INSTALL_PATH.value.empty()) lf_detectSimulatorInRegistry();
  detectRealTraffic();
  enableRemainingControls();
  if (DATA_CHECKED_AT_DATE.value == checkedBefore) enableControl(checkVersionButton, true);
  MAX_FIT_FL.value = maxFitHours(MAX_FIT.value);
  showFloat(MAX_FIT_FL);
  readAirports();
  flushLog();
}

void lf_startUpTrovalyn() {
  try {
    disableAllControls();
    lf_requireProgramFolder();
    lf_initialise();
    lf_logSinceLastRun();
    fs::create_directories(myRegcodesFolder);
    checkStockAirportsPath();
    scanWorkerLimit = static_cast<std::int32_t>(std::max(1u, std::thread::hardware_concurrency()));
    scanWorkers = 0;
    if (!fs::exists(liveriesScannedFile) && !SCAN_LIVERIES.value) {
      showMessage(fmt::format("File {} is gone, rescan liveries", liveriesScannedFile.string()), true);
      SCAN_LIVERIES.value = true;
      storeBool(SCAN_LIVERIES);
      showBool(SCAN_LIVERIES);
    }
    runLiveriesStep();
    if (lf_stopWanted()) return;
    runAirportsStep();
    display.thirdpartyAirportCount = lf_countFiles(myThirdpartyFolder);
    display.orbxAirportCount = lf_countFiles(myOrbxFolder);
    if (lf_stopWanted()) {
      requestExit(ExitReason::userClosedSim, 1);
      return;
    }
    startRun();
  } catch (...) {
    reportException("lf_startUpTrovalyn");
  }
}

// Polls condition every period; false when an exit came first.
template <typename Condition>
bool lf_waitFor(Condition condition, std::chrono::milliseconds period) {
  while (!condition()) {
    if (lf_stopWanted()) return false;
    std::this_thread::sleep_for(period);
  }
  return !lf_stopWanted();
}

// The simulator thread, then its first data: the on-ground state every simulator second (the slow beat of the
// main loop) and a known position of the user.
bool lf_waitForSimulator() {
  detectedSimVersion = simulatorVersion(SIM_INSTALL_PATH.value);
  startRunThread(RunThread::simulator, simThread);
  if (!lf_waitFor([] { return simRunning.load(); }, 100ms)) return false;
  requestUserOnGround();
  const auto positionKnown = [] {
    const UserAircraft user = readUserAircraft();
    return !isNullPosition(user.lat, user.lon);
  };
  if (!lf_waitFor(
          [&] {
            if (userOnGroundKnown && positionKnown()) return true;
            requestUserPosition();
            return false;
          },
          500ms))
    return false;
  requestUserIdentity();
  return lf_waitFor(positionKnown, 200ms);
}

// Waits for RealTraffic and its version; only the UDP feed in the Aerowinx mode or with RealTraffic
// elsewhere.
void lf_linkRealTraffic() {
  if (rtDetected && !AEROWINX.value)
    openServer(PORT_NUMBER.value);
  else
    display.rtLinkUp = true;
  if (AUTO_RANGE.value) {
    autoRange();
    enableControl(LATERAL_RANGE, false);
  }
  if (lf_stopWanted()) return;
  display.trafficMark = FeedMark::notConnected;
  if (AEROWINX.value) {
    rtProfessional = false;
    return;
  }
  handshake();
  if (rtProfessional) sendSimTime();
}

void lf_startReaders() {
  setQueueOpen(false);
  startReaderThread(qnhReader, weatherPort);
  std::this_thread::sleep_for(2s);
  startReaderThread(trafficReader, trafficPort);
  const UserPosition user = userPosition();
  sendUserPosition(user);
  setReaderUserPosition(user.lat, user.lon);
  if (readerError) {
    showError("Reader error");
    requestExit(ExitReason::systemError, 0);
  }
}

void lf_waitForFirstTraffic() {
  for (int round = 0; round < 150 && lastFeedTime == 0 && !lf_stopWanted(); ++round)
    std::this_thread::sleep_for(100ms);
  if (lastFeedTime == 0 && !lf_stopWanted()) logLine("No traffic in this region?");
}

// The text of the exception in hand, in the error line.
void lf_showCaught() {
  try {
    throw;
  } catch (const std::exception& e) {
    showError(e.what());
  } catch (...) {
    showError("Unknown exception");
  }
}

} // namespace

void launchStartUp() {
  startCountedThread(lf_startUpTrovalyn);
}

void startRun() {
  try {
    setTopmost(ALWAYS_ON_TOP.value);
    prepareFlightPlanFolder();
    display.simConnected = false;
    display.rtLinkUp = false;
    if (!lf_waitForSimulator()) return;
    readParkAirports();
    enableControl(reReadButton, true);
    flushLog();
    lf_linkRealTraffic();
    if (lf_stopWanted()) return;
    lf_startReaders();
    lf_waitForFirstTraffic();
    if (lf_stopWanted()) return; // an exit began meanwhile: no main loop for it to miss
    updateNowSlot();
    checkParkAirport(true);
    flushLog();
    reserveEngineTables();
    setTrafficLostAction(removeAllLive);
    startRunThread(RunThread::mainLoop, mainLoopThread);
  } catch (...) {
    // Whatever went wrong here, even a user's error, leaves no run to go on with.
    lf_showCaught();
    if (rtConnected) {
      closeLink();
      display.rtLinkUp = false;
    }
    requestExit(ExitReason::systemError, 0);
  }
}

void detectSimulator(bool v4Present, bool v5Present, bool v6Present) {
  const int sum = (v5Present ? 5 : 0) + (v6Present ? 6 : 0);
  if (sum == 11)
    throw UserErrorException(
        153,
        "More than one P3D version detected, type full Install Path to wanted version above and press Enter");
  if (sum == 0) {
    showMessage("P3D not detected?", false);
    if (lf_anyFolderParameter()) return;
    clearEdit(SIM_INSTALL_PATH);
    throw UserErrorException(151,
                             "No P3D install path detected, type full Install Path above, and press Enter");
  }
  (void)v4Present; // v4 alone counts as not detected
  logLine(sum == 5 ? "P3Dv5detected" : "P3Dv6detected");
  const auto path =
      readRegistryText(RegistryRoot::localMachine, fmt::format("{}{}", p3dKey, sum), "SetupPath");
  if (!path || path->empty()) {
    clearEdit(SIM_INSTALL_PATH);
    throw UserErrorException(151,
                             "No P3D install path detected, type full Install Path above, and press Enter");
  }
  SIM_INSTALL_PATH.value = *path;
  storeText(SIM_INSTALL_PATH);
  showText(SIM_INSTALL_PATH);
}

std::string sinceLastRunText(std::int64_t rawSeconds) {
  const auto plural = [](std::int64_t n) { return n == 1 || n < 0 ? "" : "s"; };
  if (rawSeconds < 60) return fmt::format("{} second{} since last run", rawSeconds, plural(rawSeconds));
  const std::int64_t minutes = rawSeconds / 60;
  if (minutes >= 524160) return {};
  const std::int64_t seconds = rawSeconds % 60;
  return fmt::format("{} minute{} and {} second{} since last run", minutes, plural(minutes), seconds,
                     plural(seconds));
}

} // namespace ory
