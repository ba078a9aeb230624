#include "scenery/scenery_scan.h"

#include "base/display.h"
#include "base/exceptions.h"
#include "base/log.h"
#include "base/parameters.h"
#include "base/paths.h"
#include "base/run.h"
#include "liveries/text_tokens.h"
#include "os/utf.h"
#include "scenery/bgl.h"
#include "scenery/generated_files.h"
#include "scenery/scan_log.h"
#include "simlink/session.h"

#include <fmt/format.h>

#include <algorithm>
#include <deque>
#include <future>

namespace ory {

namespace {

namespace fs = std::filesystem;

// Where the offline folder goes: the maintainer of the airport archive learns its airports from real traffic.
constexpr std::string_view archiveMaintainer = "airports@trovalyn-p3d.example";

bool lf_stopWanted() {
  return exiting || userClosed;
}

void lf_scanWorker(const fs::path& file, const fs::path& folder) {
  try {
    readBgl(file);
  } catch (const std::exception& error) {
    scanLog(fmt::format("{} airports search in folder {} aborted, cause: {}", pathText(file),
                        pathText(folder), error.what()));
  } catch (...) {
    scanLog(fmt::format("{} airports search in folder {} aborted, cause: unknown", pathText(file),
                        pathText(folder)));
  }
  --scanWorkers;
}

void lf_waitOldest(std::deque<std::future<void>>& futures, const fs::path& folder) {
  std::future<void> oldest = std::move(futures.front());
  futures.pop_front();
  if (!oldest.valid()) {
    scanLog(fmt::format("{}futs #1 not yet valid ? ...", warningPrefix));
    return;
  }
  try {
    oldest.get();
  } catch (const std::exception& error) {
    scanLog(fmt::format("{} airports search in {} aborted, futs outer error: {}", timeOfDay(),
                        pathText(folder), error.what()));
  }
}

bool lf_isAirportFile(const fs::directory_entry& entry) {
  std::error_code error;
  if (!entry.is_regular_file(error) || !isBgl(entry.path())) return false;
  const std::string text = pathText(entry.path());
  if (text.find("statics") != std::string::npos || text.find("_heliports") != std::string::npos) return false;
  return hasAirportSection(entry.path());
}

void lf_iteratorProblem(const fs::path& folder, std::string_view where, const std::error_code& error) {
  logLine(fmt::format("{} airports search in folder {} aborted because of iterator problem: {} {}",
                      timeOfDay(), pathText(folder), where, error.message()));
}

bool lf_usableFolder(const fs::path& folder) {
  std::error_code error;
  if (!fs::exists(folder, error)) {
    logLine(pathText(folder) + " does not exist, skipped!");
    return false;
  }
  if (!fs::is_directory(folder, error)) {
    logLine(pathText(folder) + " is not a folder name, skipped!");
    return false;
  }
  return true;
}

std::vector<fs::path> lf_foldersToScan() {
  std::vector<fs::path> folders;
  if (!AFG_AUTOMATIC.value) {
    for (const TextParameter& folder : afolder)
      if (!folder.value.empty()) folders.push_back(utf8ToPath(folder.value));
    return folders;
  }
  const std::int32_t version = simulatorVersion(SIM_INSTALL_PATH.value);
  for (auto* read : {&readSceneryCfg, &readSceneryAddOns})
    for (SceneryArea& area : read(version))
      folders.push_back(std::move(area.path));
  return folders;
}

std::int32_t lf_countFiles(const fs::path& folder) {
  std::error_code error;
  std::int32_t count = 0;
  for (fs::directory_iterator it(folder, error), end; !error && it != end; it.increment(error))
    if (it->is_regular_file(error)) ++count;
  return count;
}

// Generated files hold stands the archive doesn't know yet; sent to its maintainer they come back with
// statistics.
std::int32_t lf_copyForLearning(const fs::path& from, const fs::path& to, std::string_view allDone) {
  std::int32_t copied = 0;
  std::error_code error;
  for (fs::directory_iterator it(from, error), end; !error && it != end; it.increment(error)) {
    if (it->path().extension() != ".xml") continue;
    const fs::path target = to / it->path().filename();
    std::error_code copyError;
    if (fs::copy_file(it->path(), target, fs::copy_options::overwrite_existing, copyError)) {
      logLine(fmt::format("{} copied to {}", pathText(it->path()), pathText(target)));
      ++copied;
    } else {
      showMessage(fmt::format("failed to copy {}", pathText(it->path())), false);
      logLine(fmt::format("\"{}\" failed to copy \"{}\"", copyError.message(), pathText(it->path())));
    }
  }
  if (copied == 0) logLine(allDone);
  return copied;
}

void lf_prepareOfflineLearning() {
  const fs::path folder = toBeLearnedOfflineWord;
  std::error_code error;
  fs::remove_all(folder, error);
  fs::create_directories(folder, error);
  const std::int32_t copied =
      lf_copyForLearning(myThirdpartyFolder, folder,
                         "All your third party airports are done, no off line learning needed.") +
      lf_copyForLearning(myOrbxFolder, folder,
                         "All your ORBX airports are done, no off line learning needed.");
  display.tbloAirportCount = copied;
  if (copied == 0) {
    fs::remove_all(folder, error);
    return;
  }
  logLine(fmt::format(
      "{} airport{} can't be filled from the archive yet. Please zip the folder {} and mail it to {}: "
      "they will be learned offline and come back with the next archive.",
      copied, copied == 1 ? "" : "s", pathText(fs::absolute(folder, error)), archiveMaintainer));
}

void lf_checkFolderParameters() {
  bool any = false;
  for (const TextParameter& folder : afolder) {
    if (folder.value.empty()) continue;
    any = true;
    if (isInStockAirports(utf8ToPath(folder.value)))
      throw UserErrorException(
          42, fmt::format("parameter {} points to stock airports instead of add-on airports!", folder.name));
  }
  if (!any)
    throw UserErrorException(49, "Set afolder parameter(-s) to your add-on airports first, see Manual 6.1");
}

void lf_emptyUserFolders() {
  for (const fs::path& folder : {myOrbxFolder, myThirdpartyFolder}) {
    std::error_code error;
    fs::create_directories(folder, error);
    for (fs::directory_iterator it(folder, error), end; !error && it != end; it.increment(error)) {
      std::error_code removeError;
      fs::remove_all(it->path(), removeError);
      if (removeError) logLine(pathText(it->path()) + " could not be removed");
    }
  }
}

} // namespace

bool scanFolder(const fs::path& folder) {
  if (isInStockAirports(folder)) { // its airports come with the archive
    logLine(fmt::format("{} is stock scenery, skipped", pathText(folder)));
    return true;
  }
  logLine(fmt::format("Scanning for addon airports in {}", pathText(folder)));
  const auto limit = static_cast<std::size_t>(std::max(1, scanWorkerLimit.load()));
  std::deque<std::future<void>> futures;
  std::error_code error;
  fs::recursive_directory_iterator it(folder, fs::directory_options::skip_permission_denied, error);
  if (error) lf_iteratorProblem(folder, "recursive_directory_iterator::recursive_directory_iterator", error);
  bool stopped = false;
  for (const fs::recursive_directory_iterator end; !error && it != end; it.increment(error)) {
    if (lf_stopWanted()) {
      stopped = true;
      break;
    }
    std::error_code kindError;
    if (it->is_directory(kindError)) {
      if (isInStockAirports(it->path())) it.disable_recursion_pending();
      continue;
    }
    if (!lf_isAirportFile(*it)) continue;
    while (futures.size() >= limit)
      lf_waitOldest(futures, folder);
    ++scanWorkers;
    futures.push_back(std::async(std::launch::async, lf_scanWorker, it->path(), folder));
  }
  if (error && !stopped) lf_iteratorProblem(folder, "recursive_directory_iterator::operator++", error);
  while (!futures.empty())
    lf_waitOldest(futures, folder);
  return !stopped;
}

AirportsScan scanAirports(bool forced) {
  AirportsScan outcome;
  if (!forced && !SCAN_AIRPORTS.value) return outcome;
  const fs::path logPath = infoFolder / "AirportsScanLog.txt";
  std::error_code error;
  fs::remove(logPath, error);
  if (error) logLine("problems with removing previous files (maybe still open?)");
  linkedAirports = 0;
  scanWorkers = 0;
  clearScanLog();
  for (const fs::path& folder : lf_foldersToScan()) {
    if (!lf_usableFolder(folder)) continue;
    if (!scanFolder(folder) || lf_stopWanted()) return outcome;
  }
  fs::create_directories(infoFolder, error);
  if (writeScanLog(logPath)) logLine(pathText(logPath) + " written");
  display.thirdpartyAirportCount = lf_countFiles(myThirdpartyFolder);
  display.orbxAirportCount = lf_countFiles(myOrbxFolder);
  outcome.airportFiles = display.thirdpartyAirportCount + display.orbxAirportCount;
  lf_prepareOfflineLearning();
  if (linkedAirports > 0) logLine("Airports scan successful");
  outcome.completed = true;
  return outcome;
}

void runAirportsStep() {
  if (!SCAN_AIRPORTS.value) return;
  const bool automatic = AFG_AUTOMATIC.value;
  if (!automatic) lf_checkFolderParameters();
  lf_emptyUserFolders();
  showMessage("Scanning for addon airports ...", false);
  logLine(fmt::format("\n++++++++++++++++++++++++ airports scan {} starts +++++++++++++++++++++++++++++",
                      automatic ? "automatic" : "manual"));
  const AirportsScan scan = scanAirports(false);
  if (scan.completed && scan.airportFiles == 0) logLine("Warning: Scan has not found any add-on airports");
  logLine("-------------------------- airports scan ends    ----------------------------\n");
  flushLog();
  if (!scan.completed) return;
  SCAN_AIRPORTS.value = false;
  storeBool(SCAN_AIRPORTS);
  showBool(SCAN_AIRPORTS);
}

void checkStockAirportsPath() {
  const fs::path stock = stockAirportsPath();
  std::error_code error;
  if (stock.empty() || fs::is_directory(stock, error)) return;
  showMessage(fmt::format("Stock airports path does not exist: {}", pathText(stock)), true);
}

} // namespace ory
