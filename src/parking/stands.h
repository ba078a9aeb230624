#pragma once
// The stands of the current park airport and the statistics of every stand, shared by all parking code. Owned
// by the main-loop thread; only parkingSessionOpen is touched from other threads.

#include "base/run.h"
#include "base/text_files.h"
#include "engine/geometry.h"

#include <atomic>
#include <cstdint>
#include <filesystem>
#include <string>
#include <unordered_map>
#include <vector>

namespace ory {

// One statistic of a stand: one aircraft on one weekday. Element "opt".
struct StandOption {
  std::string airline;       // ICAO airline code; "PVT" for a private aircraft
  std::string type;          // ICAO type designator
  std::string regcode;       // registration; "REGFAKE" and a number for a made-up aircraft
  std::string callsignIn;    // callsign under which the aircraft arrived
  std::string callsignOut;   // callsign under which it left; empty if the couple is not known
  HalfHours halfHours;       // bit n: the aircraft stood here in half hour n of the day, UTC
  std::int32_t optionId = 0; // 1-based within the stand, larger for later options; 0: disabled until renewal
  std::int32_t day = 1;      // weekday 1 (Monday) to 7
  bool learned = false; // from a learned file or learned here: saved, may change; archived options are not
  bool soft = false;    // the aircraft was near the stand, the stand is a guess
};

// A real aircraft being counted on a stand.
struct StandVisit {
  Slot slot;                 // day and half hour when the visit began
  std::int32_t optionId = 0; // the option it counts for
};

// One parking position. Element "parkpos".
struct Stand {
  std::vector<StandOption> options;
  std::unordered_map<std::uint32_t, StandVisit> realVisits; // by hexid
  std::unordered_map<std::uint32_t, StandVisit> softVisits; // by hexid
  std::string id;                                           // the name, unique within the airport
  std::vector<std::uint32_t> neighbours;                    // standId of every overlapping stand
  double lat = 0.0;                                         // degrees
  double lon = 0.0;                                         // degrees
  double heading = 0.0;                                     // radians true, never 0 for a scanned stand
  double radius = 0.0;                                      // nautical miles; the file holds metres
  std::uint32_t standId = 0;                                // 1-based place in stands; 0 means no stand
  bool manual = false;                                      // made by hand in a learned file
  bool radiusChanged = false;                               // radius differs from the archived value
  bool cargoChanged = false;                                // cargo differs from the archived value
  bool idDoubled = false;                                   // the scan had to make the id unique
  bool occupied = false;    // a static parked or live stayer aircraft is (to be) here
  bool takenByLive = false; // a live aircraft holds the stand
  bool reserved = false;    // kept free for the user
  bool blocked = false;     // a neighbour is occupied
  bool cargo = false;
  bool ramp = false; // general aviation stand
  bool heli = false; // helipad
};

// Quality of an airport's statistics, 0 to 100; negative means unknown.
struct QualityFactors {
  std::int32_t real = -1;
  std::int32_t soft = -1;
  bool operator==(const QualityFactors&) const = default;
};

// What the airport file writer is handed; the scan's result of one airport has the same shape.
struct AirportFile {
  std::string code; // ICAO
  std::string airportName;
  std::string bglPath;   // the BGL file of the airport, UTF-8; written only for publisher "unknown"
  std::string publisher; // "stock", "ORBX", a publisher's name or "unknown"
  std::uint32_t rtTrafficWeek = 0;
  std::int32_t qfReal = -1;
  std::int32_t qfSoft = -1;
  std::int32_t altitude = 0; // feet
  std::vector<Stand> stands;
};
using ScanResult = AirportFile;

// The current park airport.
extern std::vector<Stand> stands;   // in file order; stands[i].standId == i + 1
extern std::string parkAirportCode; // ICAO; empty: no park airport
extern std::string parkAirportName;
extern double parkAirportLat; // degrees, from the airport table
extern double parkAirportLon; // degrees
extern std::string parkPublisher;
extern std::string parkBglPath; // kept so that a learned file of an unknown publisher names its scenery
extern std::int32_t parkAltitudeFeet;
extern double parkAltitude; // feet, for the ground tests
extern bool handmadeFile;   // the learned file replaces the archived one as a whole
extern QualityFactors qualityFactors;
extern std::int32_t updateCount; // changes since the last save
extern std::atomic<bool>
    parameterChanged; // a parking parameter changed since the last save (window, main loop)
extern std::atomic<bool> parkingSessionOpen;
extern std::filesystem::path learnedFilePath;

// Forgets the park airport's stands and values (not parkAirportCode, which its chooser owns).
void resetStands();

} // namespace ory
