#pragma once
// The scan of the user's add-on scenery for airports: where the scenery lies (the simulator's scenery.cfg and
// scenery_add-ons.xml, or the afolder parameters), the walk over its BGL files on worker threads, the scan's
// log files and the folder of airports to be learned offline.

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

namespace ory {

// One scenery folder of the simulator's library.
struct SceneryArea {
  std::filesystem::path path;
  std::int32_t layer = 0; // lower layers lie beneath; the scan goes bottom up
  std::string title;
  bool required = false;
};

// Lockheed Martin's folder of the simulator's configuration: ProgramData\Lockheed Martin\Prepar3D v5.
std::filesystem::path simulatorDataFolder(std::int32_t version);
// The simulator's own scenery, SIM_INSTALL_PATH\Scenery; empty without an install path.
std::filesystem::path stockAirportsPath();
// True when path lies in the stock scenery.
bool isInStockAirports(const std::filesystem::path& path);

// The active areas of scenery.cfg that may hold airports, by layer.
std::vector<SceneryArea> readSceneryCfg(std::int32_t version);
// The scenery components of add-on packages, from scenery_add-ons.xml.
std::vector<SceneryArea> readSceneryAddOns(std::int32_t version);

// Every BGL file with an airport below folder is read on a worker thread of its own, at most scanWorkerLimit
// at a time. Returns false when an exit request ended the walk.
bool scanFolder(const std::filesystem::path& folder);

// The outcome of one scan.
struct AirportsScan {
  bool completed = false;        // ran to its end; false after an exit request
  std::int32_t airportFiles = 0; // files in my_thirdparty and my_ORBX afterwards
};
// The driver: the folders to scan (automatic or afolder), the walk, the log file and the offline folder. Runs
// only when SCAN_AIRPORTS is on, unless forced.
AirportsScan scanAirports(bool forced);

// The airports step of the start-up: checks the afolder parameters (UserErrorException 42, 49), empties the
// folders of the user's airports, scans, and switches SCAN_AIRPORTS off after a completed scan.
void runAirportsStep();
// Shows a message when the stock scenery of the simulator can't be found.
void checkStockAirportsPath();

} // namespace ory
