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

void lf_addNamed(pugi::xml_node PARENT, const char* ELEMENT, std::string_view NAME, std::string_view VALUE) {
  pugi::xml_node node = PARENT.append_child(ELEMENT);
  node.append_attribute("name").set_value(std::string(NAME).c_str());
  node.append_attribute("value").set_value(std::string(VALUE).c_str());
}

void lf_addParameter(pugi::xml_node PARAMETERS, std::string_view NAME, std::string_view VALUE) {
  lf_addNamed(PARAMETERS, "parameter", NAME, VALUE);
}

void lf_addParameter(pugi::xml_node PARAMETERS, std::string_view NAME, std::int64_t VALUE) {
  lf_addNamed(PARAMETERS, "parameter", NAME, std::to_string(VALUE));
}

void lf_addBool(pugi::xml_node PARAMETERS, const BoolParameter& PARAMETER) {
  lf_addNamed(PARAMETERS, "parameter", PARAMETER.name, PARAMETER.value ? "true" : "false");
}

void lf_addInt(pugi::xml_node PARAMETERS, const IntParameter& PARAMETER) {
  lf_addParameter(PARAMETERS, PARAMETER.name, PARAMETER.value.load());
}

void lf_set(pugi::xml_node NODE, const char* NAME, std::string_view VALUE) {
  NODE.append_attribute(NAME).set_value(std::string(VALUE).c_str());
}

void lf_setBool(pugi::xml_node NODE, const char* NAME, bool VALUE) {
  lf_set(NODE, NAME, VALUE ? "true" : "false");
}

std::string lf_dateText() {
  const std::tm utc = utcCalendar(std::time(nullptr));
  return fmt::format("{:04}-{:02}-{:02}", utc.tm_year + 1900, utc.tm_mon + 1, utc.tm_mday);
}

void lf_writeMeta(pugi::xml_document& DOCUMENT) {
  pugi::xml_node meta = DOCUMENT.append_child("meta");
  lf_addNamed(meta, "info", "author", programName);
  lf_addNamed(meta, "info", "version", programVersion);
  lf_addNamed(meta, "info", "date", lf_dateText());
  lf_addNamed(meta, "info", "copyright", copyright);
}

void lf_writeParameters(pugi::xml_document& DOCUMENT, const AirportFile& RECORD, bool LEARNED_MODE) {
  pugi::xml_node parameters = DOCUMENT.append_child("parameters");
  const bool handmade = LEARNED_MODE && handmadeFile;
  lf_addParameter(parameters, "airport_name", RECORD.airportName);
  lf_addParameter(parameters, "publisher", RECORD.publisher);
  if (handmade) lf_addParameter(parameters, "handmade", "true");
  if (!LEARNED_MODE || handmade) lf_addParameter(parameters, "altitude", RECORD.altitude);
  lf_addParameter(parameters, "num_parkpos", static_cast<std::int64_t>(RECORD.stands.size()));
  if (handmade) {
    lf_addParameter(parameters, "Qf_real", RECORD.qfReal);
    lf_addParameter(parameters, "Qf_soft", RECORD.qfSoft);
  }
  if (RECORD.publisher == "unknown" && !RECORD.bglPath.empty())
    lf_addParameter(parameters, "BGLpath", RECORD.bglPath);
  if (!LEARNED_MODE) return;
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

void lf_writeFullEntry(pugi::xml_node PARKPOS, const Stand& STAND) {
  lf_set(PARKPOS, "latitude", fmt::format("{:.6f}", STAND.lat));
  lf_set(PARKPOS, "longitude", fmt::format("{:.6f}", STAND.lon));
  lf_set(PARKPOS, "heading", fmt::format("{:.1F}", STAND.heading * radToDeg));
  lf_set(PARKPOS, "radius", fmt::format("{:.1F}", STAND.radius / nmPerMetre));
  if (STAND.heli)
    lf_set(PARKPOS, "heli", "true");
  else
    lf_setBool(PARKPOS, "cargo", STAND.cargo);
  lf_setBool(PARKPOS, "ramp", STAND.ramp);
}

void lf_writeDifferenceEntry(pugi::xml_node PARKPOS, const Stand& STAND) {
  if (STAND.radiusChanged) {
    lf_set(PARKPOS, "radius_change", "true");
    lf_set(PARKPOS, "radius", fmt::format("{:.1F}", STAND.radius / nmPerMetre));
  }
  if (STAND.cargoChanged) {
    lf_set(PARKPOS, "cargo_change", "true");
    lf_setBool(PARKPOS, "cargo", STAND.cargo);
  }
}

// Airline and type are written only for an aircraft the database doesn't know; they are derived otherwise.
void lf_writeOption(pugi::xml_node PARKPOS, const StandOption& OPTION, std::string_view PUBLISHER) {
  pugi::xml_node opt = PARKPOS.append_child("opt");
  lf_set(opt, "reg", OPTION.regcode);
  if (!lookupDbaseRecord(OPTION.regcode)) {
    lf_set(opt, "airl", OPTION.airline);
    lf_set(opt, "type", OPTION.type);
    if (PUBLISHER != "stock" && OPTION.airline != "PVT" &&
        modelCategory(OPTION.type) != ModelCategory::Rotorcraft) {
      const std::lock_guard hold(lf_unlistedLock);
      lf_unlisted.push_back(fmt::format("{} {} {}", OPTION.regcode, OPTION.airline, OPTION.type));
    }
  }
  if (OPTION.soft) lf_set(opt, "soft", "true");
  lf_set(opt, "day", std::to_string(OPTION.day));
  lf_set(opt, "hh", slotsToText(OPTION.halfHours));
  const std::string callsigns =
      OPTION.callsignOut.empty() ? OPTION.callsignIn : OPTION.callsignIn + ":" + OPTION.callsignOut;
  if (!callsigns.empty()) lf_set(opt, "cs", callsigns);
}

// A handmade file replaces the archived one, so all its stands are full entries; a learned file on top of an
// archived one holds differences only.
void lf_writeStand(pugi::xml_node PARKPOSITIONS, const Stand& STAND, bool LEARNED_MODE,
                   std::string_view PUBLISHER) {
  pugi::xml_node parkpos = PARKPOSITIONS.append_child("parkpos");
  lf_set(parkpos, "id", STAND.id);
  if (!LEARNED_MODE) {
    lf_writeFullEntry(parkpos, STAND);
    return;
  }
  if (STAND.manual || handmadeFile) {
    lf_writeFullEntry(parkpos, STAND);
    if (STAND.manual) lf_set(parkpos, "manual", "true");
  } else if (STAND.radiusChanged || STAND.cargoChanged) {
    lf_writeDifferenceEntry(parkpos, STAND);
  }
  for (const StandOption& option : STAND.options)
    lf_writeOption(parkpos, option, PUBLISHER);
}

} // namespace

bool writeAirportFile(const AirportFile& RECORD, const std::filesystem::path& PATH, bool LEARNED_MODE) {
  pugi::xml_document document;
  lf_writeMeta(document);
  lf_writeParameters(document, RECORD, LEARNED_MODE);
  pugi::xml_node parkpositions = document.append_child("parkpositions");
  for (const Stand& stand : RECORD.stands)
    lf_writeStand(parkpositions, stand, LEARNED_MODE, RECORD.publisher);
  // A learned file is the user's accumulated work: never left damaged by a crash or a full disk.
  if (LEARNED_MODE) return writeXmlFile(document, PATH);
  // A generated file is made anew by the next scan, and a scan that doesn't end is asked for again.
  if (document.save_file(PATH.c_str())) return true;
  std::error_code error;
  std::filesystem::remove(PATH, error);
  return false;
}

std::vector<std::string> unlistedAircraft() {
  const std::lock_guard hold(lf_unlistedLock);
  return lf_unlisted;
}

} // namespace ory
