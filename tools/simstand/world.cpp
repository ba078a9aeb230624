#include "world.h"

#include "engine/geometry.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <ctime>

namespace ory {

namespace {

constexpr double driftKnots = 10;        // an AI object without a speed of its own still taxies
constexpr double sinkFeetPerSecond = 10; // an airborne AI object that isn't frozen sinks to the ground
constexpr double attitudeRadiansPerSecond = 0.05;

enum class Dimension { angle, length, speed, scalar, ratio, text };

struct Unit {
  std::string_view name;
  Dimension dimension;
  double factor; // to radians, metres, metres per second, 1
};

constexpr std::array<Unit, 21> units = {{
    {"radians", Dimension::angle, 1},
    {"radian", Dimension::angle, 1},
    {"degrees", Dimension::angle, degToRad},
    {"degree", Dimension::angle, degToRad},
    {"feet", Dimension::length, metresPerFoot},
    {"foot", Dimension::length, metresPerFoot},
    {"ft", Dimension::length, metresPerFoot},
    {"meters", Dimension::length, 1},
    {"meter", Dimension::length, 1},
    {"knots", Dimension::speed, 0.514444},
    {"knot", Dimension::speed, 0.514444},
    {"feet per second", Dimension::speed, metresPerFoot},
    {"feet per minute", Dimension::speed, metresPerFoot / 60},
    {"meters per second", Dimension::speed, 1},
    {"bool", Dimension::scalar, 1},
    {"mask", Dimension::scalar, 1},
    {"number", Dimension::scalar, 1},
    {"seconds", Dimension::scalar, 1},
    {"percent", Dimension::ratio, 0.01},
    {"percent over 100", Dimension::ratio, 1},
    {"", Dimension::text, 1},
}};

struct Var {
  std::string_view name; // upper case, without an index
  Dimension dimension;
  double factor; // of the stored value, as in Unit
  double (*get)(const World&, const SimObject&);
  void (*set)(SimObject&, double); // null when read-only
  std::string (*text)(const SimObject&);
};

std::tm lf_zulu(const World& w) {
  const auto seconds = static_cast<std::time_t>(w.scenario.zuluStart + static_cast<std::int64_t>(w.simTime));
  std::tm tm{};
  gmtime_r(&seconds, &tm);
  return tm;
}

const std::array<Var, 28> vars = {{
    {"PLANE LATITUDE", Dimension::angle, degToRad, [](const World&, const SimObject& o) { return o.lat; },
     [](SimObject& o, double v) { o.lat = v; }, nullptr},
    {"PLANE LONGITUDE", Dimension::angle, degToRad, [](const World&, const SimObject& o) { return o.lon; },
     [](SimObject& o, double v) { o.lon = v; }, nullptr},
    {"PLANE PITCH DEGREES", Dimension::angle, 1, [](const World&, const SimObject& o) { return o.pitch; },
     [](SimObject& o, double v) { o.pitch = v; }, nullptr},
    {"PLANE BANK DEGREES", Dimension::angle, 1, [](const World&, const SimObject& o) { return o.bank; },
     [](SimObject& o, double v) { o.bank = v; }, nullptr},
    {"PLANE HEADING DEGREES TRUE", Dimension::angle, 1, [](const World&, const SimObject& o) { return o.heading; },
     [](SimObject& o, double v) { o.heading = v; }, nullptr},
    {"PLANE ALTITUDE", Dimension::length, metresPerFoot, [](const World&, const SimObject& o) { return o.altitude; },
     [](SimObject& o, double v) { o.altitude = v; }, nullptr},
    {"PLANE ALT ABOVE GROUND", Dimension::length, metresPerFoot,
     [](const World& w, const SimObject& o) { return aboveGround(w, o); }, nullptr, nullptr},
    {"GROUND ALTITUDE", Dimension::length, metresPerFoot,
     [](const World& w, const SimObject& o) { return groundElevation(w, o.lat, o.lon); }, nullptr, nullptr},
    {"VERTICAL SPEED", Dimension::speed, metresPerFoot, [](const World&, const SimObject& o) { return o.verticalSpeed; },
     [](SimObject& o, double v) { o.verticalSpeed = v; }, nullptr},
    {"AIRSPEED TRUE", Dimension::speed, 0.514444, [](const World&, const SimObject& o) { return o.tas; },
     [](SimObject& o, double v) { o.tas = v; }, nullptr},
    {"GROUND VELOCITY", Dimension::speed, 0.514444, [](const World&, const SimObject& o) { return o.groundSpeed; },
     nullptr, nullptr},
    {"SIM ON GROUND", Dimension::scalar, 1,
     [](const World& w, const SimObject& o) { return onGround(w, o) ? 1.0 : 0.0; }, nullptr, nullptr},
    {"STATIC CG TO GROUND", Dimension::length, metresPerFoot, [](const World&, const SimObject& o) { return o.staticCg; },
     nullptr, nullptr},
    {"STATIC PITCH", Dimension::angle, 1, [](const World&, const SimObject& o) { return o.staticPitch; }, nullptr,
     nullptr},
    {"LIGHT STATES", Dimension::scalar, 1, [](const World&, const SimObject& o) { return double(o.lights); },
     [](SimObject& o, double v) { o.lights = static_cast<std::uint32_t>(v); }, nullptr},
    {"LIGHT ON STATES", Dimension::scalar, 1, [](const World&, const SimObject& o) { return double(o.lights); },
     [](SimObject& o, double v) { o.lights = static_cast<std::uint32_t>(v); }, nullptr},
    {"SPOILERS HANDLE POSITION", Dimension::ratio, 1, [](const World&, const SimObject& o) { return o.spoilers; },
     [](SimObject& o, double v) { o.spoilers = std::clamp(v, 0.0, 1.0); }, nullptr},
    {"GENERAL ENG THROTTLE LEVER POSITION", Dimension::ratio, 1,
     [](const World&, const SimObject& o) { return o.throttle; },
     [](SimObject& o, double v) { o.throttle = std::clamp(v, 0.0, 1.0); }, nullptr},
    {"GEAR HANDLE POSITION", Dimension::scalar, 1,
     [](const World&, const SimObject& o) { return o.gearDown ? 1.0 : 0.0; }, nullptr, nullptr},
    {"FLAPS HANDLE PERCENT", Dimension::ratio, 1, [](const World&, const SimObject& o) { return o.flaps; }, nullptr,
     nullptr},
    {"GENERAL ENG COMBUSTION", Dimension::scalar, 1,
     [](const World&, const SimObject& o) { return o.engines ? 1.0 : 0.0; }, nullptr, nullptr},
    {"ZULU TIME", Dimension::scalar, 1,
     [](const World& w, const SimObject&) {
       const std::tm tm = lf_zulu(w);
       return double(tm.tm_hour * 3600 + tm.tm_min * 60 + tm.tm_sec);
     },
     nullptr, nullptr},
    {"ZULU DAY OF YEAR", Dimension::scalar, 1,
     [](const World& w, const SimObject&) { return double(lf_zulu(w).tm_yday + 1); }, nullptr, nullptr},
    {"ZULU YEAR", Dimension::scalar, 1, [](const World& w, const SimObject&) { return double(lf_zulu(w).tm_year + 1900); },
     nullptr, nullptr},
    {"ATC ID", Dimension::text, 1, nullptr, nullptr, [](const SimObject& o) { return o.atcId; }},
    {"ATC MODEL", Dimension::text, 1, nullptr, nullptr, [](const SimObject& o) { return o.atcModel; }},
    {"TITLE", Dimension::text, 1, nullptr, nullptr, [](const SimObject& o) { return o.title; }},
    {"IS USER SIM", Dimension::scalar, 1, [](const World&, const SimObject& o) { return o.user ? 1.0 : 0.0; },
     nullptr, nullptr},
}};

std::string lf_upper(std::string_view text) {
  std::string upper(text);
  for (char& c : upper)
    if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 32);
  return upper;
}

std::string lf_lower(std::string_view text) {
  std::string lower(text);
  for (char& c : lower)
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c + 32);
  return lower;
}

const Var* lf_var(std::string_view rawName) {
  const std::string name = lf_upper(rawName.substr(0, rawName.find(':')));
  for (const Var& var : vars)
    if (var.name == name) return &var;
  return nullptr;
}

const Unit* lf_unit(std::string_view rawName) {
  const std::string name = lf_lower(rawName);
  for (const Unit& unit : units)
    if (unit.name == name) return &unit;
  return nullptr;
}

double lf_angleTowards(double from, double to, double step) {
  const double difference = std::remainder(to - from, 2 * pi);
  return std::abs(difference) <= step ? to : from + std::copysign(step, difference);
}

void lf_moveAlong(SimObject& o, double knots, double dt) {
  const double nm = knots * dt / 3600;
  o.lat += nm / 60 * std::cos(o.heading);
  o.lon += nm / 60 * std::sin(o.heading) / std::max(0.01, std::cos(o.lat * degToRad));
}

void lf_stepUser(World& w, SimObject& u) {
  const std::vector<TrackPoint>& track = w.track;
  std::size_t next = 0;
  while (next < track.size() && track[next].t <= w.simTime)
    ++next;
  const TrackPoint& a = track[next == 0 ? 0 : next - 1];
  const TrackPoint& b = track[next < track.size() ? next : track.size() - 1];
  const double span = b.t - a.t;
  const double f = span > 0 ? std::clamp((w.simTime - a.t) / span, 0.0, 1.0) : 0.0;
  u.lat = a.lat + (b.lat - a.lat) * f;
  u.lon = a.lon + (b.lon - a.lon) * f;
  const double groundA = groundElevation(w, a.lat, a.lon) + u.staticCg;
  const double groundB = groundElevation(w, b.lat, b.lon) + u.staticCg;
  const double altA = a.altitude.value_or(groundA);
  const double altB = b.altitude.value_or(groundB);
  u.altitude = altA + (altB - altA) * f;
  if (!a.altitude && !b.altitude) u.altitude = groundElevation(w, u.lat, u.lon) + u.staticCg;
  u.verticalSpeed = span > 0 && f < 1 ? (altB - altA) / span : 0;
  u.heading = std::remainder(
      a.heading * degToRad + std::remainder((b.heading - a.heading) * degToRad, 2 * pi) * f, 2 * pi);
  if (u.heading < 0) u.heading += 2 * pi;
  u.pitch = (a.pitch + (b.pitch - a.pitch) * f) * degToRad;
  u.bank = (a.bank + (b.bank - a.bank) * f) * degToRad;
  u.groundSpeed = a.speed + (b.speed - a.speed) * f;
  u.tas = u.groundSpeed;
}

// The simulator's AI moves an object until it is released and frozen: position, height and attitude each only
// stand still under both.
void lf_stepAi(World& w, SimObject& o, double dt) {
  const bool held = o.released;
  const double ground = groundElevation(w, o.lat, o.lon) + o.staticCg;
  if (!(held && o.freezeLatLon)) lf_moveAlong(o, o.tas > 0 ? o.tas : driftKnots, dt);
  if (!(held && o.freezeAltitude)) o.altitude = std::max(ground, o.altitude - sinkFeetPerSecond * dt);
  if (!(held && o.freezeAttitude)) {
    const double step = attitudeRadiansPerSecond * dt;
    o.pitch = lf_angleTowards(o.pitch, onGround(w, o) ? o.staticPitch : 0.0, step);
    o.bank = lf_angleTowards(o.bank, 0.0, step);
  }
  o.groundSpeed = held && o.freezeLatLon ? 0 : (o.tas > 0 ? o.tas : driftKnots);
}

} // namespace

World::World(const Scenario& rawScenario) : scenario(rawScenario), track(rawScenario.track) {
  paused = !rawScenario.startRunning;
  nextObjectId = rawScenario.firstObjectId;
  SimObject user;
  user.id = rawScenario.userObjectId;
  user.user = true;
  user.title = rawScenario.userTitle;
  user.atcId = rawScenario.userAtcId;
  user.atcModel = rawScenario.userAtcModel;
  user.staticCg = rawScenario.userStaticCg;
  user.staticPitch = rawScenario.userStaticPitch;
  user.released = true;
  user.engines = true;
  objects.push_back(user);
  lf_stepUser(*this, objects.front());
}

SimObject& userObject(World& world) {
  return world.objects.front();
}

SimObject* findObject(World& world, std::uint32_t objectId) {
  for (SimObject& object : world.objects)
    if (object.id == objectId) return &object;
  return nullptr;
}

double groundElevation(const World& world, double lat, double lon) {
  const TerrainArea* nearest = nullptr;
  double nearestNm = 0;
  for (const TerrainArea& area : world.scenario.terrain) {
    const double nm = distanceNm(lat, lon, area.lat, area.lon);
    if (nm <= area.radiusNm && (!nearest || nm < nearestNm)) {
      nearest = &area;
      nearestNm = nm;
    }
  }
  return nearest ? nearest->elevation : world.scenario.terrainElevation;
}

double aboveGround(const World& world, const SimObject& object) {
  return object.altitude - groundElevation(world, object.lat, object.lon);
}

bool onGround(const World& world, const SimObject& object) {
  return aboveGround(world, object) <= object.staticCg + 1;
}

void stepWorld(World& world, double dt) {
  if (world.paused || dt <= 0) return;
  world.simTime += dt;
  lf_stepUser(world, userObject(world));
  for (SimObject& object : world.objects)
    if (!object.user) lf_stepAi(world, object, dt);
}

void moveUser(World& world, const TrackPoint& point) {
  TrackPoint here = point;
  here.t = 0;
  world.track = {here};
  lf_stepUser(world, userObject(world));
}

SimObject& addObject(World& world, std::string_view title, std::string_view atcId, double lat, double lon,
                     std::optional<double> altitude, double headingRadians, double speed, double staticCg,
                     double staticPitch) {
  SimObject object;
  object.id = world.nextObjectId++;
  object.title = title;
  object.atcId = atcId;
  object.lat = lat;
  object.lon = lon;
  object.staticCg = staticCg;
  object.staticPitch = staticPitch;
  object.altitude = altitude.value_or(groundElevation(world, lat, lon) + staticCg);
  object.heading = headingRadians;
  object.tas = speed;
  object.pitch = altitude ? 0 : staticPitch;
  world.objects.push_back(object);
  return world.objects.back();
}

bool knownSimVar(std::string_view name) {
  return lf_var(name) != nullptr;
}

bool unitFits(std::string_view name, std::string_view rawUnit) {
  const Var* var = lf_var(name);
  const Unit* unit = lf_unit(rawUnit);
  if (!var || !unit) return false;
  if (var->dimension == unit->dimension) return true;
  // Flags and masks are also asked for as numbers, and ratios as plain numbers.
  return (var->dimension == Dimension::scalar || var->dimension == Dimension::ratio) &&
         unit->dimension == Dimension::scalar;
}

SimValue readSimVar(const World& world, const SimObject& object, std::string_view name,
                    std::string_view rawUnit) {
  const Var* var = lf_var(name);
  const Unit* unit = lf_unit(rawUnit);
  SimValue value;
  if (!var || !unit) return value;
  if (var->text) {
    value.isText = true;
    value.text = var->text(object);
    return value;
  }
  value.number = var->get(world, object) * var->factor / unit->factor;
  return value;
}

bool writeSimVar(SimObject& object, std::string_view name, std::string_view rawUnit, double value) {
  const Var* var = lf_var(name);
  const Unit* unit = lf_unit(rawUnit);
  if (!var || !unit || !var->set) return false;
  var->set(object, value * unit->factor / var->factor);
  return true;
}

bool applySimEvent(SimObject& object, std::string_view eventName, std::uint32_t data) {
  struct LightEvent {
    std::string_view name;
    std::uint32_t bit;
  };
  static constexpr std::array<LightEvent, 7> lights = {{{"NAV_LIGHTS_SET", lightNav},
                                                        {"BEACON_LIGHTS_SET", lightBeacon},
                                                        {"LANDING_LIGHTS_SET", lightLanding},
                                                        {"TAXI_LIGHTS_SET", lightTaxi},
                                                        {"STROBES_SET", lightStrobe},
                                                        {"LOGO_LIGHTS_SET", lightLogo},
                                                        {"CABIN_LIGHTS_SET", lightCabin}}};
  const std::string name = lf_upper(eventName);
  for (const LightEvent& light : lights) {
    if (name != light.name) continue;
    object.lights = data ? (object.lights | light.bit) : (object.lights & ~light.bit);
    return true;
  }
  if (name == "ALL_LIGHTS_TOGGLE") {
    object.lights =
        object.lights
            ? 0
            : (lightNav | lightBeacon | lightLanding | lightTaxi | lightStrobe | lightLogo | lightCabin);
  } else if (name == "FREEZE_LATITUDE_LONGITUDE_SET") {
    object.freezeLatLon = data != 0;
  } else if (name == "FREEZE_ALTITUDE_SET") {
    object.freezeAltitude = data != 0;
  } else if (name == "FREEZE_ATTITUDE_SET") {
    object.freezeAttitude = data != 0;
  } else if (name == "FLAPS_SET") {
    object.flaps = std::min(data, 16383u) / 16383.0;
    object.released = object.user; // the simulator's AI takes the object back on a flaps event
  } else if (name == "SPOILERS_SET") {
    object.spoilers = std::min(data, 16383u) / 16383.0;
  } else if (name == "GEAR_SET") {
    object.gearDown = data != 0;
  } else if (name == "ENGINE_AUTO_START") {
    object.engines = true;
  } else if (name == "ENGINE_AUTO_SHUTDOWN") {
    object.engines = false;
  } else if (name == "THROTTLE_SET") {
    object.throttle = std::min(data, 16383u) / 16383.0;
  } else {
    return false;
  }
  return true;
}

} // namespace ory
