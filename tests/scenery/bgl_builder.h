#pragma once
// Builds small BGL files in the layout that bglcomp writes, for tests and benchmarks: one airport section
// with one sub-section that holds the given airport records.

#include <cstdint>
#include <string>
#include <vector>

namespace ory::test {

struct ParkingSpec {
  std::uint32_t nameCode = 10; // 10 is GATE
  std::uint32_t type = 8;      // 8 is GATE_SMALL
  std::uint32_t number = 1;
  float radius = 20.0f;  // metres
  float heading = 90.0f; // degrees
  double lat = 52.0;
  double lon = 4.0;
  std::uint32_t airlineCodes = 0;
};

struct HelipadSpec {
  double lat = 52.001;
  double lon = 4.001;
  float width = 20.0f; // metres
  float heading = 45.0f;
};

struct AirportSpec {
  std::string code = "KTST";
  std::int32_t altitudeMm = 10'000;
  bool newForm = true; // record 0xAB with parking list 0xAD, else 0x3C with 0x3D
  std::vector<std::string> names{"Test Field"};
  std::vector<ParkingSpec> parkings;
  std::vector<HelipadSpec> helipads;
};

std::string buildBgl(const std::vector<AirportSpec>& airports, std::uint32_t headerSize = 0x38);
// A file with one section of another kind, as most scenery files are.
std::string buildBglWithoutAirports(std::size_t payloadBytes);
std::uint32_t encodeIdentifier(const std::string& code);

} // namespace ory::test
