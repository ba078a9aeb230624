#include "base/parameters.h"
#include "base/text_files.h"
#include "base/version.h"
#include "engine/geometry.h"
#include "liveries/dbase.h"
#include "os/calendar.h"
#include "parking/airport_file.h"

#include <fmt/format.h>
#include <pugixml.hpp>

#include <ctime>
#include <mutex>

namespace ory {

namespace {

constexpr std::string_view copyright = "Stand positions from the user's installed scenery; statistics "
                                       "learned from real traffic by Trovalyn_P3D. "
                                       "For use with Trovalyn_P3D only.";

std::mutex lf_unlistedLock;
std::vector<std::string> lf_unlisted;

void lf_addNamed(pugi::xml_node parent, const char* element, std::string_view name, std::string_view value) {
  pugi::xml_node node = parent.append_child(element);
  node.append_attribute("name").set_value(std::string(name).c_str());
  node.append_attribute("value").set_value(std::string(value).c_str());
}

void lf_addParameter(pugi::xml_node parameters, std::string_view name, std::string_view value) {
  lf_addNamed(parameters, "parameter", name, value);
}

void lf_addParameter(pugi::xml_node parameters, std::string_view name, std::int64_t value) {
  lf_addNamed(parameters, "parameter", name, std::to_string(value));
}

void lf_addBool(pugi::xml_node parameters, const BoolParameter& parameter) {
  lf_addNamed(parameters, "parameter", parameter.name, parameter.value ? "true" : "false");
}

void lf_addInt(pugi::xml_node parameters, const IntParameter& parameter) {
  lf_addParameter(parameters, parameter.name, parameter.value.load());
}

void lf_set(pugi::xml_node node, const char* name, std::string_view value) {
  node.append_attribute(name).set_value(std::string(value).c_str());
}

void lf_setBool(pugi::xml_node node, const char* name, bool value) {
  lf_set(node, name, value ? "true" : "false");
}

std::string lf_dateText() {
  const std::tm utc = utcCalendar(std::time(nullptr));
  return fmt::format("{:04}-{:02}-{:02}", utc.tm_year + 1900, utc.tm_mon + 1, utc.tm_mday);
}

void lf_writeMeta(pugi::xml_document& document) {
  pugi::xml_node meta = document.append_child("meta");
  lf_addNamed(meta, "info", "author", programName);
  lf_addNamed(meta, "info", "version", programVersion);
  lf_addNamed(meta, "info", "date", lf_dateText());
  lf_addNamed(meta, "info", "copyright", copyright);
}

void lf_writeParameters(pugi::xml_document& document, const AirportFile& record, bool learnedMode) {
  pugi::xml_node parameters = document.append_child("parameters");
  const bool handmade = learnedMode && handmadeFile;
  lf_addParameter(parameters, "airport_name", record.airportName);
  lf_addParameter(parameters, "publisher", record.publisher);
  if (handmade) lf_addParameter(parameters, "handmade", "true");
  if (!learnedMode || handmade) lf_addParameter(parameters, "altitude", record.altitude);
  lf_addParameter(parameters, "num_parkpos", static_cast<std::int64_t>(record.stands.size()));
  if (handmade) {
    lf_addParameter(parameters, "Qf_real", record.qfReal);
    lf_addParameter(parameters, "Qf_soft", record.qfSoft);
  }
  if (record.publisher == "unknown" && !record.bglPath.empty())
    lf_addParameter(parameters, "BGLpath", record.bglPath);
  if (!learnedMode) return;
  lf_addInt(parameters, LATERAL_RANGE);
  lf_addBool(parameters, AUTO_RANGE);
  lf_addBool(parameters, WEEK);
  lf_addBool(parameters, PARK_FAKE);
  lf_addBool(parameters, PARK_SOFT);
  lf_addInt(parameters, parking_percentage);
  lf_addBool(parameters, INITIAL_LOAD_ONLY);
  lf_addInt(parameters, MAX_FIT);
  if (MAX_LIVE.value != MAX_LIVE.defaultValue) lf_addInt(parameters, MAX_LIVE);
  lf_addBool(parameters, LEARN_SOFT);
}

void lf_writeFullEntry(pugi::xml_node parkpos, const Stand& stand) {
  lf_set(parkpos, "latitude", fmt::format("{:.6f}", stand.lat));
  lf_set(parkpos, "longitude", fmt::format("{:.6f}", stand.lon));
  lf_set(parkpos, "heading", fmt::format("{:.1F}", stand.heading * radToDeg));
  lf_set(parkpos, "radius", fmt::format("{:.1F}", stand.radius / nmPerMetre));
  if (stand.heli)
    lf_set(parkpos, "heli", "true");
  else
    lf_setBool(parkpos, "cargo", stand.cargo);
  lf_setBool(parkpos, "ramp", stand.ramp);
}

void lf_writeDifferenceEntry(pugi::xml_node parkpos, const Stand& stand) {
  if (stand.radiusChanged) {
    lf_set(parkpos, "radius_change", "true");
    lf_set(parkpos, "radius", fmt::format("{:.1F}", stand.radius / nmPerMetre));
  }
  if (stand.cargoChanged) {
    lf_set(parkpos, "cargo_change", "true");
    lf_setBool(parkpos, "cargo", stand.cargo);
  }
}

// Airline and type are written only for an aircraft the database doesn't know; they are derived otherwise.
void lf_writeOption(pugi::xml_node parkpos, const StandOption& option, std::string_view publisher) {
  pugi::xml_node opt = parkpos.append_child("opt");
  lf_set(opt, "reg", option.regcode);
  if (!lookupDbaseRecord(option.regcode)) {
    lf_set(opt, "airl", option.airline);
    lf_set(opt, "type", option.type);
    if (publisher != "stock" && option.airline != "PVT" &&
        modelCategory(option.type) != ModelCategory::Rotorcraft) {
      const std::lock_guard hold(lf_unlistedLock);
      lf_unlisted.push_back(fmt::format("{} {} {}", option.regcode, option.airline, option.type));
    }
  }
  if (option.soft) lf_set(opt, "soft", "true");
  lf_set(opt, "day", std::to_string(option.day));
  lf_set(opt, "hh", slotsToText(option.halfHours));
  const std::string callsigns =
      option.callsignOut.empty() ? option.callsignIn : option.callsignIn + ":" + option.callsignOut;
  if (!callsigns.empty()) lf_set(opt, "cs", callsigns);
}

// A handmade file replaces the archived one, so all its stands are full entries; a learned file on top of an
// archived one holds differences only.
void lf_writeStand(pugi::xml_node parkpositions, const Stand& stand, bool learnedMode,
                   std::string_view publisher) {
  pugi::xml_node parkpos = parkpositions.append_child("parkpos");
  lf_set(parkpos, "id", stand.id);
  if (!learnedMode) {
    lf_writeFullEntry(parkpos, stand);
    return;
  }
  if (stand.manual || handmadeFile) {
    lf_writeFullEntry(parkpos, stand);
    if (stand.manual) lf_set(parkpos, "manual", "true");
  } else if (stand.radiusChanged || stand.cargoChanged) {
    lf_writeDifferenceEntry(parkpos, stand);
  }
  for (const StandOption& option : stand.options)
    lf_writeOption(parkpos, option, publisher);
}

} // namespace

bool writeAirportFile(const AirportFile& record, const std::filesystem::path& path, bool learnedMode) {
  pugi::xml_document document;
  lf_writeMeta(document);
  lf_writeParameters(document, record, learnedMode);
  pugi::xml_node parkpositions = document.append_child("parkpositions");
  for (const Stand& stand : record.stands)
    lf_writeStand(parkpositions, stand, learnedMode, record.publisher);
  // A learned file is the user's accumulated work: never left damaged by a crash or a full disk.
  if (learnedMode) return writeXmlFile(document, path);
  // A generated file is made anew by the next scan, and a scan that doesn't end is asked for again.
  if (document.save_file(path.c_str())) return true;
  std::error_code error;
  std::filesystem::remove(path, error);
  return false;
}

std::vector<std::string> unlistedAircraft() {
  const std::lock_guard hold(lf_unlistedLock);
  return lf_unlisted;
}

} // namespace ory
