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
    {"feet", Dimension::length, 0.3048},
    {"foot", Dimension::length, 0.3048},
    {"ft", Dimension::length, 0.3048},
    {"meters", Dimension::length, 1},
    {"meter", Dimension::length, 1},
    {"knots", Dimension::speed, 0.514444},
    {"knot", Dimension::speed, 0.514444},
    {"feet per second", Dimension::speed, 0.3048},
    {"feet per minute", Dimension::speed, 0.3048 / 60},
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

std::tm lf_zulu(const World& W) {
  const auto seconds = static_cast<std::time_t>(W.scenario.zuluStart + static_cast<std::int64_t>(W.simTime));
  std::tm tm{};
  gmtime_r(&seconds, &tm);
  return tm;
}

const std::array<Var, 28> vars = {{
    {"PLANE LATITUDE", Dimension::angle, degToRad, [](const World&, const SimObject& O) { return O.lat; },
     [](SimObject& O, double V) { O.lat = V; }, nullptr},
    {"PLANE LONGITUDE", Dimension::angle, degToRad, [](const World&, const SimObject& O) { return O.lon; },
     [](SimObject& O, double V) { O.lon = V; }, nullptr},
    {"PLANE PITCH DEGREES", Dimension::angle, 1, [](const World&, const SimObject& O) { return O.pitch; },
     [](SimObject& O, double V) { O.pitch = V; }, nullptr},
    {"PLANE BANK DEGREES", Dimension::angle, 1, [](const World&, const SimObject& O) { return O.bank; },
     [](SimObject& O, double V) { O.bank = V; }, nullptr},
    {"PLANE HEADING DEGREES TRUE", Dimension::angle, 1, [](const World&, const SimObject& O) { return O.heading; },
     [](SimObject& O, double V) { O.heading = V; }, nullptr},
    {"PLANE ALTITUDE", Dimension::length, 0.3048, [](const World&, const SimObject& O) { return O.altitude; },
     [](SimObject& O, double V) { O.altitude = V; }, nullptr},
    {"PLANE ALT ABOVE GROUND", Dimension::length, 0.3048,
     [](const World& W, const SimObject& O) { return aboveGround(W, O); }, nullptr, nullptr},
    {"GROUND ALTITUDE", Dimension::length, 0.3048,
     [](const World& W, const SimObject& O) { return groundElevation(W, O.lat, O.lon); }, nullptr, nullptr},
    {"VERTICAL SPEED", Dimension::speed, 0.3048, [](const World&, const SimObject& O) { return O.verticalSpeed; },
     [](SimObject& O, double V) { O.verticalSpeed = V; }, nullptr},
    {"AIRSPEED TRUE", Dimension::speed, 0.514444, [](const World&, const SimObject& O) { return O.tas; },
     [](SimObject& O, double V) { O.tas = V; }, nullptr},
    {"GROUND VELOCITY", Dimension::speed, 0.514444, [](const World&, const SimObject& O) { return O.groundSpeed; },
     nullptr, nullptr},
    {"SIM ON GROUND", Dimension::scalar, 1,
     [](const World& W, const SimObject& O) { return onGround(W, O) ? 1.0 : 0.0; }, nullptr, nullptr},
    {"STATIC CG TO GROUND", Dimension::length, 0.3048, [](const World&, const SimObject& O) { return O.staticCg; },
     nullptr, nullptr},
    {"STATIC PITCH", Dimension::angle, 1, [](const World&, const SimObject& O) { return O.staticPitch; }, nullptr,
     nullptr},
    {"LIGHT STATES", Dimension::scalar, 1, [](const World&, const SimObject& O) { return double(O.lights); },
     [](SimObject& O, double V) { O.lights = static_cast<std::uint32_t>(V); }, nullptr},
    {"LIGHT ON STATES", Dimension::scalar, 1, [](const World&, const SimObject& O) { return double(O.lights); },
     [](SimObject& O, double V) { O.lights = static_cast<std::uint32_t>(V); }, nullptr},
    {"SPOILERS HANDLE POSITION", Dimension::ratio, 1, [](const World&, const SimObject& O) { return O.spoilers; },
     [](SimObject& O, double V) { O.spoilers = std::clamp(V, 0.0, 1.0); }, nullptr},
    {"GENERAL ENG THROTTLE LEVER POSITION", Dimension::ratio, 1,
     [](const World&, const SimObject& O) { return O.throttle; },
     [](SimObject& O, double V) { O.throttle = std::clamp(V, 0.0, 1.0); }, nullptr},
    {"GEAR HANDLE POSITION", Dimension::scalar, 1,
     [](const World&, const SimObject& O) { return O.gearDown ? 1.0 : 0.0; }, nullptr, nullptr},
    {"FLAPS HANDLE PERCENT", Dimension::ratio, 1, [](const World&, const SimObject& O) { return O.flaps; }, nullptr,
     nullptr},
    {"GENERAL ENG COMBUSTION", Dimension::scalar, 1,
     [](const World&, const SimObject& O) { return O.engines ? 1.0 : 0.0; }, nullptr, nullptr},
    {"ZULU TIME", Dimension::scalar, 1,
     [](const World& W, const SimObject&) {
       const std::tm tm = lf_zulu(W);
       return double(tm.tm_hour * 3600 + tm.tm_min * 60 + tm.tm_sec);
     },
     nullptr, nullptr},
    {"ZULU DAY OF YEAR", Dimension::scalar, 1,
     [](const World& W, const SimObject&) { return double(lf_zulu(W).tm_yday + 1); }, nullptr, nullptr},
    {"ZULU YEAR", Dimension::scalar, 1, [](const World& W, const SimObject&) { return double(lf_zulu(W).tm_year + 1900); },
     nullptr, nullptr},
    {"ATC ID", Dimension::text, 1, nullptr, nullptr, [](const SimObject& O) { return O.atcId; }},
    {"ATC MODEL", Dimension::text, 1, nullptr, nullptr, [](const SimObject& O) { return O.atcModel; }},
    {"TITLE", Dimension::text, 1, nullptr, nullptr, [](const SimObject& O) { return O.title; }},
    {"IS USER SIM", Dimension::scalar, 1, [](const World&, const SimObject& O) { return O.user ? 1.0 : 0.0; },
     nullptr, nullptr},
}};

std::string lf_upper(std::string_view TEXT) {
  std::string upper(TEXT);
  for (char& c : upper)
    if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 32);
  return upper;
}

std::string lf_lower(std::string_view TEXT) {
  std::string lower(TEXT);
  for (char& c : lower)
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c + 32);
  return lower;
}

const Var* lf_var(std::string_view NAME) {
  const std::string name = lf_upper(NAME.substr(0, NAME.find(':')));
  for (const Var& var : vars)
    if (var.name == name) return &var;
  return nullptr;
}

const Unit* lf_unit(std::string_view NAME) {
  const std::string name = lf_lower(NAME);
  for (const Unit& unit : units)
    if (unit.name == name) return &unit;
  return nullptr;
}

double lf_angleTowards(double FROM, double TO, double STEP) {
  const double difference = std::remainder(TO - FROM, 2 * pi);
  return std::abs(difference) <= STEP ? TO : FROM + std::copysign(STEP, difference);
}

void lf_moveAlong(SimObject& O, double KNOTS, double DT) {
  const double nm = KNOTS * DT / 3600;
  O.lat += nm / 60 * std::cos(O.heading);
  O.lon += nm / 60 * std::sin(O.heading) / std::max(0.01, std::cos(O.lat * degToRad));
}

void lf_stepUser(World& W, SimObject& U) {
  const std::vector<TrackPoint>& track = W.track;
  std::size_t next = 0;
  while (next < track.size() && track[next].t <= W.simTime)
    ++next;
  const TrackPoint& a = track[next == 0 ? 0 : next - 1];
  const TrackPoint& b = track[next < track.size() ? next : track.size() - 1];
  const double span = b.t - a.t;
  const double f = span > 0 ? std::clamp((W.simTime - a.t) / span, 0.0, 1.0) : 0.0;
  U.lat = a.lat + (b.lat - a.lat) * f;
  U.lon = a.lon + (b.lon - a.lon) * f;
  const double groundA = groundElevation(W, a.lat, a.lon) + U.staticCg;
  const double groundB = groundElevation(W, b.lat, b.lon) + U.staticCg;
  const double altA = a.altitude.value_or(groundA);
  const double altB = b.altitude.value_or(groundB);
  U.altitude = altA + (altB - altA) * f;
  if (!a.altitude && !b.altitude) U.altitude = groundElevation(W, U.lat, U.lon) + U.staticCg;
  U.verticalSpeed = span > 0 && f < 1 ? (altB - altA) / span : 0;
  U.heading = std::remainder(
      a.heading * degToRad + std::remainder((b.heading - a.heading) * degToRad, 2 * pi) * f, 2 * pi);
  if (U.heading < 0) U.heading += 2 * pi;
  U.pitch = (a.pitch + (b.pitch - a.pitch) * f) * degToRad;
  U.bank = (a.bank + (b.bank - a.bank) * f) * degToRad;
  U.groundSpeed = a.speed + (b.speed - a.speed) * f;
  U.tas = U.groundSpeed;
}

// The simulator's AI moves an object until it is released and frozen: position, height and attitude each only
// stand still under both.
void lf_stepAi(World& W, SimObject& O, double DT) {
  const bool held = O.released;
  const double ground = groundElevation(W, O.lat, O.lon) + O.staticCg;
  if (!(held && O.freezeLatLon)) lf_moveAlong(O, O.tas > 0 ? O.tas : driftKnots, DT);
  if (!(held && O.freezeAltitude)) O.altitude = std::max(ground, O.altitude - sinkFeetPerSecond * DT);
  if (!(held && O.freezeAttitude)) {
    const double step = attitudeRadiansPerSecond * DT;
    O.pitch = lf_angleTowards(O.pitch, onGround(W, O) ? O.staticPitch : 0.0, step);
    O.bank = lf_angleTowards(O.bank, 0.0, step);
  }
  O.groundSpeed = held && O.freezeLatLon ? 0 : (O.tas > 0 ? O.tas : driftKnots);
}

} // namespace

World::World(const Scenario& SCENARIO) : scenario(SCENARIO), track(SCENARIO.track) {
  paused = !SCENARIO.startRunning;
  nextObjectId = SCENARIO.firstObjectId;
  SimObject user;
  user.id = SCENARIO.userObjectId;
  user.user = true;
  user.title = SCENARIO.userTitle;
  user.atcId = SCENARIO.userAtcId;
  user.atcModel = SCENARIO.userAtcModel;
  user.staticCg = SCENARIO.userStaticCg;
  user.staticPitch = SCENARIO.userStaticPitch;
  user.released = true;
  user.engines = true;
  objects.push_back(user);
  lf_stepUser(*this, objects.front());
}

SimObject& userObject(World& WORLD) {
  return WORLD.objects.front();
}

SimObject* findObject(World& WORLD, std::uint32_t OBJECT_ID) {
  for (SimObject& object : WORLD.objects)
    if (object.id == OBJECT_ID) return &object;
  return nullptr;
}

double groundElevation(const World& WORLD, double LAT, double LON) {
  const TerrainArea* nearest = nullptr;
  double nearestNm = 0;
  for (const TerrainArea& area : WORLD.scenario.terrain) {
    const double nm = distanceNm(LAT, LON, area.lat, area.lon);
    if (nm <= area.radiusNm && (!nearest || nm < nearestNm)) {
      nearest = &area;
      nearestNm = nm;
    }
  }
  return nearest ? nearest->elevation : WORLD.scenario.terrainElevation;
}

double aboveGround(const World& WORLD, const SimObject& OBJECT) {
  return OBJECT.altitude - groundElevation(WORLD, OBJECT.lat, OBJECT.lon);
}

bool onGround(const World& WORLD, const SimObject& OBJECT) {
  return aboveGround(WORLD, OBJECT) <= OBJECT.staticCg + 1;
}

void stepWorld(World& WORLD, double DT) {
  if (WORLD.paused || DT <= 0) return;
  WORLD.simTime += DT;
  lf_stepUser(WORLD, userObject(WORLD));
  for (SimObject& object : WORLD.objects)
    if (!object.user) lf_stepAi(WORLD, object, DT);
}

void moveUser(World& WORLD, const TrackPoint& POINT) {
  TrackPoint here = POINT;
  here.t = 0;
  WORLD.track = {here};
  lf_stepUser(WORLD, userObject(WORLD));
}

SimObject& addObject(World& WORLD, std::string_view TITLE, std::string_view ATC_ID, double LAT, double LON,
                     std::optional<double> ALTITUDE, double HEADING_RADIANS, double SPEED, double STATIC_CG,
                     double STATIC_PITCH) {
  SimObject object;
  object.id = WORLD.nextObjectId++;
  object.title = TITLE;
  object.atcId = ATC_ID;
  object.lat = LAT;
  object.lon = LON;
  object.staticCg = STATIC_CG;
  object.staticPitch = STATIC_PITCH;
  object.altitude = ALTITUDE.value_or(groundElevation(WORLD, LAT, LON) + STATIC_CG);
  object.heading = HEADING_RADIANS;
  object.tas = SPEED;
  object.pitch = ALTITUDE ? 0 : STATIC_PITCH;
  WORLD.objects.push_back(object);
  return WORLD.objects.back();
}

bool knownSimVar(std::string_view NAME) {
  return lf_var(NAME) != nullptr;
}

bool unitFits(std::string_view NAME, std::string_view UNIT) {
  const Var* var = lf_var(NAME);
  const Unit* unit = lf_unit(UNIT);
  if (!var || !unit) return false;
  if (var->dimension == unit->dimension) return true;
  // Flags and masks are also asked for as numbers, and ratios as plain numbers.
  return (var->dimension == Dimension::scalar || var->dimension == Dimension::ratio) &&
         unit->dimension == Dimension::scalar;
}

SimValue readSimVar(const World& WORLD, const SimObject& OBJECT, std::string_view NAME,
                    std::string_view UNIT) {
  const Var* var = lf_var(NAME);
  const Unit* unit = lf_unit(UNIT);
  SimValue value;
  if (!var || !unit) return value;
  if (var->text) {
    value.isText = true;
    value.text = var->text(OBJECT);
    return value;
  }
  value.number = var->get(WORLD, OBJECT) * var->factor / unit->factor;
  return value;
}

bool writeSimVar(SimObject& OBJECT, std::string_view NAME, std::string_view UNIT, double VALUE) {
  const Var* var = lf_var(NAME);
  const Unit* unit = lf_unit(UNIT);
  if (!var || !unit || !var->set) return false;
  var->set(OBJECT, VALUE * unit->factor / var->factor);
  return true;
}

bool applySimEvent(SimObject& OBJECT, std::string_view EVENT_NAME, std::uint32_t DATA) {
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
  const std::string name = lf_upper(EVENT_NAME);
  for (const LightEvent& light : lights) {
    if (name != light.name) continue;
    OBJECT.lights = DATA ? (OBJECT.lights | light.bit) : (OBJECT.lights & ~light.bit);
    return true;
  }
  if (name == "ALL_LIGHTS_TOGGLE") {
    OBJECT.lights =
        OBJECT.lights
            ? 0
            : (lightNav | lightBeacon | lightLanding | lightTaxi | lightStrobe | lightLogo | lightCabin);
  } else if (name == "FREEZE_LATITUDE_LONGITUDE_SET") {
    OBJECT.freezeLatLon = DATA != 0;
  } else if (name == "FREEZE_ALTITUDE_SET") {
    OBJECT.freezeAltitude = DATA != 0;
  } else if (name == "FREEZE_ATTITUDE_SET") {
    OBJECT.freezeAttitude = DATA != 0;
  } else if (name == "FLAPS_SET") {
    OBJECT.flaps = std::min(DATA, 16383u) / 16383.0;
    OBJECT.released = OBJECT.user; // the simulator's AI takes the object back on a flaps event
  } else if (name == "SPOILERS_SET") {
    OBJECT.spoilers = std::min(DATA, 16383u) / 16383.0;
  } else if (name == "GEAR_SET") {
    OBJECT.gearDown = DATA != 0;
  } else if (name == "ENGINE_AUTO_START") {
    OBJECT.engines = true;
  } else if (name == "ENGINE_AUTO_SHUTDOWN") {
    OBJECT.engines = false;
  } else if (name == "THROTTLE_SET") {
    OBJECT.throttle = std::min(DATA, 16383u) / 16383.0;
  } else {
    return false;
  }
  return true;
}

} // namespace ory
