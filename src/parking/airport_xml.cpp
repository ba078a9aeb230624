#include "parking/airport_xml.h"

#include "base/log.h"
#include "liveries/dbase.h"
#include "liveries/text_tokens.h"
#include "parking/airport_file.h"

#include <fmt/format.h>

namespace ory {

namespace {

pugi::xml_attribute lf_parameterAttribute(const pugi::xml_document& DOCUMENT, std::string_view NAME) {
  const std::string query = fmt::format("/parameters/parameter[@name='{}']", NAME);
  return DOCUMENT.select_node(query.c_str()).node().attribute("value");
}

bool lf_isTrue(const pugi::xml_node& NODE, const char* NAME) {
  return isTrueText(NODE.attribute(NAME).value());
}

} // namespace

std::optional<std::string> fileParameter(const pugi::xml_document& DOCUMENT, std::string_view NAME) {
  const pugi::xml_attribute value = lf_parameterAttribute(DOCUMENT, NAME);
  if (!value) return std::nullopt;
  return std::string(value.value());
}

std::optional<std::int32_t> fileInt(const pugi::xml_document& DOCUMENT, std::string_view NAME) {
  const pugi::xml_attribute value = lf_parameterAttribute(DOCUMENT, NAME);
  if (!value) return std::nullopt;
  return value.as_int();
}

std::optional<bool> fileBool(const pugi::xml_document& DOCUMENT, std::string_view NAME) {
  const pugi::xml_attribute value = lf_parameterAttribute(DOCUMENT, NAME);
  if (!value) return std::nullopt;
  return isTrueText(value.value());
}

void readStandPlace(const pugi::xml_node& PARKPOS, Stand& STAND) {
  STAND.lat = PARKPOS.attribute("latitude").as_double();
  STAND.lon = PARKPOS.attribute("longitude").as_double();
  STAND.radius = PARKPOS.attribute("radius").as_double() * nmPerMetre;
}

void readStandKind(const pugi::xml_node& PARKPOS, Stand& STAND) {
  STAND.heli = lf_isTrue(PARKPOS, "heli");
  STAND.ramp = lf_isTrue(PARKPOS, "ramp");
  STAND.cargo = lf_isTrue(PARKPOS, "cargo");
  STAND.heading = PARKPOS.attribute("heading").as_double() * degToRad;
}

std::optional<StandOption> readStandOption(const pugi::xml_node& OPT, bool LEARNED, bool SKIP_TOWED) {
  StandOption option;
  const std::string_view callsigns = OPT.attribute("cs").value();
  const auto colon = callsigns.find(':');
  option.callsignIn = std::string(callsigns.substr(0, colon));
  if (colon != std::string_view::npos && callsigns.find(':', colon + 1) == std::string_view::npos)
    option.callsignOut = std::string(callsigns.substr(colon + 1));
  if (SKIP_TOWED && option.callsignIn.starts_with("TOW ")) return std::nullopt; // towing is no statistic
  option.regcode = OPT.attribute("reg").value();
  if (const auto record = lookupDbaseRecord(option.regcode)) {
    option.airline = record->opr.empty() ? record->airl : record->opr;
    option.type = record->type;
  } else {
    option.airline = OPT.attribute("airl").value();
    option.type = OPT.attribute("type").value();
  }
  option.soft = lf_isTrue(OPT, "soft");
  option.day = OPT.attribute("day").as_int();
  if (option.day < 1 || option.day > 7) {
    logLine(fmt::format("option {} with weekday {} skipped", option.regcode, OPT.attribute("day").value()));
    return std::nullopt;
  }
  option.halfHours = hours2bitset(OPT.attribute("hh").value());
  option.learned = LEARNED;
  return option;
}

} // namespace ory
