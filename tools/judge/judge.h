#pragma once
// What a pilot would see of the traffic, measured from the simulator stand-in's trace against the real tracks
// it was fed: how far the flown paths lie from the real ones, steps between frames that no aircraft could
// fly, turns on the ground, height over the ground, touch-downs against the runway, and parked aircraft
// against their stands.

#include "parking/stands.h"

#include <nlohmann/json.hpp>

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace ory {

// One frame of an object, from a "state" line.
struct FlownPoint {
  double wall = 0;       // seconds since the stand-in started
  double time = 0;       // scenario seconds: one frame period a frame
  double lat = 0;        // degrees
  double lon = 0;        // degrees
  double altitude = 0;   // feet
  double tas = 0;        // knots, as the program set it
  bool frozen = false;   // released and frozen in all three parts
  double heading = 0;    // radians true
  double agl = 0;        // feet, the reference point over the stand-in's ground
  bool onGround = false; // as the stand-in tells it
};

// One report of the real aircraft.
struct RealPoint {
  double offset = 0;     // seconds into the capture
  double lat = 0;        // degrees
  double lon = 0;        // degrees
  double altitude = 0;   // feet
  bool onGround = false; // the feed's flag
  double knots = 0;      // ground speed
};

// One real aircraft of a capture.
struct RealAircraft {
  std::uint32_t hexid = 0;
  std::string callsign;       // empty when unknown
  std::string registration;   // empty when unknown
  std::int32_t category = -1; // the engine's 0 to 5 from the emitter category; -1 unknown
  std::vector<RealPoint> track;
};

// One AI object of the trace.
struct FlownObject {
  std::int64_t id = 0;
  std::string atcId;
  std::string title; // from its create call; empty when the trace lacks it
  std::vector<FlownPoint> path;
};

struct TrackFigures {
  std::size_t frames = 0;    // frames after the object was released and frozen
  std::size_t onTrack = 0;   // of these, frames abreast of the real track, not beyond its end
  double medianMetres = 0;   // distance from the nearest point of the real track
  double p95Metres = 0;      //
  double maxMetres = 0;      //
  std::size_t jumps = 0;     // steps faster than twice the set speed plus 10 knots
  double worstStepRatio = 0; // the largest step against that bound
};

// A runway by its two thresholds, as OurAirports' runways.csv gives them.
struct Runway {
  std::string name;
  double lat1 = 0, lon1 = 0; // degrees, one threshold
  double lat2 = 0, lon2 = 0; // degrees, the other
  double widthMetres = 45;
};

struct TouchDown {
  double lat = 0, lon = 0;    // degrees
  std::string runway;         // the nearest runway; empty without runways
  double alongMetres = 0;     // from the threshold landed over; negative: short of it
  double acrossMetres = 0;    // from the centre line
  bool onRunway = false;      // within its length and width
  double rollOutSeconds = 0;  // on the ground after it
  double rollOutEndKnots = 0; // the set speed at the end of that
};

// An aircraft standing still on the ground for a while.
struct ParkedSpell {
  double lat = 0, lon = 0;        // degrees
  double seconds = 0;             // how long it stood
  std::string stand;              // the nearest stand's id; empty when the airport has none
  double metres = 0;              // from that stand
  double headingErrorDegrees = 0; // against the stand's heading
};

struct ObjectFigures {
  std::string atcId;
  std::size_t frames = 0;           // released and frozen
  bool firstOnGround = false;       // at its first such frame: with openingKnots, one on its landing roll
  double openingKnots = 0;          // the fastest speed the engine set in its first such seconds
  double worstKnots = 0;            // the fastest step implied by consecutive positions
  double engineKnots = 0;           // the speed the engine set at that step
  double worstStepRatio = 0;        // the largest step against twice the set speed plus 10 knots
  std::size_t jumps = 0;            // steps beyond that bound
  std::int32_t category = -1;       // the engine's category; -1 unknown
  double turnLimit = 0;             // degrees per second of the category; 0 unknown
  double groundTurnRate = 0;        // degrees per second, the largest over a second on the ground
  std::size_t groundFrames = 0;     //
  double worstGroundHeightFeet = 0; // over the ground plus static CG while on the ground, the largest by size
  bool staticCgKnown = false;       // the title is in the scenario; else heights are over the ground only
  double backwardsMetres = 0;       // moved tail first on the ground: a push back
  double taxiMetres = 0;            // moved nose first on the ground at taxi speed
  std::vector<double> groundMetres; // from the real track, each ground frame abreast of it
  std::vector<double> airMetres;    // the same in the air
  std::vector<TouchDown> touchDowns; //
  std::vector<ParkedSpell> parked;   // standing still within a stand's circle
  std::vector<ParkedSpell> holds; // standing still off every stand: holding short, waiting after a push back
};

// A title as the stand-in matches it: case ignored.
std::string titleKey(std::string_view title);

// Median and 95th percentile of a set of distances.
struct Spread {
  std::size_t count = 0;
  double median = 0; // metres
  double p95 = 0;    // metres
};

// What the judge knows beside the trace.
struct JudgeContext {
  std::map<std::string, double> staticCg; // feet by titleKey, from the scenario's titles
  std::vector<RealAircraft> real;
  std::vector<Runway> runways;
  std::vector<Stand> stands;
};

// The frames of the object whose tail number is atcId, from the trace's "state" lines, in order.
std::vector<FlownPoint> flownPath(const std::vector<nlohmann::json>& trace, std::string_view atcId);
// Every AI object of the trace with its frames.
std::vector<FlownObject> flownObjects(const std::vector<nlohmann::json>& trace);
// The reports of hexid in a feedplay capture file.
std::vector<RealPoint> realTrack(const std::string& capturePath, std::uint32_t hexid);
// Every aircraft of a feedplay capture file.
std::vector<RealAircraft> realAircraft(const std::string& capturePath);
// The airport the program parks at, as its airport list gives it.
struct ParkAirport {
  double lat = 0;       // degrees
  double lon = 0;       // degrees
  double elevation = 0; // feet
};
// Leaves out the reports that the program's reader refuses as ground traffic away from the park airport: low
// and slow is on the ground to it, whatever the feed's flag. Past the last report it took, the engine
// dead-reckons, and frames past the end of a real track are not judged against it.
void dropGroundReportsAway(std::vector<RealAircraft>& real, const ParkAirport& park);
// The real aircraft an object was made for, by callsign or registration; nullptr when none.
const RealAircraft* realFor(const std::vector<RealAircraft>& real, std::string_view atcId);

TrackFigures judgeTrack(const std::vector<FlownPoint>& flown, const std::vector<RealPoint>& real);
std::string figuresText(const TrackFigures& figures);

// A point in metres from an origin, in a flat frame around it: enough at the scale of an airport.
struct Flat {
  double x = 0; // metres east of the origin
  double y = 0; // metres north
};
Flat flatFrom(double originLat, double originLon, double lat, double lon);

ObjectFigures judgeObject(const FlownObject& object, const JudgeContext& context);
Spread spreadOf(std::vector<double> metres);

} // namespace ory
