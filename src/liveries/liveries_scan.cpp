#include "liveries/liveries_scan.h"

#include "base/display.h"
#include "base/exceptions.h"
#include "base/log.h"
#include "base/parameters.h"
#include "base/paths.h"
#include "base/run.h"
#include "base/text_files.h"
#include "liveries/addon_folders.h"
#include "liveries/aircraft_cfg.h"
#include "liveries/dbase.h"
#include "liveries/livery_table.h"
#include "liveries/matching.h"
#include "liveries/regcodes.h"
#include "liveries/text_tokens.h"
#include "os/utf.h"
#include "simlink/session.h"

#include <fmt/format.h>
#include <pugixml.hpp>

#include <algorithm>
#include <deque>
#include <future>
#include <iterator>

namespace ory {

std::vector<LiveryData> scannedLiveries;

namespace {

namespace fs = std::filesystem;

constexpr std::uint32_t lastFolderIndex = 10;
constexpr std::size_t maxDescentLength = 250; // characters of a folder path the walk goes into

const fs::path invalidAirlinesFile = errorsFolder / "InvalidAirlineCodes.txt";
const fs::path invalidModelsFile = errorsFolder / "InvalidAircraftCodes.txt";
const fs::path fixesFile = errorsFolder / "Fixes.txt";
const fs::path invalidFilesFile = errorsFolder / "InvalidAircraftCfgFiles.txt";
const fs::path incompleteFile = errorsFolder / "IncompleFltsimSections.txt";
const fs::path inlineRegcodesFile = errorsFolder / "InlineRegcodes.txt";
const fs::path noSectionFile = infoFolder / "AircraftCfgWithNoFltsimSection.txt";
const fs::path conversionsFile = infoFolder / "AirlineModelConversions.txt";
const fs::path priorityFile = infoFolder / "LiveriesSkippedOnPriority.txt";
const fs::path airlineDataFile = infoFolder / "AirlineData.txt";

bool lf_loaded = false; // the tables are built; a restart keeps them

std::string_view lf_plural(std::size_t count) {
  return count > 1 ? "s" : "";
}

bool lf_stopWanted() {
  return exiting || userClosed || readerError;
}

void lf_removeOutputs() {
  for (const fs::path& file : {airlineDataFile, noSectionFile, priorityFile, conversionsFile,
                               liveriesScannedFile, invalidAirlinesFile, invalidModelsFile, fixesFile,
                               invalidFilesFile, incompleteFile, inlineRegcodesFile}) {
    std::error_code error;
    fs::remove(file, error);
    if (error)
      logLine(fmt::format("problems with removing previous files: {}: {}", pathText(file), error.message()));
  }
}

// Writes lines, one a line, when there are any; their number.
std::size_t lf_writeList(const fs::path& file, std::vector<std::string> lines, bool sort) {
  if (lines.empty()) return 0;
  if (sort) std::sort(lines.begin(), lines.end());
  std::string text;
  for (const std::string& line : lines)
    text.append(text.empty() ? "" : "\n").append(line);
  if (!writeText(text, file)) logWarning(fmt::format("could not write {}", pathText(file)));
  return lines.size();
}

bool lf_isLiveryFile(const fs::path& path) {
  std::string extension = pathText(path.extension());
  std::string stem = pathText(path.stem());
  for (std::string* text : {&extension, &stem})
    std::transform(text->begin(), text->end(), text->begin(),
                   [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
  return extension == ".CFG" && (stem == "AIRCRAFT" || stem == "SIM");
}

// Characters as Windows counts them: UTF-16 units.
std::size_t lf_utf16Length(std::string_view utf8) {
  std::size_t units = 0;
  for (const char c : utf8) {
    const auto byte = static_cast<unsigned char>(c);
    units += (byte & 0xC0) != 0x80 ? 1 : 0;
    units += byte >= 0xF0 ? 1 : 0;
  }
  return units;
}

using Future = std::future<std::vector<LiveryData>>;

std::vector<LiveryData> lf_worker(bool ivao, std::uint32_t folderIndex, fs::path path) {
  struct Done {
    ~Done() { scanWorkers.fetch_sub(1); }
  } done;
  return ivao ? lf_searchIvaoLiveriesinFile(folderIndex, path) : lf_searchLiveriesinFile(folderIndex, path);
}

void lf_collect(Future& future, std::string_view where) {
  if (!future.valid()) {
    logWarning(where == "inner" ? "futs #1 not yet valid ? ..." : "futs #1 not yet valid ...");
    return;
  }
  try {
    std::vector<LiveryData> found = future.get();
    scannedLiveries.insert(scannedLiveries.end(), std::make_move_iterator(found.begin()),
                           std::make_move_iterator(found.end()));
  } catch (const std::exception& e) {
    logWarning(fmt::format("liveries search aborted, futs {}, {}", where, e.what()));
  }
}

// One worker per file, held at scanWorkerLimit by the list of futures.
void lf_scanFolder(const fs::path& folder, std::uint32_t folderIndex) {
  std::deque<Future> futures;
  std::error_code error;
  fs::recursive_directory_iterator it(folder, fs::directory_options::skip_permission_denied, error);
  for (const fs::recursive_directory_iterator end; !error && it != end && !lf_stopWanted();
       it.increment(error)) {
    try {
      const fs::directory_entry& entry = *it;
      const std::string text = backslashPath(entry.path());
      if (entry.is_directory()) {
        if (text.find("airport") != std::string::npos || lf_utf16Length(text) >= maxDescentLength)
          it.disable_recursion_pending();
        continue;
      }
      if (!entry.is_regular_file() || !lf_isLiveryFile(entry.path())) continue;
      scanWorkers.fetch_add(1);
      // Deferred is the fall-back when no thread can be had: the file is then read when it is collected.
      futures.push_back(std::async(std::launch::async | std::launch::deferred, lf_worker, isIvaoPath(text),
                                   folderIndex, entry.path()));
      if (futures.size() > static_cast<std::size_t>(std::max(1, scanWorkerLimit.load()))) {
        lf_collect(futures.front(), "inner");
        futures.pop_front();
      }
    } catch (const std::exception& e) {
      logLine(fmt::format("liveries search in {} aborted, cause: {}", pathText(it->path()), e.what()));
    }
  }
  if (error)
    logLine(fmt::format("liveries search in folder {} aborted because of iterator problem: {}",
                        pathText(folder), error.message()));
  for (Future& future : futures)
    lf_collect(future, "outer");
}

// The database knows the real airframe behind a regcode better than the add-on maker.
std::vector<std::string> lf_correctFromDatabase() {
  std::vector<std::string> lines;
  for (LiveryData& livery : scannedLiveries) {
    if (livery.regcode.empty()) continue;
    const std::optional<DbaseRecord> record = lookupDbaseRecord(livery.regcode);
    if (!record) continue;
    if (livery.cargo != record->cargo) {
      lines.push_back(
          fmt::format("{:80} {} cargo {} => {}", livery.title, livery.regcode, livery.cargo, record->cargo));
      livery.cargo = record->cargo;
    }
    const std::string& airline = record->opr.empty() ? record->airl : record->opr;
    if (!airline.empty() && airline != livery.airline) {
      lines.push_back(
          fmt::format("{:80} {} airl {} => {}", livery.title, livery.regcode, livery.airline, airline));
      livery.airline = airline;
    }
    if (!record->type.empty() && record->type != livery.type) {
      lines.push_back(
          fmt::format("{:80} {} model {} => {}", livery.title, livery.regcode, livery.type, record->type));
      livery.type = record->type;
    }
  }
  return lines;
}

// The first folder that has an airline and type owns it: later folders' liveries of it are dropped.
std::vector<std::string> lf_dropByPriority() {
  TextMap<std::uint32_t> owner;
  for (const LiveryData& livery : scannedLiveries) {
    const auto [place, added] =
        owner.try_emplace(noMatchKey(livery.airline, livery.type), livery.folderIndex);
    if (!added) place->second = std::min(place->second, livery.folderIndex);
  }
  std::vector<std::string> lines;
  std::erase_if(scannedLiveries, [&](const LiveryData& livery) {
    const std::string key = noMatchKey(livery.airline, livery.type);
    if (owner.at(key) >= livery.folderIndex) return false;
    lines.push_back(fmt::format("{} \"{}\"", key, livery.title));
    return true;
  });
  return lines;
}

void lf_writeReports(const std::vector<std::string>& conversions, const std::vector<std::string>& skipped) {
  const auto shown = [](const fs::path& file) { return pathText(file); };
  std::vector<std::string> errors;
  if (const auto n = lf_writeList(invalidAirlinesFile, invalidAirlinesReport.lines(), true))
    errors.push_back(
        fmt::format("{} invalid airline code{}, see {}", n, lf_plural(n), shown(invalidAirlinesFile)));
  if (const auto n = lf_writeList(invalidModelsFile, invalidModelsReport.lines(), true))
    errors.push_back(
        fmt::format("{} invalid model code{}, see {}", n, lf_plural(n), shown(invalidModelsFile)));
  if (const auto n = lf_writeList(fixesFile, fixesReport.lines(), false))
    errors.push_back(fmt::format("{} code fixes, see {}", n, shown(fixesFile)));
  if (const auto n = lf_writeList(invalidFilesFile, invalidFilesReport.lines(), true))
    errors.push_back(fmt::format("{} invalid aircraft.cfg files, see {}", n, shown(invalidFilesFile)));
  if (const auto n = lf_writeList(incompleteFile, incompleteSectionsReport.lines(), true))
    errors.push_back(fmt::format("{} incomplete [fltsim.x] sections, see {}", n, shown(incompleteFile)));
  logLine(errors.empty() ? "\nNo errors" : "\nErrors:");
  for (const std::string& line : errors)
    logLine(line);
  logLine("\nInformation:");
  if (const auto n = lf_writeList(noSectionFile, noSectionFilesReport.lines(), true))
    logLine(fmt::format("{} empty aircraft.cfg files, see {}", n, shown(noSectionFile)));
  if (const auto n = lf_writeList(conversionsFile, conversions, true))
    logLine(
        fmt::format("{} liveries updated with real live data from dbase, see {}", n, shown(conversionsFile)));
  if (const auto n = lf_writeList(priorityFile, skipped, true))
    logLine(fmt::format("{} liverie{} skipped on priority, see {}", n, lf_plural(n), shown(priorityFile)));
}

// The report files of this scan that hold lines: the previous run's were removed before it.
std::string lf_seeReports() {
  std::string text;
  for (const fs::path& file :
       {invalidAirlinesFile, invalidModelsFile, fixesFile, invalidFilesFile, incompleteFile,
        inlineRegcodesFile, noSectionFile, conversionsFile, priorityFile}) {
    std::error_code error;
    if (fs::exists(file, error)) text += (text.empty() ? ", see " : ", ") + pathText(file);
  }
  return text;
}

void lf_sortAndUnique() {
  std::stable_sort(scannedLiveries.begin(), scannedLiveries.end(),
                   [](const LiveryData& a, const LiveryData& b) {
                     return std::tie(a.airline, a.type, a.regcode) < std::tie(b.airline, b.type, b.regcode);
                   });
  const auto same = [](const LiveryData& a, const LiveryData& b) {
    return a.airline == b.airline && a.type == b.type && a.title == b.title && a.regcode == b.regcode &&
           a.cargo == b.cargo;
  };
  scannedLiveries.erase(std::unique(scannedLiveries.begin(), scannedLiveries.end(), same),
                        scannedLiveries.end());
}

void lf_writeScanned() {
  pugi::xml_document document;
  pugi::xml_node root = document.append_child("liveries");
  for (const LiveryData& livery : scannedLiveries) {
    pugi::xml_node node = root.append_child("liv");
    node.append_attribute("airl") = livery.airline.c_str();
    node.append_attribute("type") = livery.type.c_str();
    if (livery.cargo) node.append_attribute("cargo") = "true";
    node.append_attribute("title") = livery.title.c_str();
    node.append_attribute("atcid") = livery.regcode.c_str();
  }
  if (!writeXmlFile(document, liveriesScannedFile))
    logWarning(fmt::format("could not save to \"{}\"", pathText(liveriesScannedFile)));
  logLine(fmt::format("{} liveries in {}", scannedLiveries.size(), pathText(liveriesScannedFile)));
}

void lf_scan(bool automatic, bool prioritize, std::vector<fs::path> folders) {
  lf_removeOutputs();
  readDontUseTitles();
  prepareScan();
  if (automatic) {
    const std::int32_t version = simulatorVersion(SIM_INSTALL_PATH.value);
    for (const fs::path& folder : addOnPackageFolders(version))
      folders.push_back(folder);
    for (const fs::path& folder : simObjectsCfgFolders(version, SIM_INSTALL_PATH.value))
      folders.push_back(folder);
  }
  std::uint32_t folderIndex = 0;
  for (const fs::path& folder : folders) {
    if (lf_stopWanted()) return;
    folderIndex = std::min(folderIndex + 1, lastFolderIndex);
    std::error_code error;
    if (!fs::exists(folder, error)) {
      logLine(pathText(folder) + " does not exist, skipped!");
      continue;
    }
    if (!fs::is_directory(folder, error)) {
      logLine(pathText(folder) + " is not a folder name, skipped!");
      continue;
    }
    const std::size_t before = scannedLiveries.size();
    lf_scanFolder(folder, folderIndex);
    const std::size_t added = scannedLiveries.size() - before;
    const std::string where = "found in " + pathText(folder);
    logLine(added > 0 ? fmt::format("{} liverie{} {}", added, lf_plural(added), where)
                      : fmt::format("No liveries {}", where));
  }
  if (lf_stopWanted()) return;
  if (folders.size() > 1 && !scannedLiveries.empty())
    logLine(fmt::format("{} in total", scannedLiveries.size()));
  const std::vector<std::string> conversions = lf_correctFromDatabase();
  const std::vector<std::string> skipped = prioritize ? lf_dropByPriority() : std::vector<std::string>();
  // Written before the verdict: the user who found nothing needs them most.
  lf_writeReports(conversions, skipped);
  if (scannedLiveries.empty()) {
    display.liveryCount = -1;
    throw UserErrorException(53, "no liveries found" + lf_seeReports());
  }
  lf_sortAndUnique();
  display.liveryCount = static_cast<std::int32_t>(scannedLiveries.size());
  repaintWindow();
  lf_writeScanned();
  processLiveries();
}

void lf_readScanned() {
  const std::string path = pathText(liveriesScannedFile);
  pugi::xml_document document;
  if (!document.load_file(liveriesScannedFile.c_str()))
    throw UserErrorException(51, fmt::format("File {} not found", path));
  const pugi::xml_node root = document.child("liveries");
  if (!root) throw UserErrorException(52, fmt::format("{} does not contain a <liveries> section", path));
  for (const pugi::xml_node node : root.children("liv"))
    scannedLiveries.push_back({node.attribute("airl").as_string(), node.attribute("type").as_string(),
                               utf8OrAnsi(node.attribute("title").as_string()),
                               node.attribute("atcid").as_string(), 0,
                               isTrueText(node.attribute("cargo").as_string())});
  if (scannedLiveries.empty())
    throw UserErrorException(53, fmt::format("{} does not contain liveries", path));
  logLine(fmt::format("No scan done, {} liveries read from {}", scannedLiveries.size(), path));
  processLiveries();
}

} // namespace

void loadLiveries(bool scan, bool automatic, bool prioritize, std::vector<fs::path> folders) {
  scannedLiveries.clear();
  struct Clear {
    ~Clear() {
      scannedLiveries.clear();
      scannedLiveries.shrink_to_fit();
    }
  } clear;
  if (scan)
    lf_scan(automatic, prioritize, std::move(folders));
  else
    lf_readScanned();
}

void runLiveriesStep() {
  if (lf_loaded) return;
  const bool scan = SCAN_LIVERIES.value;
  const bool automatic = LIG_AUTOMATIC.value;
  std::vector<fs::path> folders;
  if (scan && !automatic) {
    for (const TextParameter& folder : lfolder)
      if (!folder.value.empty()) folders.push_back(configPath(folder.value));
    if (folders.empty())
      throw UserErrorException(48,
                               "Set lfolder parameter(-s) to your liveries first, see Manual 5.1 (or check "
                               "Liveries automatic)");
  }
  if (!scan) logLine("\n++++++++++++++++++++++++ liveries scan starts ++++++++++++++++++++++++++++++++");
  if (scan) {
    logLine(fmt::format("\n++++++++++++++++++++++++ liveries scan {} starts ++++++++++++++++++++++++++++++++",
                        automatic ? "automatic" : "manual"));
    showMessage(
        fmt::format("Scanning {}for liveries ...", !automatic && LIG_PRIORITIZE.value ? "prioritized " : ""),
        false);
  }
  try {
    loadLiveries(scan, automatic, LIG_PRIORITIZE.value, std::move(folders));
  } catch (const UserErrorException& e) {
    if (scan && automatic && e.number == 53)
      throw UserErrorException(43, "Automatic scan has not found any liveries, switch off automatic and set "
                                   "lfolder parameter(-s), Manual 5.1" +
                                       lf_seeReports());
    throw;
  }
  if (lf_stopWanted()) return; // the scan stopped short: it is asked for again at the next start
  lf_loaded = true;
  logLineFlushed("-------------------------- liveries scan ends   --------------------------------\n");
  if (!scan) return;
  SCAN_LIVERIES.value = false;
  storeBool(SCAN_LIVERIES);
  showBool(SCAN_LIVERIES);
}

void clearLiveries() {
  lf_loaded = false;
  scannedLiveries.clear();
  clearMatching();
  clearRegcodes();
  clearLiveryTable();
  prepareScan();
}

} // namespace ory
