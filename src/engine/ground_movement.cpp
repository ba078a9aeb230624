#include "base/log.h"
#include "base/parameters.h"
#include "base/run.h"
#include "engine/categories.h"
#include "engine/engine.h"
#include "engine/geometry.h"
#include "engine/motion.h"
#include "engine/park_airport.h"
#include "engine/position_buffer.h"
#include "engine/stand_choice.h"
#include "engine/tables.h"
#include "parking/parked_aircraft.h"
#include "parking/stand_learning.h"
#include "parking/stands.h"
#include "simlink/commands.h"

#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <cmath>

namespace ory {

namespace {

constexpr double parkNm = 5;                          // a new aircraft this near the park airport may stand
constexpr double slowKnots = 5;                       //
constexpr double sameSpotNm = 0.018898488120950324;   // 35 metres
constexpr double placeNm = 0.029697624190064796;      // 55 metres
constexpr double arriveNm = 0.010799136069114472;     // 20 metres
constexpr double nearStandNm = 0.0458963282937365;    // 85 metres
constexpr double jumpNm = 0.10799136069114472;        // 200 metres
constexpr double driftStepNm = 0.0016198704103671706; // 3 metres
constexpr double arrivedNm = 0.0010799136069114472;   // 2 metres
constexpr double splitApartNm = 0.02699784017278618;  // 50 metres
constexpr double speedSplitNm = 0.05399568034557236;  // 100 metres
constexpr std::int32_t sevenDays = 60480000;          // ticks

Stand& lf_stand(std::uint32_t standId) {
  return stands[standId - 1];
}

double lf_distance(const PositionSlot& a, double lat, double lon) {
  return distanceNm(a.lat, a.lon, lat, lon);
}

void lf_takeStand(LiveAircraft& aircraft, std::uint32_t standId) {
  const Stand& stand = lf_stand(standId);
  aircraft.standId = standId;
  aircraft.standHeading = stand.heading;
  aircraft.standLat = stand.lat;
  aircraft.standLon = stand.lon;
  aircraft.onCargoStand = stand.cargo;
}

void lf_parkedNow(LiveAircraft& aircraft) {
  aircraft.parkedSince = steadyMilliseconds();
  aircraft.driftLast = 0;
  aircraft.driftCount = 0;
  lf_stand(aircraft.standId).takenByLive = true;
  markCargoStand(aircraft);
}

// A slot of the aircraft itself, at a point of its ground path.
PositionSlot lf_groundSlot(const LiveAircraft& aircraft, LatLon at, double speed, std::int32_t time) {
  PositionSlot slot = aircraft.slots.front();
  slot.lat = at.lat;
  slot.lon = at.lon;
  slot.groundSpeed = speed;
  slot.tas = speed;
  slot.time = time;
  slot.airborne = false;
  slot.altitude = 0;
  slot.stopped = false;
  return slot;
}

// A slot inserted after the front one, halfway to the second.
void lf_splitSegment(LiveAircraft& aircraft) {
  auto& slots = aircraft.slots;
  const PositionSlot& a = slots[0];
  const PositionSlot& b = slots[1];
  PositionSlot middle = b;
  middle.lat = (a.lat + b.lat) / 2;
  middle.lon = (a.lon + b.lon) / 2;
  middle.time = a.time + (b.time - a.time) / 2;
  middle.altitude = (a.altitude + b.altitude) / 2;
  middle.groundSpeed = (a.groundSpeed + b.groundSpeed) / 2;
  middle.tas = (a.tas + b.tas) / 2;
  middle.airborne = middle.altitude > 0;
  middle.altitude = std::max(0.0, middle.altitude);
  middle.stopped = false;
  slots.insert(slots.begin() + 1, middle);
}

// A change of speed over a long segment gets a slot in between, so that the speed changes in two steps.
bool lf_speedSplit(LiveAircraft& aircraft) {
  const PositionSlot& a = aircraft.slots[0];
  const PositionSlot& b = aircraft.slots[1];
  if (a.groundSpeed == 0 && b.groundSpeed == 0) return false;
  if (std::abs(a.groundSpeed - b.groundSpeed) <= 5 || lf_distance(a, b.lat, b.lon) < speedSplitNm)
    return false;
  lf_splitSegment(aircraft);
  return true;
}

std::int32_t lf_ticks(double nm, double knots) {
  return ticksFor(nm, knots);
}

void lf_departureFromStand(LiveAircraft& aircraft) {
  if (aircraft.predictedSlots > 0) {
    PositionSlot& front = aircraft.slots.front();
    if (aircraft.phase == Parked && aircraft.justLanded) {
      const std::int32_t stay = simTick - front.time + sevenDays;
      const std::uint32_t c = aircraft.category;
      if ((c == 3 && stay < 360000) || (c == 2 && stay < 150000) || ((c == 1 || c == 2) && stay < 90000))
        aircraft.towed = true;
      aircraft.justLanded = false;
    }
    front.time = simTick + 1;
    endPrediction(aircraft);
  }
  if (aircraft.standId == 0) return;
  recordStandVisit(aircraft, nowSlot(), true);
  lf_stand(aircraft.standId).takenByLive = false;
}

void lf_pullOut(LiveAircraft& aircraft) {
  aircraft.startMoving = false;
  aircraft.predictedSlots = 0;
  const double ahead = 2 * aircraft.halfWingSpan;
  const LatLon target = destination(aircraft.lat, aircraft.lon, aircraft.standHeading, ahead * feetPerNm);
  auto& slots = aircraft.slots;
  slots.resize(1);
  slots.front().groundSpeed = aircraft.pushBackSpeed;
  slots.front().stopped = false;
  const std::int32_t time = simTick + lf_ticks(ahead, aircraft.pushBackSpeed);
  slots.push_back(lf_groundSlot(aircraft, target, aircraft.pushBackSpeed, time));
  setPhase(aircraft, Taxi);
  aircraft.targetHeading = aircraft.heading;
  sendLights(aircraft.objectId, lightSet(LightMoment::pullOutPushBack, 0, 0, false));
  sendEngineStart(aircraft.objectId);
  sendThrottle(aircraft, 0);
  sendFlaps(aircraft, 1);
  if (LOG.value)
    logLine(
        fmt::format("{:8}: {:8} pull out {}", standName(aircraft.standId), aircraft.callsign, timeOfDay()));
}

void lf_pushBack(LiveAircraft& aircraft) {
  aircraft.predictedSlots = 0;
  const double tail = wrapHeading(aircraft.standHeading + pi);
  const double back = 2.5 * lf_stand(aircraft.standId).radius;
  const LatLon p1 = destination(aircraft.lat, aircraft.lon, tail, back * feetPerNm);
  auto& slots = aircraft.slots;
  slots.resize(1);
  slots.front().groundSpeed = aircraft.pushBackSpeed;
  slots.front().stopped = false;
  aircraft.targetHeading = aircraft.heading;
  const std::int32_t legTicks = lf_ticks(back, aircraft.pushBackSpeed);
  slots.push_back(lf_groundSlot(aircraft, p1, aircraft.pushBackSpeed, simTick + legTicks));
  lf_splitSegment(aircraft);
  const std::int32_t sideTime = slots.back().time + legTicks / 2;
  const double span = aircraft.halfWingSpan * feetPerNm;
  aircraft.secondLeg = lf_groundSlot(aircraft, destination(p1.lat, p1.lon, tail + pi / 2, span),
                                     aircraft.pushBackSpeed, sideTime);
  aircraft.secondLeg.track = 0;
  PositionSlot p3 = lf_groundSlot(aircraft, destination(p1.lat, p1.lon, tail - pi / 2, span),
                                  aircraft.pushBackSpeed, sideTime);
  p3.track = 0;
  slots.push_back(p3);
  sendLights(aircraft.objectId, lightSet(LightMoment::pullOutPushBack, 0, 0, false));
  setPhase(aircraft, PushBack);
  aircraft.pushBackStage = 2;
  if (LOG.value)
    logLine(
        fmt::format("{:8}: {:8} push back {}", standName(aircraft.standId), aircraft.callsign, timeOfDay()));
}

void lf_pushBackStep(LiveAircraft& aircraft) {
  auto& slots = aircraft.slots;
  --aircraft.pushBackStage;
  if (aircraft.pushBackStage < 1) {
    aircraft.targetHeading = aircraft.heading;
    sendEngineStart(aircraft.objectId);
    sendThrottle(aircraft, 0);
    sendFlaps(aircraft, 1);
    setPhase(aircraft, Waiting);
    aircraft.pushBackStage = 1;
    aircraft.departMinDistance = 900;
    aircraft.predictedSlots = 0;
    aircraft.startMoving = false;
    return;
  }
  if (!aircraft.pushBackSideKnown) {
    if (slots.size() > 2) slots.pop_back();
    return;
  }
  if (aircraft.pushBackSide) slots.back() = aircraft.secondLeg;
  if (slots.size() < 3) return;
  setUpCurve(aircraft);
  aircraft.curveAngle = pi / 2;
  aircraft.curveStep = 1.0 / std::max(1.0, std::round(90 / aircraft.turnRate / 100));
}

void lf_leaveStand(LiveAircraft& aircraft) {
  aircraft.earlyWindow = 3000;
  aircraft.lateWindow = aircraft.departing ? 5000 : 3000;
  if (!aircraft.startMoving || aircraft.slots.size() < 2) return;
  const PositionSlot& last = aircraft.slots.back();
  const double bearing = bearingTo(aircraft.standLat, aircraft.standLon, last.lat, last.lon);
  const double off = std::round(std::abs(headingDiff(bearing, aircraft.standHeading)) * radToDeg);
  if (off < 90)
    lf_pullOut(aircraft);
  else
    lf_pushBack(aircraft);
}

// Curves and splits on a moving segment; the heading's slew where no curve resulted.
void lf_shapeSegment(LiveAircraft& aircraft) {
  auto& slots = aircraft.slots;
  if (slots.size() >= 3) {
    const double turn =
        std::abs(headingDiff(bearingTo(slots[1].lat, slots[1].lon, slots[2].lat, slots[2].lon),
                             aircraft.heading)) *
        radToDeg;
    if (slots[2].stopped) {
      lf_speedSplit(aircraft);
    } else if (turn > 45 && lf_distance(slots[0], slots[1].lat, slots[1].lon) > splitApartNm &&
               slots[0].groundSpeed <= 43 && slots[1].time - slots[0].time >= 600) {
      lf_splitSegment(aircraft);
    } else if (turn > 3 && turn <= 160 && (slots[0].lat != slots[2].lat || slots[0].lon != slots[2].lon)) {
      setUpCurve(aircraft);
      aircraft.curveAngle = turn * degToRad;
    } else {
      lf_speedSplit(aircraft);
    }
  } else if (aircraft.predictedSlots <= 0) {
    lf_speedSplit(aircraft);
  }
  if (hasCurve(aircraft)) {
    aircraft.curveHeadingSlew = false;
  } else {
    aircraft.curveAngleLeft = std::abs(headingDiff(aircraft.targetHeading, aircraft.heading)) * radToDeg;
    aircraft.curveHeadingSlew = aircraft.curveAngleLeft > 3;
  }
}

// An aircraft about to stop looks for the stand it stops on: also when it is already standing in the queue,
// since a slow feed may bring the stop only after the last moving segment began.
void lf_standTest(LiveAircraft& aircraft) {
  auto& slots = aircraft.slots;
  const PositionSlot& last = slots.back();
  if (!last.stopped || aircraft.phase != Taxi || stands.empty()) return;
  const bool justLeft = aircraft.previousPhase == Parked || aircraft.previousPhase < Taxi;
  if (!aircraft.towed && justLeft) return;
  if (aircraft.predictedSlots > 0) {
    seekStand(aircraft, aircraft.justLanded);
    return;
  }
  if (slots[1].groundSpeed <= slowKnots && lf_distance(last, aircraft.lat, aircraft.lon) <= sameSpotNm)
    seekStand(aircraft, false);
}

} // namespace

std::int64_t steadyMilliseconds() {
  return std::chrono::duration_cast<std::chrono::milliseconds>(
             std::chrono::steady_clock::now().time_since_epoch())
      .count();
}

void placeOnStand(LiveAircraft& aircraft) {
  auto& slots = aircraft.slots;
  const ParkAirportPosition airport = parkAirportPosition();
  const PositionSlot& front = slots.front();
  if (stands.empty() || !airport.known || lf_distance(front, airport.lat, airport.lon) > parkNm) {
    setPhase(aircraft, Taxi);
    return;
  }
  const PositionSlot* at = &front;
  if (!front.stopped) {
    if (slots[1].groundSpeed > slowKnots || lf_distance(slots.back(), front.lat, front.lon) > sameSpotNm) {
      setPhase(aircraft, Taxi);
      return;
    }
    at = &slots.back();
  }
  const std::uint32_t standId = findStandAt(at->lat, at->lon, aircraft, placeNm, front.stopped);
  if (standId == 0) {
    if (slots[1].stopped)
      slots.pop_front(); // still in the buffer: tried again with the next slot
    else
      setPhase(aircraft, Taxi);
    return;
  }
  if (isUserStand(standId) || !claimStand(aircraft, standId) || !adjacentParkingAllowed(aircraft, standId)) {
    aircraft.toDelete = true;
    return;
  }
  clearParkedAround(aircraft, standId);
  lf_takeStand(aircraft, standId);
  slots.resize(1);
  PositionSlot& parked = slots.front();
  parked.stopped = true;
  parked.groundSpeed = 0;
  parked.lat = aircraft.standLat;
  parked.lon = aircraft.standLon;
  parked.track = aircraft.standHeading * radToDeg;
  setPhase(aircraft, Parked);
  lf_parkedNow(aircraft);
  recordStandVisit(aircraft, nowSlot(), false);
  limitParked(1);
}

bool parkedFeed(LiveAircraft& aircraft, PositionSlot& slot) {
  const double d = distanceNm(aircraft.standLat, aircraft.standLon, slot.lat, slot.lon);
  const double near = aircraft.previousPhase == ToStand ? 2 * nearStandNm : nearStandNm;
  aircraft.standConfirmed = true;
  if (d <= near) {
    aircraft.parkedSince = steadyMilliseconds();
    if (aircraft.driftLast == 0) {
      aircraft.driftFirst = d;
      aircraft.driftLast = d;
      aircraft.driftCount = 0;
      aircraft.startMoving = false;
      return false;
    }
    if (d < aircraft.driftLast + driftStepNm) {
      if (d <= aircraft.driftLast - driftStepNm) aircraft.driftCount = 0;
      aircraft.startMoving = false;
      return false;
    }
    ++aircraft.driftCount;
    aircraft.driftLast = d;
    const double move = d - aircraft.driftFirst;
    const double span = aircraft.halfWingSpan;
    if (!((aircraft.driftCount >= 3 && move >= span / 2) || move > span)) {
      aircraft.startMoving = false;
      return false;
    }
  } else if (aircraft.phase == ToStand) {
    aircraft.previousPhase = ToStand;
    aircraft.phase = Taxi;
    slot.stopped = false;
    return true;
  } else if (d > jumpNm && aircraft.state == Alive) {
    requestRemove(aircraft);
    return false;
  }
  slot.stopped = false;
  aircraft.startMoving = true;
  if (aircraft.previousPhase == Parked) return true;
  lf_departureFromStand(aircraft);
  const std::uint32_t previous = aircraft.previousPhase;
  aircraft.phase = Parked;
  aircraft.previousPhase = previous;
  return true;
}

void seekStand(LiveAircraft& aircraft, bool wide) {
  auto& slots = aircraft.slots;
  const PositionSlot last = slots.back();
  if (last.lat == aircraft.lastStandSearchLat && last.lon == aircraft.lastStandSearchLon) return;
  aircraft.lastStandSearchLat = last.lat;
  aircraft.lastStandSearchLon = last.lon;
  const std::uint32_t standId = findStandAt(last.lat, last.lon, aircraft, wide ? placeNm : arriveNm, wide);
  if (standId == 0 || isUserStand(standId)) return;
  const std::string name = standName(standId);
  for (LiveAircraft& other : liveAircraft) {
    if (&other == &aircraft || other.standId != standId || other.phase != Parked || other.state == Removing)
      continue;
    if (LOG.value) logLine(fmt::format("{:8}: {:8} removed {}", name, other.callsign, timeOfDay()));
    requestRemove(other);
  }
  clearAdjacentForArrival(aircraft, standId);
  clearParkedAround(aircraft, standId);
  lf_takeStand(aircraft, standId);
  slots.resize(1);
  setPhase(aircraft, ToStand);
  PositionSlot& front = slots.front();
  const double distance = lf_distance(front, aircraft.standLat, aircraft.standLon);
  const std::int32_t n = std::max(100, lf_ticks(distance, aircraft.pushBackSpeed));
  front.groundSpeed = aircraft.pushBackSpeed;
  PositionSlot stand =
      lf_groundSlot(aircraft, {aircraft.standLat, aircraft.standLon}, aircraft.pushBackSpeed, front.time + n);
  stand.track = aircraft.standHeading * radToDeg;
  stand.roll = aircraft.bank;
  stand.stopped = stand.lat == front.lat && stand.lon == front.lon;
  slots.push_back(stand);
  stand.groundSpeed = 0;
  stand.tas = 0;
  stand.stopped = true;
  stand.time = front.time + 50 + n;
  slots.push_back(stand);
  aircraft.targetHeading = aircraft.standHeading;
  if (aircraft.predictedSlots > 0) endPrediction(aircraft);
}

void arriveAtStand(LiveAircraft& aircraft) {
  if (distanceNm(aircraft.lat, aircraft.lon, aircraft.standLat, aircraft.standLon) > arrivedNm) {
    setPhase(aircraft, Taxi);
    return;
  }
  setPhase(aircraft, Parked);
  aircraft.arrivalTime = packedSlot();
  if (aircraft.towed && LOG.value)
    logLine(fmt::format("          towed aircraft {} parks", aircraft.callsign));
  aircraft.slots.front().stopped = true;
  lf_parkedNow(aircraft);
  setParkedSystems(aircraft);
  if (LOG.value)
    logLine(fmt::format("{:8}: {:8} arrived at stand {}", standName(aircraft.standId), aircraft.callsign,
                        timeOfDay()));
  newLiveHexids.push_back(aircraft.hexid);
  recordStandVisit(aircraft, unpackSlot(aircraft.arrivalTime), false);
  if (!aircraft.airline.empty() && aircraft.onCargoStand == aircraft.cargo) limitParked(0);
}

void groundSegmentChange(LiveAircraft& aircraft) {
  switch (aircraft.phase) {
  case PushBack:
    lf_pushBackStep(aircraft);
    break;
  case Waiting:
    break;
  case Parked:
    lf_leaveStand(aircraft);
    break;
  default:
    if (aircraft.slots.size() < 2) break;
    if (!aircraft.slots[1].stopped) lf_shapeSegment(aircraft);
    lf_standTest(aircraft);
    break;
  }
  if (aircraft.slots.size() >= 2) retimeGround(aircraft);
}

} // namespace ory
