#pragma once
// Where the park airport lies, for the engine's approach and flare tests.

namespace ory {

struct ParkAirportPosition {
  bool known = false;   // a park airport is chosen and in the airport table
  double lat = 0;       // degrees
  double lon = 0;       // degrees
  double elevation = 0; // feet
};

// Looked up in the airport table once per park airport.
ParkAirportPosition parkAirportPosition();

} // namespace ory
