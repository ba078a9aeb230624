#include "base/parameters.h"

#include "base/display.h"
#include "base/log.h"
#include "base/paths.h"
#include "base/text_files.h"
#include "base/version.h"
#include "engine/geometry.h"

#include <fmt/format.h>
#include <pugixml.hpp>

#include <algorithm>
#include <cmath>
#include <mutex>
#include <vector>

namespace ory {

TextParameter SIM_INSTALL_PATH("SIM_INSTALL_PATH", "", {32788, 119});
BoolParameter SCAN_LIVERIES("SCAN_LIVERIES", true, {32797, 147});
BoolParameter LIG_AUTOMATIC("LIG_AUTOMATIC", true, {32798, 147});
BoolParameter LIG_PRIORITIZE("LIG_PRIORITIZE", false, {32799, 147});
BoolParameter SUPPRESS_STUB("SUPPRESS_STUB", true, {32800, 147});
BoolParameter LOG("LOG", true, {32779, 147});
BoolParameter ALWAYS_ON_TOP("ALWAYS_ON_TOP", false, {32771, 147});
BoolParameter LEARN_SOFT("LEARN_SOFT", true, {32777, 175});
BoolParameter SCAN_AIRPORTS("SCAN_AIRPORTS", true, {32802, 175});
BoolParameter AFG_AUTOMATIC("AFG_AUTOMATIC", true, {32803, 175});
BoolParameter NAV_LIGHTS_WHILE_PARKED("NAV_LIGHTS_WHILE_PARKED", true, {32778, 175});
IntParameter MATCHING_DEPTH("MATCHING_DEPTH", 4, 1, 4, {32808, 203});
BoolParameter LIGHT_AIRCRAFT("LIGHT_AIRCRAFT", true, {32809, 203});
BoolParameter HELICOPTERS("HELICOPTERS", true, {32810, 203});
BoolParameter HIGH_PERF_AIRCRAFT("HIGH_PERF_AIRCRAFT", true, {32811, 203});
BoolParameter AEROWINX("AEROWINX", false, {32775, 203});
BoolParameter GUID_CHANGES("GUID_CHANGES", true, {32773, 203});
IntParameter LATERAL_RANGE("LATERAL_RANGE", 40, 2, 100, {32818, 231});
BoolParameter AUTO_RANGE("AUTO_RANGE", true, {32819, 231});
IntParameter MAX_LIVE("MAX_LIVE", 300, 6, 300, {32820, 231});
TextParameter BLOCK_CALLSIGN("BLOCK_CALLSIGN", "", {32828, 259});
BoolParameter COLLISION_USER_AIR("COLLISION_USER_AIR", true, {32833, 287});
BoolParameter COLLISION_USER_GND("COLLISION_USER_GND", true, {32834, 287});
BoolParameter COLLISION_LIVE_PARKED_GND("COLLISION_LIVE_PARKED_GND", false, {32835, 287});
IntParameter AIRPORT_RANGE("AIRPORT_RANGE", 20, 8, 30, {32839, 315});
IntParameter AIRPORT_HEIGHT("AIRPORT_HEIGHT", 18000, 2000, 45000, {32840, 315});
IntParameter parking_percentage("parking_percentage", 30, 0, 100, {32848, 343});
BoolParameter INITIAL_LOAD_ONLY("INITIAL_LOAD_ONLY", false, {32849, 343});
BoolParameter PARK_SOFT("PARK_SOFT", true, {32850, 343});
IntParameter MAX_FIT("MAX_FIT", 47, 0, 47);
BoolParameter WEEK("WEEK", false, {32852, 343});
FloatParameter MAX_FIT_FL("MAX_FIT_FL", 24.0f, 0.5f, 24.0f, {32853, 343});
BoolParameter PARK_FAKE("PARK_FAKE", false, {32856, 343});
IntParameter CUSTOM_PARKING_PERCENTAGE("CUSTOM_PARKING_PERCENTAGE", -1, -1, 100);
IntParameter MAIN_WINDOW_X("MAIN_WINDOW_X", 400, -30000, 30000);
IntParameter MAIN_WINDOW_Y("MAIN_WINDOW_Y", 20, -30000, 30000);
IntParameter LAST_EPOCH_TIME("LAST_EPOCH_TIME", 0, 0, 2147483647);
IntParameter P3D_VERSION("P3D_VERSION", 5, 5, 6);
BoolParameter RANDOM("RANDOM", true);
TextParameter PORT_NUMBER("PORT_NUMBER", "10747");
TextParameter PROGRAM_VERSION("PROGRAM_VERSION");
TextParameter PROGRAM_INSTALL_PATH("PROGRAM_INSTALL_PATH");
TextParameter ARCHIVE_VERSION("ARCHIVE_VERSION");
TextParameter DBASE_VERSION("DBASE_VERSION");
TextParameter AIG_VERSION("AIG_VERSION");
TextParameter DATA_CHECKED_AT_DATE("DATA_CHECKED_AT_DATE");
std::array<TextParameter, 10> lfolder{TextParameter("lfolder0"), TextParameter("lfolder1"),
                                      TextParameter("lfolder2"), TextParameter("lfolder3"),
                                      TextParameter("lfolder4"), TextParameter("lfolder5"),
                                      TextParameter("lfolder6"), TextParameter("lfolder7"),
                                      TextParameter("lfolder8"), TextParameter("lfolder9")};
std::array<TextParameter, 10> afolder{TextParameter("afolder0"), TextParameter("afolder1"),
                                      TextParameter("afolder2"), TextParameter("afolder3"),
                                      TextParameter("afolder4"), TextParameter("afolder5"),
                                      TextParameter("afolder6"), TextParameter("afolder7"),
                                      TextParameter("afolder8"), TextParameter("afolder9")};

ButtonControl checkVersionButton("Check version", {32780, 229});
ButtonControl unblockButton("Unblock", {32829, 257});
ButtonControl reReadButton("Re-read", {32838, 341});
ButtonControl flushStaticButton("Flush static", {32855, 341});

std::atomic<double> rangeNm{40.0};
std::atomic<double> rangeMetres{40.0 * metresPerNm};
std::atomic<std::int32_t> manualLateralRange{40};

namespace {

// The order in which parameters.xml is read and first written.
BoolParameter* const bools[] = {&RANDOM,
                                &AEROWINX,
                                &COLLISION_USER_AIR,
                                &COLLISION_USER_GND,
                                &COLLISION_LIVE_PARKED_GND,
                                &SUPPRESS_STUB,
                                &LOG,
                                &ALWAYS_ON_TOP,
                                &SCAN_LIVERIES,
                                &LIG_AUTOMATIC,
                                &LIG_PRIORITIZE,
                                &SCAN_AIRPORTS,
                                &AFG_AUTOMATIC,
                                &LIGHT_AIRCRAFT,
                                &HELICOPTERS,
                                &HIGH_PERF_AIRCRAFT,
                                &NAV_LIGHTS_WHILE_PARKED,
                                &AUTO_RANGE,
                                &LEARN_SOFT,
                                &PARK_SOFT,
                                &PARK_FAKE,
                                &WEEK,
                                &INITIAL_LOAD_ONLY,
                                &GUID_CHANGES};
IntParameter* const ints[] = {&CUSTOM_PARKING_PERCENTAGE,
                              &MAIN_WINDOW_X,
                              &MAIN_WINDOW_Y,
                              &LAST_EPOCH_TIME,
                              &P3D_VERSION,
                              &MATCHING_DEPTH,
                              &LATERAL_RANGE,
                              &MAX_FIT,
                              &MAX_LIVE,
                              &AIRPORT_RANGE,
                              &AIRPORT_HEIGHT};
TextParameter* const texts[] = {&PROGRAM_VERSION,      &PORT_NUMBER,    &PROGRAM_INSTALL_PATH,
                                &ARCHIVE_VERSION,      &DBASE_VERSION,  &AIG_VERSION,
                                &DATA_CHECKED_AT_DATE, &BLOCK_CALLSIGN, &SIM_INSTALL_PATH};

constexpr std::string_view obsoleteNames[] = {
    "TIME_COMPRESSION_CHECK", "SECONDS_DELAY",    "FLIGHTPLANS_FOLDER", "CALLSIGN_OBJECTID",
    "DESTINATION_AIRPORT",    "DESTINATION_GATE", "MAX_FIT_WEEK"};

std::string lf_xpath(std::string_view name) {
  return fmt::format("/parameters/parameter[@name='{}']", name);
}

pugi::xml_node lf_find(pugi::xml_document& document, std::string_view name) {
  return document.select_node(lf_xpath(name).c_str()).node();
}

pugi::xml_node lf_findOrAdd(pugi::xml_document& document, std::string_view name) {
  if (auto node = lf_find(document, name)) return node;
  pugi::xml_node root = document.child("parameters");
  if (!root) root = document.append_child("parameters");
  pugi::xml_node node = root.append_child("parameter");
  node.append_attribute("name").set_value(std::string(name).c_str());
  node.append_attribute("value");
  return node;
}

void lf_setValue(pugi::xml_node node, std::string_view rawValue) {
  pugi::xml_attribute value = node.attribute("value");
  if (!value) value = node.append_attribute("value");
  value.set_value(std::string(rawValue).c_str());
}

bool lf_save(const pugi::xml_document& document) {
  std::error_code ignored;
  std::filesystem::create_directories(parametersPath().parent_path(), ignored);
  if (writeXmlFile(document, parametersPath())) return true;
  logLine("saving xml did not work?");
  return false;
}

// The window's thread and the start-up thread both store; each store is a whole load and save of the file.
std::mutex lf_fileLock;

void lf_store(std::string_view name, std::string_view value) {
  std::lock_guard lock(lf_fileLock);
  pugi::xml_document document;
  document.load_file(parametersPath().c_str());
  lf_setValue(lf_findOrAdd(document, name), value);
  lf_save(document);
}

std::string lf_text(const BoolParameter& parameter) {
  return parameter.value ? "true" : "false";
}
std::string lf_text(const IntParameter& parameter) {
  return std::to_string(parameter.value.load());
}
std::string lf_text(const TextParameter& parameter) {
  return parameter.value;
}

void lf_read(BoolParameter& parameter, pugi::xml_attribute value) {
  parameter.value = value.as_bool();
}
void lf_read(IntParameter& parameter, pugi::xml_attribute value) {
  parameter.set(value.as_llong());
}
void lf_read(TextParameter& parameter, pugi::xml_attribute value) {
  parameter.value = value.as_string();
}

void lf_show(const BoolParameter& parameter) {
  showBool(parameter);
}
void lf_show(const IntParameter& parameter) {
  showInt(parameter);
}
void lf_show(const TextParameter& parameter) {
  showText(parameter);
}

void lf_takeDefault(BoolParameter& parameter) {
  parameter.value = parameter.defaultValue;
}
void lf_takeDefault(IntParameter& parameter) {
  parameter.set(parameter.defaultValue);
}
void lf_takeDefault(TextParameter& parameter) {
  parameter.value = parameter.defaultValue;
}

// Reads each parameter of list from document, adding the missing ones with their default; true if any was
// added.
template <typename P, std::size_t N>
bool lf_readList(pugi::xml_document& document, P* const (&list)[N]) {
  bool added = false;
  for (P* parameter : list) {
    pugi::xml_node node = lf_find(document, parameter->name);
    if (node) {
      lf_read(*parameter, node.attribute("value"));
    } else {
      lf_takeDefault(*parameter);
      lf_setValue(lf_findOrAdd(document, parameter->name), lf_text(*parameter));
      added = true;
    }
    logLine(fmt::format("{}={}", parameter->name, lf_text(*parameter)));
    if (parameter->controlId != 0) lf_show(*parameter);
  }
  return added;
}

template <typename P, std::size_t N>
void lf_addDefaults(pugi::xml_document& document, P* const (&list)[N]) {
  for (P* parameter : list) {
    lf_takeDefault(*parameter);
    lf_setValue(lf_findOrAdd(document, parameter->name), lf_text(*parameter));
    logLine(fmt::format("{}={}", parameter->name, lf_text(*parameter)));
    if (parameter->controlId != 0) lf_show(*parameter);
  }
}

template <typename P, std::size_t N>
void lf_logFailedDefaults(P* const (&list)[N]) {
  for (P* parameter : list)
    logLine(fmt::format("{}adding init xml parameter {} with {} failed!", warningPrefix, parameter->name,
                        lf_text(*parameter)));
}

// Empty folder parameters are taken out of the file; missing ones are not added.
void lf_readFolders(pugi::xml_document& document, std::array<TextParameter, 10>& folders) {
  for (TextParameter& folder : folders) {
    folder.value = folder.defaultValue;
    pugi::xml_node node = lf_find(document, folder.name);
    if (!node) continue;
    folder.value = node.attribute("value").as_string();
    if (folder.value.empty()) {
      removeParameter(folder.name);
      logLine(fmt::format("Parameter {} removed", folder.name));
      continue;
    }
    logLine(fmt::format("{}={}", folder.name, folder.value));
  }
}

// A file that is there but can't be read is kept beside, so that the user's settings can still be mended by
// hand; defaults take its place.
void lf_keepUnreadable(const std::filesystem::path& path, const pugi::xml_parse_result& parsed) {
  std::filesystem::path kept = path;
  kept += ".unreadable";
  std::error_code error;
  std::filesystem::rename(path, kept, error);
  const std::string why =
      parsed ? "no parameters element" : fmt::format("{} at byte {}", parsed.description(), parsed.offset);
  if (error)
    logWarning(
        fmt::format("{} can't be read ({}), and could not be kept: {}", path.string(), why, error.message()));
  else
    logWarning(fmt::format("{} can't be read ({}), kept as {}", path.string(), why, kept.string()));
}

void lf_upgradeVersion() {
  const Version build = parseVersion(programVersion);
  if (PROGRAM_VERSION.value == PROGRAM_VERSION.defaultValue) {
    PROGRAM_VERSION.value = std::string(programVersion);
    storeText(PROGRAM_VERSION);
    return;
  }
  const Version old = versionOrZero(PROGRAM_VERSION.value);
  if (old != build) {
    PROGRAM_VERSION.value = std::string(programVersion);
    storeText(PROGRAM_VERSION);
  }
  if (!(build > old)) return;
  logLine(fmt::format("This is a version update from {} -> {}", versionText(old), versionText(build)));
  if (std::filesystem::exists(installNewVersionFile)) {
    std::error_code error;
    if (!std::filesystem::remove(installNewVersionFile, error) && error)
      throw std::filesystem::filesystem_error("remove", installNewVersionFile, error);
  }
  for (std::string_view name : obsoleteNames)
    removeParameter(name);
  MAX_FIT.set(MAX_FIT.value);
  storeInt(MAX_FIT);
  DATA_CHECKED_AT_DATE.value.clear();
  LAST_EPOCH_TIME.set(0);
  storeInt(LAST_EPOCH_TIME);
}

} // namespace

std::int32_t IntParameter::clamp(std::int64_t value) const {
  return static_cast<std::int32_t>(std::clamp<std::int64_t>(value, minimum, maximum));
}

float FloatParameter::clamp(float value) const {
  return std::clamp(value, minimum, maximum);
}

void setRange(double nauticalMiles) {
  rangeNm = nauticalMiles;
  rangeMetres = nauticalMiles * metresPerNm;
}

std::filesystem::path parametersPath() {
  return appDataProgramFolder() / "parameters.xml";
}

float maxFitHours(std::int32_t maxFitValue) {
  return MAX_FIT_FL.clamp(maxFitValue * 0.5f + 0.5f);
}

void loadParameters() {
  const std::filesystem::path path = parametersPath();
  logLine(fmt::format("parameters from \"{}\"", path.string()));
  pugi::xml_document document;
  const pugi::xml_parse_result parsed = document.load_file(path.c_str());
  if (!parsed || !document.child("parameters")) {
    if (parsed.status != pugi::status_file_not_found) lf_keepUnreadable(path, parsed);
    logLine(fmt::format("{} not found, default values taken:", path.string()));
    document.reset();
    document.append_child("parameters");
    lf_addDefaults(document, bools);
    lf_addDefaults(document, ints);
    lf_addDefaults(document, texts);
    PROGRAM_VERSION.value = std::string(programVersion);
    lf_setValue(lf_findOrAdd(document, PROGRAM_VERSION.name), PROGRAM_VERSION.value);
    for (auto* folders : {&lfolder, &afolder})
      for (TextParameter& folder : *folders)
        folder.value = folder.defaultValue;
    if (!lf_save(document)) {
      lf_logFailedDefaults(bools);
      lf_logFailedDefaults(ints);
      lf_logFailedDefaults(texts);
    }
  } else {
    bool added = lf_readList(document, bools);
    added = lf_readList(document, ints) || added;
    added = lf_readList(document, texts) || added;
    if (added) lf_save(document);
    lf_readFolders(document, lfolder);
    lf_readFolders(document, afolder);
  }
  lf_upgradeVersion();
  LATERAL_RANGE.set(LATERAL_RANGE.value);
  setRange(LATERAL_RANGE.value);
}

bool readIntParameter(IntParameter& parameter) {
  pugi::xml_document document;
  if (!document.load_file(parametersPath().c_str())) return false;
  pugi::xml_node node = lf_find(document, parameter.name);
  if (!node) return false;
  lf_read(parameter, node.attribute("value"));
  return true;
}

void storeBool(const BoolParameter& parameter) {
  lf_store(parameter.name, lf_text(parameter));
}
void storeInt(const IntParameter& parameter) {
  lf_store(parameter.name, lf_text(parameter));
}
void storeText(const TextParameter& parameter) {
  lf_store(parameter.name, lf_text(parameter));
}

void removeParameter(std::string_view name) {
  std::lock_guard lock(lf_fileLock);
  pugi::xml_document document;
  if (!document.load_file(parametersPath().c_str())) return;
  pugi::xml_node node = lf_find(document, name);
  if (!node) return;
  node.parent().remove_child(node);
  lf_save(document);
}

} // namespace ory
