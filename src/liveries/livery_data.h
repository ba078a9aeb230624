#pragma once
// One livery found by the scan of the installed aircraft.

#include <cstdint>
#include <string>

namespace ory {

struct LiveryData {
  std::string airline;           // three-letter airline code, "ZZZ" for a generic livery, or "PVT"
  std::string type;              // ICAO type code
  std::string title;             // the simulator's title, also the key for creating an object
  std::string regcode;           // in-line regcode from atc_id, at most 12 bytes; may be empty
  std::uint32_t folderIndex = 0; // the scanned folder, 1 to 10; not stored in LiveriesScanned.xml
  bool cargo = false;            // the title contains "CARGO", or the database says so
};

} // namespace ory
