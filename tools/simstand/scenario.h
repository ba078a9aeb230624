#pragma once
// The scenario file of the simulator stand-in (JSON; README.md documents every key): the simulator it claims
// to be, the user's scripted track, the terrain, the installed aircraft titles, traffic of other clients, and
// the timeline of pauses, teleports, loaded flights, garbage and the quit.

#include <array>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace ory {

enum class WriteMode {
  whole,    // every record in one write
  split,    // every record in pieces of 1 to 7 bytes, each its own write
  coalesce, // all records of one pass of the server in one write
};

// One point of the user's track; between points the user moves in a straight line.
struct TrackPoint {
  double t = 0;                   // seconds of simulator time
  double lat = 0;                 // degrees
  double lon = 0;                 // degrees
  std::optional<double> altitude; // feet above sea level; none: on the ground
  double heading = 0;             // degrees true
  double pitch = 0;               // degrees, negative nose up
  double bank = 0;                // degrees
  double speed = 0;               // knots over the ground
};

struct TerrainArea {
  double lat = 0;       // degrees, centre
  double lon = 0;       // degrees
  double radiusNm = 0;  // nautical miles
  double elevation = 0; // feet
};

struct InstalledTitle {
  std::string title;      // container title, compared without regard to case
  double staticCg = 6;    // feet, "Static CG to Ground"
  double staticPitch = 0; // radians, "Static Pitch"
};

// An aircraft that another client (or the simulator's own traffic) puts into the world.
struct TrafficObject {
  double t = 0;      // seconds of scenario time
  std::string title; // need not be installed
  std::string atcId;
  double lat = 0, lon = 0;        // degrees
  std::optional<double> altitude; // feet; none: on the ground
  double heading = 0;             // degrees true
  double speed = 0;               // knots
};

struct TimelineEntry {
  double t = 0;     // seconds of scenario time (wall clock since the first accepted Open)
  std::string what; // pause, resume, simRate, teleport, positionChanged, flightLoaded, removeObject, garbage,
                    // cutRecord, quit
  std::optional<TrackPoint> moveTo; // teleport, positionChanged, flightLoaded: where the user goes
  double rate = 1;                  // simRate: simulator seconds per second of wall clock
  std::string text; // flightLoaded: the file name; removeObject: the "ATC ID"; garbage: hex bytes
};

struct Scenario {
  std::string simulatorName = "Lockheed Martin\xae Prepar3D\xae v5"; // Latin-1
  std::array<std::uint32_t, 4> appVersion = {5, 3, 17, 28160};
  std::array<std::uint32_t, 4> simConnectVersion = {5, 3, 0, 0};
  std::vector<std::uint32_t> protocols = {4}; // accepted in Open; others get VERSION_MISMATCH
  bool p3dShapes = false;                     // event records with the trailing dwFlags of Prepar3D
  WriteMode writes = WriteMode::whole;
  double frameRate = 30;               // "Frame" events per second of wall clock
  double reportedFrameRate = 45;       // the fFrameRate they carry
  double duration = 0;                 // seconds of scenario time, then quit; 0: until stopped
  bool startRunning = true;            // "Sim" state at the start
  std::int64_t zuluStart = 1715956200; // seconds since 1970 at simulator time 0
  double createDelay = 0;              // seconds from AICreateNonATCAircraft to the object
  std::uint32_t userObjectId = 1;
  std::uint32_t firstObjectId = 100;

  std::string userTitle = "Lockheed Martin C-130J";
  std::string userAtcModel = "C130";
  std::string userAtcId = "N130LM";
  double userStaticCg = 6.5;     // feet
  double userStaticPitch = 0;    // radians
  std::vector<TrackPoint> track; // at least one point

  double terrainElevation = 0; // feet, where no area lies
  std::vector<TerrainArea> terrain;
  std::vector<InstalledTitle> titles;
  std::vector<TrafficObject> traffic;
  std::vector<TimelineEntry> timeline; // in time order
};

// Reads file; throws std::runtime_error with the key or position at fault.
Scenario loadScenario(const std::filesystem::path& file);

} // namespace ory
