#include "parking/airport_database.h"

#include "base/exceptions.h"
#include "base/log.h"
#include "base/paths.h"
#include "liveries/text_tokens.h"

#include <fmt/format.h>
#include <pugixml.hpp>

namespace ory {

std::vector<AirportRecord> airports;

bool readAirports() {
  if (!airports.empty()) return true;
  airports.reserve(80000);
  const std::string path = pathText(airportsP3dFile);
  pugi::xml_document document;
  const pugi::xml_parse_result loaded = document.load_file(airportsP3dFile.c_str());
  if (loaded.status == pugi::status_file_not_found) {
    logLine(path + " not found");
    return false;
  }
  if (!loaded) throw UserErrorException(99, fmt::format("{} not loaded {}", path, loaded.description()));
  for (const pugi::xml_node airport : document.child("airports").children("airport"))
    airports.push_back({airport.attribute("code").as_string(), airport.attribute("iata").as_string(),
                        textToDouble(airport.attribute("lat").as_string()),
                        textToDouble(airport.attribute("lon").as_string()),
                        textToFloat(airport.attribute("alt").as_string())});
  logLine(fmt::format("{} airports read from \"{}\"", airports.size(), path));
  return !airports.empty();
}

void clearAirports() {
  airports.clear();
  airports.shrink_to_fit();
}

const AirportRecord* findAirport(std::string_view code) {
  for (const AirportRecord& airport : airports)
    if (airport.code == code) return &airport;
  return nullptr;
}

std::string airportText(const AirportRecord& airport) {
  if (airport.iata.empty()) return airport.code;
  return fmt::format("{}({})", airport.code, airport.iata);
}

} // namespace ory
