#pragma once
// The table of every known airport, from airports_p3d.xml in the program's folder: code, IATA code, position
// and elevation. Read once at start-up; read-only afterwards. Park airports are looked up in it, and the
// search for the airport under a user on the ground walks it.

#include <string>
#include <string_view>
#include <vector>

namespace ory {

struct AirportRecord {
  std::string code;    // ICAO code (or the simulator's ident)
  std::string iata;    // may be empty
  double lat = 0;      // degrees, north positive
  double lon = 0;      // degrees, east positive
  double altitude = 0; // feet
};

extern std::vector<AirportRecord> airports; // in file order

// Once: true when the table isn't empty; a second call with a filled table returns at once. A missing file is
// logged and gives false; a broken one throws UserErrorException 99, a bad number std::invalid_argument or
// std::out_of_range.
bool readAirports();
void clearAirports();
const AirportRecord* findAirport(std::string_view code); // exact match of the code, or null
std::string airportText(const AirportRecord& airport);   // "EHAM(AMS)", or the code alone without IATA

} // namespace ory
