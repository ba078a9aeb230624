#pragma once
// The converter: real ADS-B tracks (readsb trace JSON, OpenSky-style JSON records or columns, the flat trace
// CSV; gzipped or plain) to a capture file.

#include <string>
#include <vector>

namespace ory {

struct ConvertOptions {
  std::vector<std::string> inputs;
  std::string output;
  std::string registry; // CSV hex,registration,icao_type,...: registration and type by hexid
  std::string types;    // tar1090-db icao_aircraft_types2.json: category by type
};

// Returns the number of traffic lines written; throws std::runtime_error on unreadable input.
std::size_t convertTracks(const ConvertOptions& options);

} // namespace ory
