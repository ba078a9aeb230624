#include "engine/park_airport.h"

#include "parking/stands.h"

namespace ory {

ParkAirportPosition parkAirportPosition() {
  if (parkAirportCode.empty()) return {};
  return {true, parkAirportLat, parkAirportLon, parkAltitude};
}

} // namespace ory
