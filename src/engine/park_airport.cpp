#include "engine/park_airport.h"

#include "parking/airport_database.h"
#include "parking/stands.h"

#include <string>

namespace ory {

ParkAirportPosition parkAirportPosition() {
  // The table is searched linearly, too slow for every segment of every aircraft.
  static std::string cachedCode;
  static ParkAirportPosition cached;
  if (parkAirportCode == cachedCode) return cached;
  cachedCode = parkAirportCode;
  cached = {};
  if (const AirportRecord* airport = findAirport(parkAirportCode))
    cached = {true, airport->lat, airport->lon, airport->altitude};
  return cached;
}

} // namespace ory
