#pragma once
// A small input\dbase.xml, written in its stored form and read, for tests that need known registrations,
// rotorcraft types or scenery publishers.

#include <string>
#include <vector>

namespace ory::test {

struct DbaseAirframe {
  std::string reg, airl, type, opr;
};

struct DbaseContent {
  std::vector<DbaseAirframe> airframes;
  std::vector<std::string> rotorcraft{"EC35"};
  std::vector<std::string> publishers; // one "names" list each, as "FlyTampa, Fly Tampa"
};

void loadDbase(const DbaseContent& content); // in the current folder; clearDbase() empties it again

} // namespace ory::test
