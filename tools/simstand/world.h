#pragma once
// The stand-in's world: the user's aircraft on its scripted track, AI objects that fly or roll on their own
// until they are released from AI control and frozen, the terrain below them, and the simulation variables
// that data definitions read and write.

#include "scenario.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace ory {

// Bits of "LIGHT STATES" and "Light On States", as the SDK numbers them.
enum LightBit : std::uint32_t {
  lightNav = 0x1,
  lightBeacon = 0x2,
  lightLanding = 0x4,
  lightTaxi = 0x8,
  lightStrobe = 0x10,
  lightLogo = 0x100,
  lightCabin = 0x200,
};

struct SimObject {
  std::uint32_t id = 0;
  bool user = false;
  std::uint32_t owner = 0; // the client that created it; 0 for the user and scenario traffic
  std::string title, atcId, atcModel;
  double lat = 0, lon = 0;    // degrees
  double altitude = 0;        // feet above sea level of the reference point
  double pitch = 0, bank = 0; // radians, pitch negative nose up
  double heading = 0;         // radians true
  double verticalSpeed = 0;   // feet per second
  double tas = 0;             // knots
  double groundSpeed = 0;     // knots
  double staticCg = 6;        // feet from the reference point down to the wheels
  double staticPitch = 0;     // radians
  bool released = false;      // AIReleaseControl: the simulator's AI no longer flies it
  bool freezeLatLon = false, freezeAltitude = false, freezeAttitude = false;
  std::uint32_t lights = 0; // LightBit mask
  bool gearDown = true;
  double flaps = 0;    // 0 to 1
  double spoilers = 0; // 0 to 1
  double throttle = 0; // 0 to 1
  bool engines = false;
};

struct World {
  explicit World(const Scenario& scenario);
  const Scenario& scenario;
  double simTime = 0; // seconds; stands still while paused
  bool paused = false;
  double simRate = 1;             // simulator seconds per second of wall clock, as the user set it
  std::vector<TrackPoint> track;  // the user's; a teleport replaces it
  std::vector<SimObject> objects; // the user first
  std::uint32_t nextObjectId = 100;
};

SimObject& userObject(World& world);
SimObject* findObject(World& world, std::uint32_t objectId);
double groundElevation(const World& world, double lat, double lon); // feet
double aboveGround(const World& world, const SimObject& object);    // feet of the reference point
bool onGround(const World& world, const SimObject& object);         // wheels within a foot of the ground

// Advances simulator time by dt seconds (nothing moves while paused).
void stepWorld(World& world, double dt);
// Puts the user at point and keeps it there.
void moveUser(World& world, const TrackPoint& point);
// A new AI object on the ground (no altitude) or in the air.
SimObject& addObject(World& world, std::string_view title, std::string_view atcId, double lat, double lon,
                     std::optional<double> altitude, double headingRadians, double speed, double staticCg,
                     double staticPitch);

// A simulation variable's value in a unit: a number, or text for "ATC ID", "ATC MODEL" and "title".
struct SimValue {
  double number = 0;
  std::string text;
  bool isText = false;
};
// Whether name (case ignored, an index ":n" allowed) is a variable of this world, and unit fits it.
bool knownSimVar(std::string_view name);
bool unitFits(std::string_view name, std::string_view unit);
SimValue readSimVar(const World& world, const SimObject& object, std::string_view name,
                    std::string_view unit);
// Writes the settable ones (position, attitude, speeds, spoilers, throttles, lights); false for the others.
bool writeSimVar(SimObject& object, std::string_view name, std::string_view unit, double value);

// A client event by its simulator name on object: lights, freezes, flaps (which hand the object back to the
// AI), spoilers, gear, engines, throttle. False for names the stand-in does not model.
bool applySimEvent(SimObject& object, std::string_view eventName, std::uint32_t data);

} // namespace ory
