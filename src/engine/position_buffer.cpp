#include "engine/position_buffer.h"

#include "base/log.h"
#include "base/parameters.h"
#include "base/run.h"
#include "engine/categories.h"
#include "engine/geometry.h"
#include "engine/motion.h"
#include "engine/stand_choice.h"
#include "engine/tables.h"
#include "parking/stands.h"
#include "simlink/user_aircraft.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>

namespace ory {

namespace {

constexpr std::int32_t minSegmentTicks = 25;
constexpr double sameSpotDegrees = 0.00015;
constexpr double collapseNm = 0.011879049676025918; // 22 metres
constexpr std::int32_t collapseTicks = 1500;        // 15 seconds
constexpr double maxCurveT = 0.999999;

bool lf_samePosition(const PositionSlot& a, const PositionSlot& b) {
  return a.lat == b.lat && a.lon == b.lon;
}

double lf_distance(const PositionSlot& a, const PositionSlot& b) {
  return distanceNm(a.lat, a.lon, b.lat, b.lon);
}

double lf_bearing(const PositionSlot& a, const PositionSlot& b) {
  return bearingTo(a.lat, a.lon, b.lat, b.lon);
}

bool lf_offHeading(const LiveAircraft& aircraft, const PositionSlot& from, const PositionSlot& to,
                   double degrees) {
  return std::abs(headingDiff(lf_bearing(from, to), aircraft.heading)) >= degrees * degToRad;
}

bool lf_inAirAlive(const LiveAircraft& aircraft) {
  return aircraft.state == Alive && !aircraft.onGround;
}

// Keep or drop a slot that barely moved from the last one; a kept one may become a stop.
bool lf_stationaryKeeps(const LiveAircraft& aircraft, PositionSlot& slot) {
  const PositionSlot& last = aircraft.slots.back();
  slot.stopped = lf_samePosition(slot, last);
  if (aircraft.category == categoryHelicopter) return true;
  const bool inAir = slot.airborne || lf_inAirAlive(aircraft);
  if (slot.stopped) {
    if (inAir) return false;
    if (aircraft.departing && slot.groundSpeed > 0 && last.groundSpeed >= 30) return false;
    slot.groundSpeed = 0;
    return true;
  }
  if (std::abs(slot.lat - last.lat) <= sameSpotDegrees && std::abs(slot.lon - last.lon) <= sameSpotDegrees) {
    if (inAir) return false;
    if (aircraft.departing && slot.groundSpeed > 0 && last.groundSpeed >= 50) return false;
    const std::int32_t time = slot.time;
    const bool airborne = slot.airborne;
    const bool hasTrueHeading = slot.hasTrueHeading;
    slot = last;
    slot.time = time;
    slot.airborne = airborne;
    slot.hasTrueHeading = hasTrueHeading;
    slot.groundSpeed = 0;
    slot.stopped = true;
    return true;
  }
  if (slot.groundSpeed != 0) return true;
  if (!aircraft.departing && !slot.airborne) return true;
  return last.groundSpeed < 50;
}

// Slots of an aircraft landing or rolling out: nothing that points back against the heading.
bool lf_landingKeeps(LiveAircraft& aircraft, PositionSlot& slot) {
  auto& slots = aircraft.slots;
  if (lf_samePosition(slot, slots.back())) return false;
  if (slots.size() == 1) {
    if (aircraft.approaching && lf_offHeading(aircraft, slots.front(), slot, 90)) return false;
    if (aircraft.rollOut && lf_offHeading(aircraft, slots.front(), slot, 150)) {
      if (aircraft.predictedSlots > 0) return false;
      PositionSlot here = slots.front();
      here.lat = aircraft.lat;
      here.lon = aircraft.lon;
      here.time = simTick + 1;
      slots.assign(1, here);
    }
  } else if (lf_offHeading(aircraft, slots.back(), slot, 90)) {
    slots.pop_back();
    if (slots.size() >= 2 && lf_offHeading(aircraft, slots.back(), slot, 90)) slots.pop_back();
  }
  endPrediction(aircraft);
  if (lf_samePosition(slot, slots.back())) {
    slot.stopped = true;
    return true;
  }
  slot.stopped = false;
  const double lastSpeed = slots.back().groundSpeed;
  if (slot.groundSpeed > lastSpeed && slot.groundSpeed > 40) slot.groundSpeed = lastSpeed;
  return true;
}

// A run of stops on the ground is shortened, so that the aircraft does not stand long before it moves again.
void lf_collapseStops(LiveAircraft& aircraft, const PositionSlot& slot) {
  auto& slots = aircraft.slots;
  if (slot.airborne || !slots.back().stopped) return;
  if (slot.stopped) {
    if (std::all_of(slots.begin(), slots.end(), [](const PositionSlot& s) { return s.stopped; }))
      slots.resize(1);
    return;
  }
  const std::size_t n = slots.size();
  for (std::size_t back = 2; back <= 6 && back <= n; ++back) {
    const std::size_t moving = n - back;
    if (slots[moving].stopped) continue;
    const PositionSlot& first = slots[moving + 1];
    if (slots.back().time - first.time < collapseTicks || lf_distance(first, slot) <= collapseNm)
      slots.erase(slots.begin() + static_cast<std::ptrdiff_t>(moving + 2), slots.end());
    return;
  }
}

// Leaves the aircraft waiting after a push back, or lets it taxi; false when the slot is dropped.
bool lf_waitingKeeps(LiveAircraft& aircraft, PositionSlot& slot) {
  const double distance = distanceNm(aircraft.lat, aircraft.lon, slot.lat, slot.lon);
  const double span = aircraft.halfWingSpan;
  if ((distance < 2.75 * span || distance <= aircraft.departMinDistance) && distance <= 6 * span) {
    aircraft.departMinDistance = distance;
    return false;
  }
  slot.stopped = false;
  if (aircraft.predictedSlots > 0) {
    aircraft.slots.front().time = simTick + 1;
    endPrediction(aircraft);
  }
  aircraft.pushBackSideKnown = false;
  aircraft.pushBackStage = 0;
  aircraft.previousPhase = aircraft.phase;
  aircraft.phase = Taxi;
  return true;
}

// The side of the tail in a push back, from the first slot after its start.
void lf_pushBackSide(LiveAircraft& aircraft, const PositionSlot& slot) {
  if (aircraft.pushBackStage != 2 || aircraft.pushBackSideKnown) return;
  double direction = 0;
  if (slot.hasHeading)
    direction = slot.trueHeading;
  else if (slot.track != 0)
    direction = slot.track * degToRad;
  else
    return;
  aircraft.pushBackSide = headingDiff(direction, aircraft.heading) > 0;
  aircraft.pushBackSideKnown = true;
}

// Until where the phase decides; false when the slot is dropped.
bool lf_phaseKeeps(LiveAircraft& aircraft, PositionSlot& slot) {
  switch (aircraft.phase) {
  case ToStand:
  case Parked:
    return aircraft.state >= Alive && parkedFeed(aircraft, slot);
  case PushBack:
    lf_pushBackSide(aircraft, slot);
    return false;
  case Waiting:
    return lf_waitingKeeps(aircraft, slot);
  default:
    break;
  }
  if (aircraft.approaching || aircraft.rollOut) return lf_landingKeeps(aircraft, slot);
  if (!lf_stationaryKeeps(aircraft, slot)) return false;
  if (aircraft.predictedSlots <= 0) return true;
  if (!aircraft.onGround && lf_offHeading(aircraft, aircraft.slots.back(), slot, 100)) return false;
  endPrediction(aircraft);
  return true;
}

void lf_append(LiveAircraft& aircraft, PositionSlot& slot) {
  if (!aircraft.slots.empty() && aircraft.slots.back().time >= slot.time)
    slot.time = aircraft.slots.back().time + 1;
  aircraft.slots.push_back(slot);
}

// Ticks to the second slot from now, at least a segment's minimum.
std::int32_t lf_ticksLeft(const PositionSlot& second) {
  return std::max(minSegmentTicks, second.time - simTick);
}

// The second slot's time t, held within the windows unless predicting, and never before now.
void lf_retimeTo(LiveAircraft& aircraft, std::int32_t t) {
  PositionSlot& second = aircraft.slots[1];
  if (aircraft.predictedSlots <= 0) {
    t = std::min(t, second.time + aircraft.lateWindow);
    t = std::max(t, second.time - aircraft.earlyWindow);
  }
  second.time = std::max(t, static_cast<std::int32_t>(simTick));
}

double lf_wantedPitch(double verticalSpeed) {
  double w = std::min(verticalSpeed, 2400.0);
  w = std::max(w, -3000.0);
  if (w < 0) w /= 2;
  return (-3 - w / 600 * 2.2) * degToRad;
}

void lf_airSegmentSetUp(LiveAircraft& aircraft, std::int32_t dt) {
  if (aircraft.phase != Airborne && aircraft.phase != TakeOff) {
    aircraft.previousPhase = aircraft.phase;
    aircraft.phase = Airborne;
  }
  const PositionSlot& front = aircraft.slots[0];
  const PositionSlot& second = aircraft.slots[1];
  const CategoryValues& values = valuesOf(aircraft.category);
  // A ground slot has no airspeed of its own: into the touch-down, its ground speed stands for it.
  aircraft.targetTas = second.tas > 0 ? second.tas : second.groundSpeed;
  aircraft.targetVerticalSpeed = second.verticalSpeed;
  if (aircraft.flareStage <= 0) {
    if (front.airborne && second.airborne) {
      const double v = (second.altitude - aircraft.altitude) / dt;
      if (aircraft.approaching) {
        const bool plain = front.altitude != second.altitude || aircraft.altitudeAboveGround > 1000 ||
                           front.verticalSpeed + second.verticalSpeed > 100;
        aircraft.deltaAltitude = plain ? v : sinkRate(aircraft) / 6000;
      } else if (aircraft.altitudeAboveGround > 1000) {
        aircraft.deltaAltitude = std::min(v, aircraft.climbRate);
      } else {
        aircraft.deltaAltitude = std::min(std::max(v, 0.2), aircraft.climbRate);
      }
    } else {
      airAltitudeRate(aircraft, dt);
    }
  }
  const PositionSlot& target = aircraft.slots[1];
  if (aircraft.phase != TakeOff) {
    const double limit = values.maxPitchChange * degToRad;
    aircraft.deltaPitch =
        std::clamp((lf_wantedPitch(target.verticalSpeed) - aircraft.pitch) / dt, -limit, limit);
  }
  const double lowLimit = aircraft.approaching ? 2000 : 1000;
  double turn = 0;
  if (target.hasTrueHeading && target.hasRoll && target.hasHeading && aircraft.altitudeAboveGround < lowLimit)
    turn = headingDiff(target.trueHeading, aircraft.heading);
  else if (aircraft.slots.size() >= 3)
    turn = headingDiff(lf_bearing(target, aircraft.slots[2]), aircraft.heading);
  aircraft.deltaHeading = turn / dt;
  if (target.hasRoll) {
    aircraft.deltaBank = (target.roll - aircraft.bank) / dt;
    return;
  }
  const double maxBank = values.maxBank * degToRad;
  const double wanted = std::clamp(-turn, -maxBank, maxBank);
  const double limit = values.maxBankChange * degToRad;
  aircraft.deltaBank = std::clamp((wanted - aircraft.bank) / dt, -limit, limit);
}

// What dead reckoning allows when the queue runs out; false: give up.
bool lf_reckon(LiveAircraft& aircraft) {
  const std::int32_t left = aircraft.predictedSlots;
  if (left == -1) return false;
  if (left == 1) {
    aircraft.predictedSlots = -1;
    return false;
  }
  if (left > 1) {
    predict(aircraft, left - 1);
    return true;
  }
  if (!categoryAllowed(aircraft.category)) return false;
  if (aircraft.onGround) {
    predict(aircraft, aircraft.phase == Parked || aircraft.phase == Waiting ? 1 : 10);
    return true;
  }
  const UserAircraft& user = engineUser();
  if (!isNullPosition(user.lat, user.lon) &&
      distanceNm(user.lat, user.lon, aircraft.lat, aircraft.lon) >= LATERAL_RANGE.value - 0.5)
    return false;
  predict(aircraft, 8);
  return true;
}

double lf_predictedSpeed(const LiveAircraft& aircraft, const PositionSlot& copy, std::int32_t count) {
  const double speed = copy.groundSpeed;
  if (!aircraft.onGround) {
    if (aircraft.approaching) return count < 4 ? speed : std::max(1.0, speed * 0.9);
    return std::max(1.0, speed * 0.95);
  }
  if (aircraft.rollOut) {
    if (speed >= 140) return 100;
    if (speed >= 100) return 80;
    if (speed >= 80) return 60;
    if (speed >= 60) return 30;
    return 20;
  }
  if (speed <= 30) return 40;
  if (speed <= 60) return 80;
  if (speed <= 100) return 110;
  if (speed <= 140) return 150;
  if (speed <= 160) return 170;
  return 180;
}

double lf_departingVerticalSpeed(double speed, double verticalSpeed) {
  if (speed <= 100) return verticalSpeed;
  if (speed <= 140) return 600;
  if (speed <= 160) return 1200;
  return 2400;
}

} // namespace

void endPrediction(LiveAircraft& aircraft) {
  aircraft.predictedSlots = 0;
  aircraft.earlyWindow = 3000;
  aircraft.lateWindow = aircraft.departing ? 5000 : 3000;
}

void feedSlot(LiveAircraft& aircraft, PositionSlot slot) {
  auto& slots = aircraft.slots;
  if (slots.size() > maxSlots) {
    if (aircraft.state != Buffered)
      requestRemove(aircraft);
    else
      aircraft.toDelete = true;
    return;
  }
  if (slots.empty()) {
    slots.push_back(slot);
    return;
  }
  if (aircraft.phase == New) {
    if (!lf_stationaryKeeps(aircraft, slot)) return;
    lf_append(aircraft, slot);
    return;
  }
  if (!lf_phaseKeeps(aircraft, slot)) return;
  lf_collapseStops(aircraft, slot);
  if (slots.back().time >= slot.time) slot.time = slots.back().time + 1;
  if (aircraft.onGround && aircraft.state == Alive && !aircraft.departing)
    takeOffWatch(aircraft, slots.back(), slot);
  slots.push_back(slot);
  if (slots.size() == 2 && slots.front().stopped && !slot.stopped) {
    slots.front().time = simTick + 1;
    slots.front().groundSpeed = slot.groundSpeed;
  }
}

double segmentSpeed(const LiveAircraft& aircraft) {
  const PositionSlot& front = aircraft.slots[0];
  const PositionSlot& second = aircraft.slots[1];
  double speed = (front.groundSpeed + second.groundSpeed) / 2;
  if (front.groundSpeed == 0 && second.groundSpeed == 0) {
    const std::int32_t ticks = std::max(minSegmentTicks, second.time - front.time);
    speed = lf_distance(front, second) * ticksPerHour / ticks;
  }
  return std::max(speed, 1.0);
}

void retimeAir(LiveAircraft& aircraft) {
  const PositionSlot& front = aircraft.slots[0];
  const PositionSlot& second = aircraft.slots[1];
  if (second.stopped) {
    if (aircraft.category == categoryHelicopter) retimeGround(aircraft);
    return;
  }
  double speed = segmentSpeed(aircraft);
  if (aircraft.approaching && !second.airborne) speed = front.groundSpeed > 0 ? front.groundSpeed : 100;
  const std::int32_t ticks = std::max(minSegmentTicks, ticksFor(lf_distance(front, second), speed));
  lf_retimeTo(aircraft, simTick + ticks);
}

void retimeGround(LiveAircraft& aircraft) {
  const PositionSlot& front = aircraft.slots[0];
  const PositionSlot& second = aircraft.slots[1];
  if (second.stopped) {
    lf_retimeTo(aircraft, simTick + std::max(minSegmentTicks, second.time - front.time));
    return;
  }
  aircraft.turnRate = aircraft.groundTurnRate;
  const double distance = lf_distance(front, second);
  const std::int32_t n = std::max(minSegmentTicks, ticksFor(distance, segmentSpeed(aircraft)));
  if (hasCurve(aircraft) || aircraft.curveHeadingSlew) {
    const double angle = aircraft.curveHeadingSlew ? aircraft.curveAngleLeft : aircraft.curveAngle * radToDeg;
    const double turnTicks = std::max(1.0, std::round(angle / aircraft.turnRate / 100));
    const double ratio = n / turnTicks;
    if (angle > 0 && distance > 0 && angle <= 45) {
      const double f =
          ratio >= 1.2 ? std::min({ratio, ratio * 10 / angle, ratio * 30 * nmPerMetre / distance}) : ratio;
      if (f != 0) aircraft.turnRate /= f;
    } else if (angle > 45) {
      aircraft.turnRate *= std::min(ratio, std::min(angle, 90.0) / 30);
      if (angle >= 90) {
        aircraft.earlyWindow = std::max(aircraft.earlyWindow, 2000);
        aircraft.lateWindow = std::max(aircraft.lateWindow, 2000);
      }
    }
  }
  lf_retimeTo(aircraft, simTick + n);
}

namespace {

// Metres along the curve per unit of its parameter at t.
double lf_curveRate(const LiveAircraft& aircraft, double t) {
  const double north = 2 * (1 - t) * aircraft.curveControlNorth +
                       2 * t * (aircraft.curveEndNorth - aircraft.curveControlNorth);
  const double east =
      2 * (1 - t) * aircraft.curveControlEast + 2 * t * (aircraft.curveEndEast - aircraft.curveControlEast);
  return std::hypot(north, east);
}

double lf_curveLength(const LiveAircraft& aircraft) {
  constexpr int pieces = 16;
  double length = 0;
  for (int i = 0; i < pieces; ++i)
    length += lf_curveRate(aircraft, (i + 0.5) / pieces) / pieces;
  return length;
}

} // namespace

void setUpCurve(LiveAircraft& aircraft) {
  auto& slots = aircraft.slots;
  PositionSlot& third = slots[2];
  if (third.groundSpeed == 0) third.groundSpeed = (slots[0].groundSpeed + slots[1].groundSpeed) / 2;
  aircraft.curveOriginLat = aircraft.lat;
  aircraft.curveOriginLon = aircraft.lon;
  const double originLat = aircraft.lat > 180 ? aircraft.lat - 360 : aircraft.lat;
  const double eastPerDegree = metresPerDegree * std::cos(originLat * degToRad);
  aircraft.curveControlNorth = (slots[1].lat - aircraft.lat) * metresPerDegree;
  aircraft.curveControlEast = (slots[1].lon - aircraft.lon) * eastPerDegree;
  aircraft.curveEndNorth = (third.lat - aircraft.lat) * metresPerDegree;
  aircraft.curveEndEast = (third.lon - aircraft.lon) * eastPerDegree;
  aircraft.curveT = 0;
  aircraft.curveLength = lf_curveLength(aircraft);
  slots.erase(slots.begin() + 1);
}

CurvePoint evaluateCurve(const LiveAircraft& aircraft, double t) {
  const double u = 1 - t;
  const double north = aircraft.curveControlNorth * 2 * u * t + aircraft.curveEndNorth * t * t;
  const double east = aircraft.curveControlEast * 2 * u * t + aircraft.curveEndEast * t * t;
  const double tangent = std::atan2(
      2 * t * (aircraft.curveEndEast - aircraft.curveControlEast) + 2 * u * aircraft.curveControlEast,
      2 * t * (aircraft.curveEndNorth - aircraft.curveControlNorth) + 2 * u * aircraft.curveControlNorth);
  const double lat = aircraft.curveOriginLat + north / metresPerDegree;
  const double lon =
      aircraft.curveOriginLon + east / (std::cos(aircraft.curveOriginLat * degToRad) * metresPerDegree);
  return {lat, lon, wrapHeading(tangent)};
}

namespace {

// Turns the heading towards wanted by at most the turn rate, the shorter way; 180 degrees turns to the right.
void lf_turnTowards(LiveAircraft& aircraft, double wanted) {
  double diff = headingDiff(wanted, aircraft.heading);
  if (diff == -pi) diff = pi;
  const double step = std::min(std::abs(diff), aircraft.turnRate);
  aircraft.heading = wrapHeading(aircraft.heading + (diff >= 0 ? step : -step));
}

// An even pace along the curve: by its parameter alone, a control point near one end would bunch the speed at
// the other, and the speed would leap at every change of segment.
double lf_paceStep(const LiveAircraft& aircraft) {
  const double rate = lf_curveRate(aircraft, aircraft.curveT);
  if (!(aircraft.curveLength > 0) || rate <= 0) return aircraft.curveStep;
  return std::min(aircraft.curveStep * aircraft.curveLength / rate, 4 * aircraft.curveStep);
}

void lf_stepCurve(LiveAircraft& aircraft) {
  aircraft.curveT = std::min(aircraft.curveT + lf_paceStep(aircraft), maxCurveT);
  const CurvePoint point = evaluateCurve(aircraft, aircraft.curveT);
  if (!(aircraft.curveT >= 0 && aircraft.curveT < 1) || std::isnan(point.lat) || std::isnan(point.lon)) {
    logLine(fmt::format("{} error in curve at index: {:.2F}", aircraft.callsign, aircraft.curveT));
    return;
  }
  aircraft.lat = point.lat;
  aircraft.lon = point.lon;
  const double wanted = aircraft.phase == PushBack ? wrapHeading(point.tangent + pi) : point.tangent;
  if (std::abs(headingDiff(wanted, aircraft.heading)) > 0.5 * degToRad) lf_turnTowards(aircraft, wanted);
}

void lf_stepStraight(LiveAircraft& aircraft) {
  const std::uint32_t phase = aircraft.phase;
  const bool slewing = (phase == Taxi || phase == PushBack || phase == Waiting) && aircraft.curveHeadingSlew;
  if (slewing || phase == ToStand)
    lf_turnTowards(aircraft, aircraft.targetHeading);
  else if (phase > Waiting && phase != Taxi)
    aircraft.heading = wrapHeading(aircraft.heading + aircraft.deltaHeading);
  if (phase == Waiting) return;
  aircraft.lat += aircraft.deltaLat;
  aircraft.lon += aircraft.deltaLon;
}

} // namespace

void stepAlongSegment(LiveAircraft& aircraft) {
  if (hasCurve(aircraft))
    lf_stepCurve(aircraft);
  else
    lf_stepStraight(aircraft);
  attitudeStep(aircraft);
  if (aircraft.lon > 180) aircraft.lon -= 360;
  if (aircraft.lon < -180) aircraft.lon += 360;
}

void segmentChange(LiveAircraft& aircraft) {
  auto& slots = aircraft.slots;
  while (slots.size() >= 2 && !aircraft.onGround && slots[1].stopped &&
         aircraft.category != categoryHelicopter)
    slots.erase(slots.begin() + 1);
  if (slots.size() < 2 && aircraft.phase == ToStand) arriveAtStand(aircraft);
  if (slots.size() < 2 && !lf_reckon(aircraft)) {
    if (aircraft.phase != Parked && aircraft.onGround) recordSoftVisit(aircraft);
    requestRemove(aircraft);
    return;
  }
  aircraft.curveControlEast = notANumber;
  aircraft.curveControlNorth = notANumber;
  aircraft.curveT = notANumber;
  PositionSlot& second = slots[1];
  if (!second.stopped && lf_samePosition(second, slots[0])) second.stopped = true;
  if (!second.stopped) aircraft.targetHeading = lf_bearing(slots[0], second);
  if (aircraft.onGround)
    groundSegmentChange(aircraft);
  else
    retimeAir(aircraft);
  if (aircraft.state != Alive || slots.size() < 2) return;
  const PositionSlot& target = slots[1];
  if (target.stopped) {
    aircraft.deltaLat = 0;
    aircraft.deltaLon = 0;
    if (!aircraft.rollOut && !aircraft.departing) narrowWindows(aircraft);
  } else {
    const std::int32_t dt = lf_ticksLeft(target);
    aircraft.deltaLat = (target.lat - aircraft.lat) / dt;
    aircraft.deltaLon = lonDelta(aircraft.lon, target.lon) / dt;
    if (aircraft.onGround)
      groundSegmentSetup(aircraft, dt);
    else {
      lf_airSegmentSetUp(aircraft, dt);
      airConfiguration(aircraft);
    }
  }
  slots.pop_front();
}

void predict(LiveAircraft& aircraft, std::int32_t count) {
  aircraft.predictedSlots = count;
  PositionSlot copy = aircraft.slots.front();
  const bool still = copy.stopped || aircraft.phase == Parked ||
                     (aircraft.onGround && !aircraft.departing && !aircraft.rollOut);
  if (still) {
    copy.stopped = true;
    copy.groundSpeed = 0;
  } else {
    const double before = copy.groundSpeed;
    copy.groundSpeed = lf_predictedSpeed(aircraft, copy, count);
    if (aircraft.onGround && aircraft.rollOut) copy.verticalSpeed = 0;
    if (aircraft.onGround && !aircraft.rollOut)
      copy.verticalSpeed = lf_departingVerticalSpeed(before, copy.verticalSpeed);
  }
  const double seconds = aircraft.onGround ? 3 : 8;
  if (copy.groundSpeed > 0) {
    const LatLon next =
        destination(copy.lat, copy.lon, aircraft.heading, copy.groundSpeed * seconds / 3600 * feetPerNm);
    copy.stopped = next.lat == copy.lat && next.lon == copy.lon;
    copy.lat = next.lat;
    copy.lon = next.lon;
    if (aircraft.approaching && aircraft.flareStage == 0) {
      copy.verticalSpeed = -667;
      copy.altitude = std::max(0.0, copy.altitude - 10.005 * seconds);
      copy.airborne = copy.altitude > 0;
    } else if (aircraft.phase == TakeOff) {
      copy.verticalSpeed = 1500;
      copy.altitude += 25 * seconds;
      copy.airborne = copy.altitude > 0;
    }
  }
  std::int32_t step = static_cast<std::int32_t>(seconds) * ticksPerSecond;
  if (aircraft.phase == Waiting) step = 300 * ticksPerSecond;
  if (aircraft.phase == Parked) {
    step = 60480000; // seven days: a parked aircraft waits for the feed
    aircraft.standConfirmed = false;
    if (aircraft.standId >= 1 && aircraft.standId <= stands.size())
      stands[aircraft.standId - 1].takenByLive = false;
  }
  copy.time += step;
  aircraft.slots.push_back(copy);
}

} // namespace ory
