#include "base/log.h"
#include "base/parameters.h"
#include "engine/categories.h"
#include "engine/engine.h"
#include "engine/geometry.h"
#include "engine/position_buffer.h"
#include "engine/tables.h"
#include "liveries/dbase.h"
#include "liveries/random.h"
#include "parking/stands.h"

#include <fmt/format.h>

#include <cmath>

namespace ory {

bool categoryAllowed(std::uint32_t category) {
  switch (category) {
  case 0:
    return LIGHT_AIRCRAFT.value;
  case 4:
    return HIGH_PERF_AIRCRAFT.value;
  case categoryHelicopter:
    return HELICOPTERS.value;
  default:
    return true;
  }
}

const CategoryValues& valuesOf(std::uint32_t category) {
  return categoryValues.at(category);
}

namespace {

constexpr double defaultGroundPitch = 0.012217304763960306; // 0.7 degrees
constexpr double noAirportElevation = -1000;                // feet
constexpr double lowLevelBand = 120;                        // feet around the park airport's elevation
constexpr double flyCheckNm = 0.2429805615550756;           // 450 metres
constexpr double rollCheckNm = 0.010799136069114472;        // 20 metres
constexpr double secondsPerHour = 3600;

double lf_parkElevation() {
  return parkAirportCode.empty() ? noAirportElevation : parkAltitude;
}

// An airborne record low over the park airport is a ground report gone wrong.
bool lf_tooLow(const PositionSlot& slot) {
  if (!slot.airborne || slot.altitude >= 10000 || slot.altitude <= 0) return false;
  return std::abs(slot.altitude - lf_parkElevation()) <= lowLevelBand;
}

double lf_trackDiffDeg(double a, double b) {
  return std::abs(headingDiff(a * degToRad, b * degToRad)) * radToDeg;
}

// Spread by plus or minus share, the sign drawn.
double lf_spread(double value, double share) {
  return value * (randomIndex(2) == 0 ? 1 + share : 1 - share);
}

// Records that add nothing but noise: too soon, a speed that jumps tenfold, or a position that cannot yet
// have moved measurably.
bool lf_isNoise(const LiveAircraft& aircraft, const TrafficRecord& record) {
  const double elapsed = record.timestamp - aircraft.lastTimestamp;
  if (elapsed <= 1.0) return true;
  const double s = record.slot.groundSpeed;
  const PositionSlot& last = aircraft.slots.back();
  const double p = last.groundSpeed;
  if (p > 5 && s >= 10 * p) return true;
  if (s > 5 && p >= 10 * s) return true;
  if ((p <= 5 && s >= 80) || (s <= 5 && p >= 80)) return true;
  if (aircraft.predictedSlots >= 1) return false;
  const double trackDiff = lf_trackDiffDeg(record.slot.track, last.track);
  if (record.slot.airborne) return s > 120 && trackDiff <= 1 && flyCheckNm / s * secondsPerHour >= elapsed;
  if (s > 30 || trackDiff > 2) return false;
  const double rollSeconds = s <= 0 ? 15 : std::min(15.0, rollCheckNm / s * secondsPerHour);
  return rollSeconds >= elapsed;
}

bool lf_fillOrNote(std::string& field, const std::string& value, bool& changed) {
  if (value.empty()) return false;
  if (field.empty()) {
    field = value;
    changed = true;
    return false;
  }
  return field != value;
}

// A new flight of the same airframe: new origin and destination, or a new callsign.
bool lf_flightChanged(LiveAircraft& aircraft, const TrafficRecord& record, bool& stop) {
  bool changed = false;
  const bool destinationDiffers = lf_fillOrNote(aircraft.destination, record.destination, changed);
  const bool originDiffers = lf_fillOrNote(aircraft.origin, record.origin, changed);
  const bool returnLeg = aircraft.origin == parkAirportCode && record.destination == aircraft.origin;
  if (destinationDiffers && originDiffers && !returnLeg) {
    aircraft.destination = record.destination;
    aircraft.origin = record.origin;
    changed = true;
    if (aircraft.onGround && aircraft.phase != ToStand && aircraft.phase != Parked) {
      aircraft.previousPhase = aircraft.phase;
      aircraft.phase = Taxi;
      aircraft.targetHeading = aircraft.heading;
    }
  }
  const std::string& callsign = record.callsign;
  if (callsign.empty() || callsign == aircraft.callsign || callsign == aircraft.regcode) return changed;
  aircraft.callsign = callsign;
  aircraft.callsignIn = callsign;
  aircraft.callsignOut.clear();
  if (!isGhost(callsign))
    ghostKill(callsign);
  else if (hasRealFlight(callsign))
    stop = true;
  return true;
}

// Answers whether the record may go on.
bool lf_identity(LiveAircraft& aircraft, const TrafficRecord& record) {
  if (aircraft.departing || aircraft.approaching) return true;
  if (aircraft.state == Buffered) {
    if (!record.origin.empty()) aircraft.origin = record.origin;
    if (!record.destination.empty()) aircraft.destination = record.destination;
    if (aircraft.regcode.empty()) aircraft.regcode = record.regcode;
    if (aircraft.callsign.empty()) aircraft.callsign = record.callsign;
    return true;
  }
  if (aircraft.state != Alive || aircraft.phase < Taxi) return true;
  bool stop = false;
  const bool changed = lf_flightChanged(aircraft, record, stop);
  if (stop) return false;
  if (!changed || !GUID_CHANGES.value) return true;
  if (LOG.value) logLine(fmt::format("          {}", describe(aircraft)));
  renew(aircraft);
  return false;
}

void lf_update(LiveAircraft& aircraft, TrafficRecord& record) {
  if (aircraft.state == Renewing || aircraft.state == Removing) return;
  if (!aircraft.slots.empty() && lf_isNoise(aircraft, record)) return;
  if (aircraft.state == Buffered && lf_tooLow(record.slot)) return;
  if (!lf_identity(aircraft, record)) return;
  aircraft.lastTimestamp = record.timestamp;
  feedSlot(aircraft, record.slot);
}

std::string lf_typeOf(const TrafficRecord& record) {
  std::string type = record.type;
  if (type.empty() && !record.regcode.empty()) type = lookupDbaseType(record.regcode);
  if (isValidModel(type)) return type;
  return record.regcode.empty() ? std::string() : lookupDbaseType(record.regcode);
}

void lf_fillTypeFields(LiveAircraft& aircraft) {
  const CategoryValues& values = valuesOf(aircraft.category);
  const double span = halfWingspan(aircraft.type);
  aircraft.halfWingSpan = std::isnan(span) ? 0 : span;
  aircraft.groundPitch = defaultGroundPitch;
  aircraft.rotatePitch = lf_spread(values.rotatePitch, 0.025) * degToRad;
  aircraft.climbPitch = lf_spread(values.climbPitch, 0.05) * degToRad;
  aircraft.groundTurnRate = values.groundTurnRate * degToRad / ticksPerSecond;
  aircraft.climbRate = values.climbRate;
  aircraft.pushBackSpeed = values.pushBackSpeed;
  aircraft.flareSlots = values.flareSlots;
  aircraft.onGroundSlots = values.onGroundSlots;
  aircraft.rotateSlots = values.rotateSlots;
  aircraft.climbSlots = values.climbSlots;
}

void lf_newAircraft(TrafficRecord& record) {
  if (!record.callsign.empty()) {
    for (const LiveAircraft& other : liveAircraft)
      if (other.callsign == record.callsign && other.type == record.type) return;
  }
  std::string type = lf_typeOf(record);
  if (type.empty()) return;
  const auto category = static_cast<std::uint32_t>(modelCategory(type));
  if (!categoryAllowed(category)) return;
  if (lf_tooLow(record.slot)) return;
  LiveAircraft& aircraft = liveAircraft.emplace_back();
  aircraft.airline = std::move(record.airline);
  aircraft.type = std::move(type);
  aircraft.origin = std::move(record.origin);
  aircraft.destination = std::move(record.destination);
  aircraft.callsign = std::move(record.callsign);
  aircraft.callsignIn = aircraft.callsign;
  aircraft.regcode = std::move(record.regcode);
  aircraft.category = category;
  aircraft.hexid = record.hexid;
  lf_fillTypeFields(aircraft);
  aircraft.lastTimestamp = record.timestamp;
  aircraft.slots.push_back(record.slot);
}

} // namespace

void applyTrafficRecord(TrafficRecord& record) {
  if (LiveAircraft* aircraft = findLive(record.hexid)) {
    lf_update(*aircraft, record);
    return;
  }
  lf_newAircraft(record);
}

} // namespace ory
