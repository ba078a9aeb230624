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

void lf_logValue(std::string_view LABEL, const auto& VALUE) {
  logLine(fmt::format("{:24}: {}", LABEL, VALUE));
}

void lf_applyBool(const pugi::xml_document& DOCUMENT, BoolParameter& PARAMETER) {
  const auto value = fileBool(DOCUMENT, PARAMETER.name);
  if (!value) return;
  PARAMETER.value = *value;
  showBool(PARAMETER);
  lf_logValue(PARAMETER.name, *value);
}

void lf_applyLateralRange(const pugi::xml_document& DOCUMENT) {
  const auto range = fileInt(DOCUMENT, LATERAL_RANGE.name);
  if (!range) return;
  LATERAL_RANGE.set(*range);
  setRange(LATERAL_RANGE.value);
  showInt(LATERAL_RANGE);
  enableControl(LATERAL_RANGE, true);
  lf_logValue(LATERAL_RANGE.name, LATERAL_RANGE.value.load());
}

// On: the current range is kept for later and the main loop takes over. Off: the manual range holds.
void lf_applyAutoRange(const pugi::xml_document& DOCUMENT) {
  const auto automatic = fileBool(DOCUMENT, AUTO_RANGE.name);
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
  // A range of the file itself was set by hand, so it is the one to keep; else the kept one returns.
  if (fileInt(DOCUMENT, LATERAL_RANGE.name))
    manualLateralRange = LATERAL_RANGE.value.load();
  else
    LATERAL_RANGE.set(manualLateralRange);
  setRange(LATERAL_RANGE.value);
  showInt(LATERAL_RANGE);
}

void lf_applyParkingPercentage(const pugi::xml_document& DOCUMENT) {
  parking_percentage.set(fileInt(DOCUMENT, parking_percentage.name).value_or(30));
  if (CUSTOM_PARKING_PERCENTAGE.value >= 0) {
    parking_percentage.value = CUSTOM_PARKING_PERCENTAGE.value.load();
    logLine(fmt::format("parking percentage overruled by {}", CUSTOM_PARKING_PERCENTAGE.name));
  }
  showInt(parking_percentage);
  logLine(fmt::format("{:24}: {}%", parking_percentage.name, parking_percentage.value.load()));
}

void lf_applyMaxFit(const pugi::xml_document& DOCUMENT) {
  auto halfHours = fileInt(DOCUMENT, MAX_FIT.name);
  if (!halfHours) halfHours = fileInt(DOCUMENT, "MAX_FIT_WEEK"); // the name of older files
  if (!halfHours) return;
  MAX_FIT.set(*halfHours);
  MAX_FIT_FL.value = maxFitHours(MAX_FIT.value);
  showFloat(MAX_FIT_FL);
  logLine(fmt::format("{:24}: {} (max number of half hours, is {} hrs decimal)", MAX_FIT.name,
                      MAX_FIT.value.load(), MAX_FIT_FL.value.load()));
}

void lf_applyParameters(const pugi::xml_document& DOCUMENT) {
  lf_applyBool(DOCUMENT, LEARN_SOFT);
  const auto maxLive = fileInt(DOCUMENT, MAX_LIVE.name);
  MAX_LIVE.value = maxLive ? MAX_LIVE.clamp(*maxLive) : MAX_LIVE.defaultValue;
  if (maxLive) lf_logValue(MAX_LIVE.name, MAX_LIVE.value.load());
  if (MAX_LIVE.value == MAX_LIVE.defaultValue)
    clearEdit(MAX_LIVE);
  else
    showInt(MAX_LIVE);
  lf_applyLateralRange(DOCUMENT);
  lf_applyAutoRange(DOCUMENT);
  lf_applyBool(DOCUMENT, PARK_FAKE);
  lf_applyBool(DOCUMENT, WEEK);
  lf_applyBool(DOCUMENT, PARK_SOFT);
  lf_applyParkingPercentage(DOCUMENT);
  lf_applyBool(DOCUMENT, INITIAL_LOAD_ONLY);
  lf_applyMaxFit(DOCUMENT);
}

// EHAM.xml is kept as EHAM0.xml, overwriting an older copy.
void lf_keepBrokenFile(const fs::path& PATH, std::string_view PROBLEM) {
  fs::path kept = PATH;
  kept.replace_filename(PATH.stem().string() + "0" + PATH.extension().string());
  std::error_code error;
  fs::copy_file(PATH, kept, fs::copy_options::overwrite_existing, error);
  logLine(fmt::format("{} found, but could not be loaded, saved as *.0.xml: {}", pathText(PATH), PROBLEM));
}

bool lf_readManualStand(const pugi::xml_node& PARKPOS, const fs::path& PATH, std::vector<Stand>& STANDS) {
  Stand stand;
  stand.id = PARKPOS.attribute("id").value();
  readStandPlace(PARKPOS, stand);
  if ((stand.lat >= 0 && stand.lat <= 0.0009 && stand.lon >= 0 && stand.lon <= 0.05) || stand.radius == 0) {
    logLine(
        fmt::format("manually created standid {} misses correct attributes in {}", stand.id, pathText(PATH)));
    return false;
  }
  stand.options.reserve(128);
  std::int32_t optionId = 1;
  for (const pugi::xml_node opt : PARKPOS.children("opt")) {
    std::optional<StandOption> option = readStandOption(opt, true, false);
    if (!option) continue;
    option->optionId = optionId++;
    stand.options.push_back(std::move(*option));
  }
  readStandKind(PARKPOS, stand);
  stand.manual = true;
  STANDS.push_back(std::move(stand));
  return true;
}

void lf_readLearnedStands(const pugi::xml_document& DOCUMENT, const fs::path& PATH,
                          std::vector<Stand>& STANDS) {
  TextMap<std::size_t> index;
  for (std::size_t i = 0; i < STANDS.size(); ++i)
    index.emplace(STANDS[i].id, i);
  for (const pugi::xml_node parkpos : DOCUMENT.child("parkpositions").children("parkpos")) {
    const std::string id = parkpos.attribute("id").value();
    const auto found = index.find(id);
    if (isTrueText(parkpos.attribute("manual").value())) {
      if (found != index.end()) {
        logLine(fmt::format("manually created standid {} already exists in {}", id, pathText(PATH)));
      } else if (lf_readManualStand(parkpos, PATH, STANDS)) {
        index.emplace(id, STANDS.size() - 1);
      }
    } else if (found == index.end()) {
      logLine(fmt::format("learned stand {} in {} not found?", id, pathText(PATH)));
    } else {
      mergeLearnedStand(STANDS[found->second], parkpos);
    }
  }
}

void lf_readLearned(const fs::path& PATH, std::string_view ARCHIVED_NAME, std::vector<Stand>& STANDS) {
  pugi::xml_document document;
  const pugi::xml_parse_result loaded = document.load_file(PATH.c_str());
  if (!loaded) {
    lf_keepBrokenFile(PATH, loaded.description());
    return;
  }
  logLine(fmt::format("Read from learned airport file: \"{}\"", pathText(PATH)));
  const auto name = fileParameter(document, "airport_name");
  if (name && *name != ARCHIVED_NAME)
    logLine(fmt::format(
        "Warning: learned file airport name: \"{}\" differs from archived file airport name: \"{}\"", *name,
        ARCHIVED_NAME));
  lf_applyParameters(document);
  if (fileParameter(document, "handmade")) { // present with any value
    handmadeFile = true;
    if (const auto altitude = fileInt(document, "altitude")) {
      parkAltitudeFeet = *altitude;
      parkAltitude = *altitude;
    }
    STANDS.clear();
    readParkPositions(document, STANDS);
    return;
  }
  handmadeFile = false;
  lf_readLearnedStands(document, PATH, STANDS);
}

bool lf_sameAircraft(const StandOption& A, const StandOption& B) {
  return A.day == B.day && A.soft == B.soft && A.regcode == B.regcode && A.airline == B.airline &&
         A.type == B.type;
}

// The stands a learned file holds: manual ones, changed ones, and those with learned options.
std::vector<Stand> lf_learnedStands() {
  if (handmadeFile) return stands;
  std::vector<Stand> learned;
  for (Stand& stand : stands) {
    std::erase_if(stand.options, [](const StandOption& O) { return !O.learned; });
    if (stand.manual || !stand.options.empty() || stand.radiusChanged || stand.cargoChanged)
      learned.push_back(stand);
  }
  return learned;
}

fs::path lf_learnedFolder(const std::string& PUBLISHER) {
  if (PUBLISHER == stockWord) return learnedFolder / stockWord;
  if (PUBLISHER == orbxWord) return learnedFolder / orbxWord;
  return learnedFolder / thirdpartyWord / utf8ToPath(PUBLISHER);
}

} // namespace

void readLearned(const fs::path& PATH, std::string_view ARCHIVED_NAME, std::vector<Stand>& STANDS) {
  try {
    lf_readLearned(PATH, ARCHIVED_NAME, STANDS);
  } catch (const std::exception& error) {
    logLine(fmt::format("exception in lf_readLearned: {}", error.what()));
  }
}

void mergeLearnedStand(Stand& STAND, const pugi::xml_node& PARKPOS) {
  if (isTrueText(PARKPOS.attribute("radius_change").value())) {
    STAND.radius = PARKPOS.attribute("radius").as_double() * nmPerMetre;
    STAND.radiusChanged = true;
  }
  if (isTrueText(PARKPOS.attribute("cargo_change").value())) {
    STAND.cargo = isTrueText(PARKPOS.attribute("cargo").value());
    STAND.cargoChanged = true;
  }
  std::int32_t optionId = STAND.options.empty() ? 1 : STAND.options.back().optionId + 1;
  for (const pugi::xml_node opt : PARKPOS.children("opt")) {
    std::optional<StandOption> option = readStandOption(opt, true, false);
    if (!option) continue;
    const bool known = std::any_of(STAND.options.begin(), STAND.options.end(), [&](const StandOption& O) {
      return lf_sameAircraft(O, *option) && (O.halfHours & option->halfHours).any();
    });
    if (known) continue;
    option->optionId = optionId++;
    STAND.options.push_back(std::move(*option));
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
