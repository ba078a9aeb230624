#include "base/display.h"
#include "base/log.h"
#include "base/parameters.h"
#include "base/paths.h"
#include "base/text_hash.h"
#include "liveries/text_tokens.h"
#include "os/utf.h"
#include "parking/airport_file.h"
#include "parking/airport_xml.h"

#include <fmt/format.h>
#include <pugixml.hpp>

#include <algorithm>

namespace ory {

namespace {

namespace fs = std::filesystem;

void lf_logValue(std::string_view label, const auto& value) {
  logLine(fmt::format("{:24}: {}", label, value));
}

void lf_applyBool(const pugi::xml_document& document, BoolParameter& parameter) {
  const auto value = fileBool(document, parameter.name);
  if (!value) return;
  parameter.value = *value;
  showBool(parameter);
  lf_logValue(parameter.name, *value);
}

void lf_applyLateralRange(const pugi::xml_document& document) {
  const auto range = fileInt(document, LATERAL_RANGE.name);
  if (!range) return;
  LATERAL_RANGE.set(*range);
  setRange(LATERAL_RANGE.value);
  showInt(LATERAL_RANGE);
  enableControl(LATERAL_RANGE, true);
  lf_logValue(LATERAL_RANGE.name, LATERAL_RANGE.value.load());
}

// On: the current range is kept for later and the main loop takes over. Off: the manual range holds.
void lf_applyAutoRange(const pugi::xml_document& document) {
  const auto automatic = fileBool(document, AUTO_RANGE.name);
  if (!automatic) return;
  AUTO_RANGE.value = *automatic;
  showBool(AUTO_RANGE);
  lf_logValue(AUTO_RANGE.name, *automatic);
  if (*automatic) {
    manualLateralRange = LATERAL_RANGE.value.load();
    enableControl(LATERAL_RANGE, false);
    return;
  }
  enableControl(LATERAL_RANGE, true);
  // a range of the file itself was set by hand, so it is the one to keep; else the kept one returns.
  if (fileInt(document, LATERAL_RANGE.name))
    manualLateralRange = LATERAL_RANGE.value.load();
  else
    LATERAL_RANGE.set(manualLateralRange);
  setRange(LATERAL_RANGE.value);
  showInt(LATERAL_RANGE);
}

void lf_applyParkingPercentage(const pugi::xml_document& document) {
  parking_percentage.set(fileInt(document, parking_percentage.name).value_or(30));
  if (CUSTOM_PARKING_PERCENTAGE.value >= 0) {
    parking_percentage.value = CUSTOM_PARKING_PERCENTAGE.value.load();
    logLine(fmt::format("parking percentage overruled by {}", CUSTOM_PARKING_PERCENTAGE.name));
  }
  showInt(parking_percentage);
  logLine(fmt::format("{:24}: {}%", parking_percentage.name, parking_percentage.value.load()));
}

void lf_applyMaxFit(const pugi::xml_document& document) {
  auto halfHours = fileInt(document, MAX_FIT.name);
  if (!halfHours) halfHours = fileInt(document, "MAX_FIT_WEEK"); // the name of older files
  if (!halfHours) return;
  MAX_FIT.set(*halfHours);
  MAX_FIT_FL.value = maxFitHours(MAX_FIT.value);
  showFloat(MAX_FIT_FL);
  logLine(fmt::format("{:24}: {} (max number of half hours, is {} hrs decimal)", MAX_FIT.name,
                      MAX_FIT.value.load(), MAX_FIT_FL.value.load()));
}

void lf_applyParameters(const pugi::xml_document& document) {
  lf_applyBool(document, LEARN_SOFT);
  const auto maxLive = fileInt(document, MAX_LIVE.name);
  MAX_LIVE.value = maxLive ? MAX_LIVE.clamp(*maxLive) : MAX_LIVE.defaultValue;
  if (maxLive) lf_logValue(MAX_LIVE.name, MAX_LIVE.value.load());
  if (MAX_LIVE.value == MAX_LIVE.defaultValue)
    clearEdit(MAX_LIVE);
  else
    showInt(MAX_LIVE);
  lf_applyLateralRange(document);
  lf_applyAutoRange(document);
  lf_applyBool(document, PARK_FAKE);
  lf_applyBool(document, WEEK);
  lf_applyBool(document, PARK_SOFT);
  lf_applyParkingPercentage(document);
  lf_applyBool(document, INITIAL_LOAD_ONLY);
  lf_applyMaxFit(document);
}

// EHAM.xml is kept as EHAM0.xml, overwriting an older copy.
void lf_keepBrokenFile(const fs::path& path, std::string_view problem) {
  fs::path kept = path;
  kept.replace_filename(path.stem().string() + "0" + path.extension().string());
  std::error_code error;
  fs::copy_file(path, kept, fs::copy_options::overwrite_existing, error);
  logLine(fmt::format("{} found, but could not be loaded, saved as *.0.xml: {}", pathText(path), problem));
}

bool lf_readManualStand(const pugi::xml_node& parkpos, const fs::path& path, std::vector<Stand>& stands) {
  Stand stand;
  stand.id = parkpos.attribute("id").value();
  readStandPlace(parkpos, stand);
  if ((stand.lat >= 0 && stand.lat <= 0.0009 && stand.lon >= 0 && stand.lon <= 0.05) || stand.radius == 0) {
    logLine(
        fmt::format("manually created standid {} misses correct attributes in {}", stand.id, pathText(path)));
    return false;
  }
  stand.options.reserve(128);
  std::int32_t optionId = 1;
  for (const pugi::xml_node opt : parkpos.children("opt")) {
    std::optional<StandOption> option = readStandOption(opt, true, false);
    if (!option) continue;
    option->optionId = optionId++;
    stand.options.push_back(std::move(*option));
  }
  readStandKind(parkpos, stand);
  stand.manual = true;
  stands.push_back(std::move(stand));
  return true;
}

void lf_readLearnedStands(const pugi::xml_document& document, const fs::path& path,
                          std::vector<Stand>& stands) {
  TextMap<std::size_t> index;
  for (std::size_t i = 0; i < stands.size(); ++i)
    index.emplace(stands[i].id, i);
  for (const pugi::xml_node parkpos : document.child("parkpositions").children("parkpos")) {
    const std::string id = parkpos.attribute("id").value();
    const auto found = index.find(id);
    if (isTrueText(parkpos.attribute("manual").value())) {
      if (found != index.end()) {
        logLine(fmt::format("manually created standid {} already exists in {}", id, pathText(path)));
      } else if (lf_readManualStand(parkpos, path, stands)) {
        index.emplace(id, stands.size() - 1);
      }
    } else if (found == index.end()) {
      logLine(fmt::format("learned stand {} in {} not found?", id, pathText(path)));
    } else {
      mergeLearnedStand(stands[found->second], parkpos);
    }
  }
}

void lf_readLearned(const fs::path& path, std::string_view archivedName, std::vector<Stand>& stands) {
  pugi::xml_document document;
  const pugi::xml_parse_result loaded = document.load_file(path.c_str());
  if (!loaded) {
    lf_keepBrokenFile(path, loaded.description());
    return;
  }
  logLine(fmt::format("Read from learned airport file: \"{}\"", pathText(path)));
  const auto name = fileParameter(document, "airport_name");
  if (name && *name != archivedName)
    logLine(fmt::format(
        "Warning: learned file airport name: \"{}\" differs from archived file airport name: \"{}\"", *name,
        archivedName));
  lf_applyParameters(document);
  if (fileParameter(document, "handmade")) { // present with any value
    handmadeFile = true;
    if (const auto altitude = fileInt(document, "altitude")) {
      parkAltitudeFeet = *altitude;
      parkAltitude = *altitude;
    }
    stands.clear();
    readParkPositions(document, stands);
    return;
  }
  handmadeFile = false;
  lf_readLearnedStands(document, path, stands);
}

bool lf_sameAircraft(const StandOption& a, const StandOption& b) {
  return a.day == b.day && a.soft == b.soft && a.regcode == b.regcode && a.airline == b.airline &&
         a.type == b.type;
}

// The stands a learned file holds: manual ones, changed ones, and those with learned options.
std::vector<Stand> lf_learnedStands() {
  if (handmadeFile) return stands;
  std::vector<Stand> learned;
  for (Stand& stand : stands) {
    std::erase_if(stand.options, [](const StandOption& o) { return !o.learned; });
    if (stand.manual || !stand.options.empty() || stand.radiusChanged || stand.cargoChanged)
      learned.push_back(stand);
  }
  return learned;
}

fs::path lf_learnedFolder(const std::string& publisher) {
  if (publisher == stockWord) return learnedFolder / stockWord;
  if (publisher == orbxWord) return learnedFolder / orbxWord;
  return learnedFolder / thirdpartyWord / utf8ToPath(publisher);
}

} // namespace

void readLearned(const fs::path& path, std::string_view archivedName, std::vector<Stand>& stands) {
  try {
    lf_readLearned(path, archivedName, stands);
  } catch (const std::exception& error) {
    logLine(fmt::format("exception in lf_readLearned: {}", error.what()));
  }
}

void mergeLearnedStand(Stand& stand, const pugi::xml_node& parkpos) {
  if (isTrueText(parkpos.attribute("radius_change").value())) {
    stand.radius = parkpos.attribute("radius").as_double() * nmPerMetre;
    stand.radiusChanged = true;
  }
  if (isTrueText(parkpos.attribute("cargo_change").value())) {
    stand.cargo = isTrueText(parkpos.attribute("cargo").value());
    stand.cargoChanged = true;
  }
  std::int32_t optionId = stand.options.empty() ? 1 : stand.options.back().optionId + 1;
  for (const pugi::xml_node opt : parkpos.children("opt")) {
    std::optional<StandOption> option = readStandOption(opt, true, false);
    if (!option) continue;
    const bool known = std::any_of(stand.options.begin(), stand.options.end(), [&](const StandOption& o) {
      return lf_sameAircraft(o, *option) && (o.halfHours & option->halfHours).any();
    });
    if (known) continue;
    option->optionId = optionId++;
    stand.options.push_back(std::move(*option));
  }
}

void saveLearnedFile() {
  AirportFile record;
  record.code = parkAirportCode;
  record.airportName = parkAirportName;
  record.altitude = parkAltitudeFeet;
  record.publisher = parkPublisher;
  record.bglPath = parkBglPath;
  record.stands = lf_learnedStands();
  if (handmadeFile) {
    const QualityFactors quality = computeQualityFactors(stands);
    record.qfReal = quality.real;
    record.qfSoft = quality.soft;
  }
  const fs::path folder = lf_learnedFolder(parkPublisher);
  std::error_code error;
  fs::create_directories(folder, error);
  if (error) logLine(fmt::format("create_directory {}: {}", pathText(folder), error.message()));
  const fs::path path = folder / (parkAirportCode + ".xml");
  if (writeAirportFile(record, path, true)) {
    logLine(fmt::format("{}{} \"{}\" saved with {} update{} {}", timeOfDay(), handmadeFile ? " handmade" : "",
                        pathText(path), updateCount, updateCount == 1 || updateCount < 0 ? "" : "s",
                        parameterChanged ? "and one or more parameter changes" : ""));
  } else {
    logLine(fmt::format("{} saving \"{}\" did not succeed", timeOfDay(), pathText(path)));
  }
  updateCount = 0;
  parameterChanged = false;
}

void closeParkAirport() {
  if (parkingSessionOpen && (parameterChanged || updateCount >= 1)) {
    saveLearnedFile();
    updateCount = 0;
  }
  handmadeFile = false;
  parkingSessionOpen.exchange(false);
  enableControl(flushStaticButton, false);
  enableControl(parking_percentage, false);
  learnedFilePath.clear();
}

} // namespace ory
