#include "parking/airport_xml.h"

#include "base/log.h"
#include "liveries/dbase.h"
#include "liveries/text_tokens.h"
#include "parking/airport_file.h"

#include <fmt/format.h>

namespace ory {

namespace {

pugi::xml_attribute lf_parameterAttribute(const pugi::xml_document& document, std::string_view name) {
  const std::string query = fmt::format("/parameters/parameter[@name='{}']", name);
  return document.select_node(query.c_str()).node().attribute("value");
}

bool lf_isTrue(const pugi::xml_node& node, const char* name) {
  return isTrueText(node.attribute(name).value());
}

} // namespace

std::optional<std::string> fileParameter(const pugi::xml_document& document, std::string_view name) {
  const pugi::xml_attribute value = lf_parameterAttribute(document, name);
  if (!value) return std::nullopt;
  return std::string(value.value());
}

std::optional<std::int32_t> fileInt(const pugi::xml_document& document, std::string_view name) {
  const pugi::xml_attribute value = lf_parameterAttribute(document, name);
  if (!value) return std::nullopt;
  return value.as_int();
}

std::optional<bool> fileBool(const pugi::xml_document& document, std::string_view name) {
  const pugi::xml_attribute value = lf_parameterAttribute(document, name);
  if (!value) return std::nullopt;
  return isTrueText(value.value());
}

void readStandPlace(const pugi::xml_node& parkpos, Stand& stand) {
  stand.lat = parkpos.attribute("latitude").as_double();
  stand.lon = parkpos.attribute("longitude").as_double();
  stand.radius = parkpos.attribute("radius").as_double() * nmPerMetre;
}

void readStandKind(const pugi::xml_node& parkpos, Stand& stand) {
  stand.heli = lf_isTrue(parkpos, "heli");
  stand.ramp = lf_isTrue(parkpos, "ramp");
  stand.cargo = lf_isTrue(parkpos, "cargo");
  stand.heading = parkpos.attribute("heading").as_double() * degToRad;
}

std::optional<StandOption> readStandOption(const pugi::xml_node& opt, bool learned, bool skipTowed) {
  StandOption option;
  const std::string_view callsigns = opt.attribute("cs").value();
  const auto colon = callsigns.find(':');
  option.callsignIn = std::string(callsigns.substr(0, colon));
  if (colon != std::string_view::npos && callsigns.find(':', colon + 1) == std::string_view::npos)
    option.callsignOut = std::string(callsigns.substr(colon + 1));
  if (skipTowed && option.callsignIn.starts_with("TOW ")) return std::nullopt; // towing is no statistic
  option.regcode = opt.attribute("reg").value();
  if (const auto record = lookupDbaseRecord(option.regcode)) {
    option.airline = record->opr.empty() ? record->airl : record->opr;
    option.type = record->type;
  } else {
    option.airline = opt.attribute("airl").value();
    option.type = opt.attribute("type").value();
  }
  option.soft = lf_isTrue(opt, "soft");
  option.day = opt.attribute("day").as_int();
  if (option.day < 1 || option.day > 7) {
    logLine(fmt::format("option {} with weekday {} skipped", option.regcode, opt.attribute("day").value()));
    return std::nullopt;
  }
  option.halfHours = hours2bitset(opt.attribute("hh").value());
  option.learned = learned;
  return option;
}

} // namespace ory
