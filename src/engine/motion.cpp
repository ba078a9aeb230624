#include "engine/motion.h"

#include "base/log.h"
#include "base/parameters.h"
#include "base/run.h"
#include "engine/categories.h"
#include "engine/geometry.h"
#include "engine/park_airport.h"
#include "engine/position_buffer.h"
#include "engine/stand_choice.h"
#include "engine/tables.h"
#include "feed/qnh_reader.h"
#include "simlink/commands.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>

namespace ory {

namespace {

constexpr double liftOffWatchKnots = 43;
constexpr double flatClimbFpm = 256;
constexpr double approachNm = 10;
constexpr double flareWatchFeet = 400;
constexpr double flarePitch = -4 * degToRad;

bool lf_helicopter(const ParkedAircraft& aircraft) {
  return aircraft.category == categoryHelicopter;
}

// Throttle 4 for a helicopter, whatever the step of an aeroplane.
std::uint32_t lf_throttle(const ParkedAircraft& aircraft, std::uint32_t step) {
  return lf_helicopter(aircraft) ? 4 : step;
}

void lf_windows(LiveAircraft& aircraft, std::int32_t early, std::int32_t late) {
  aircraft.earlyWindow = early;
  aircraft.lateWindow = late;
}

std::uint32_t lf_departingThrottle(double front, double second) {
  if (front >= 25 || second >= 30) return 4;
  if (front >= 20 || second >= 25) return 2;
  if (front >= 15 || second >= 20) return 1;
  return 0;
}

void lf_clearCurve(LiveAircraft& aircraft) {
  aircraft.curveControlEast = notANumber;
  aircraft.curveControlNorth = notANumber;
  aircraft.curveT = notANumber;
}

void lf_modelData(const LiveAircraft& aircraft, double spoilers, double throttle) {
  if (aircraft.category != 0) setSpoilersThrottleData(aircraft.objectId, spoilers, throttle);
}

// The landing roll: off the runway at 15 degrees from the landing heading, else slowing down.
void lf_rollOutStep(LiveAircraft& aircraft) {
  if (std::abs(headingDiff(aircraft.heading, aircraft.landingHeading)) >= 15 * degToRad) {
    sendFlaps(aircraft, 0);
    aircraft.rollOut = false;
    aircraft.landingHeading = 0;
    sendThrottle(aircraft, lf_throttle(aircraft, 0));
    sendSpoilers(aircraft, false);
    lf_modelData(aircraft, 0, 0);
    sendLights(aircraft.objectId, lightSet(LightMoment::settledTaxi, aircraft.altitude, 0, false));
    return;
  }
  if (aircraft.slots.front().groundSpeed > 90) return;
  sendSpoilers(aircraft, false);
  lf_modelData(aircraft, 0, 0);
  sendFlaps(aircraft, 1);
}

// Off to the runway, for a departure or a go-around from the landing roll.
void lf_leaveForRunway(LiveAircraft& aircraft, std::uint32_t throttle, bool spoilers, LightMoment lights) {
  aircraft.departing = true;
  sendThrottle(aircraft, throttle);
  sendSpoilers(aircraft, spoilers);
  sendFlaps(aircraft, 1);
  aircraft.approaching = false;
  aircraft.justLanded = false;
  aircraft.climbing = false;
  sendLights(aircraft.objectId, lightSet(lights, aircraft.altitude, 0, false));
  lf_windows(aircraft, 3000, 5000);
}

void lf_departureStart(LiveAircraft& aircraft) {
  if (aircraft.towed) logLine(fmt::format("towed aircraft takes-off? {}", describe(aircraft)));
  lf_leaveForRunway(aircraft, 0, false, LightMoment::departureStart);
  if (!aircraft.airline.empty()) recordSoftVisit(aircraft);
}

void lf_takeOff(LiveAircraft& aircraft) {
  aircraft.countDown = aircraft.rotateSlots;
  aircraft.deltaPitch = (aircraft.rotatePitch - aircraft.pitch) / aircraft.rotateSlots;
  aircraft.deltaBank = 0;
  aircraft.bank = 0;
  if (!aircraft.departing) lf_departureStart(aircraft);
  setPhase(aircraft, TakeOff);
  if (LOG.value) logLine(fmt::format("          {:8} took-off {}", aircraft.callsign, timeOfDay()));
  lf_clearCurve(aircraft);
  aircraft.deltaHeading = 0;
  if (!aircraft.rollOut) return;
  aircraft.rollOut = false;
  aircraft.approaching = false;
  aircraft.justLanded = false;
  sendThrottle(aircraft, 4);
  sendSpoilers(aircraft, true);
  sendFlaps(aircraft, 1);
}

// A departing aircraft leaves the ground when the queue ahead says it flies.
void lf_liftOffTest(LiveAircraft& aircraft, std::int32_t dt) {
  const auto& slots = aircraft.slots;
  if (!aircraft.departing || aircraft.phase == TakeOff || slots.front().groundSpeed < liftOffWatchKnots)
    return;
  const auto ahead = slots.begin() + 1;
  const bool allAirborne = std::all_of(ahead, slots.end(), [](const PositionSlot& s) { return s.airborne; });
  const bool flat =
      std::any_of(ahead, slots.end(), [](const PositionSlot& s) { return s.verticalSpeed <= flatClimbFpm; });
  if (flat) {
    const double liftOff = valuesOf(aircraft.category).liftOffSpeed;
    const bool fast = std::all_of(ahead, slots.end(),
                                  [liftOff](const PositionSlot& s) { return s.groundSpeed >= liftOff; });
    if (!fast || !allAirborne) return;
    aircraft.deltaAltitude = aircraft.climbRate;
  } else if (allAirborne) {
    aircraft.deltaAltitude = std::max(0.1, slots[1].altitude - aircraft.altitude) / std::max(25, dt);
  } else {
    aircraft.deltaAltitude = aircraft.climbRate;
  }
  lf_takeOff(aircraft);
}

// Stores the sink rate in the second slot and as the target.
void lf_storeSinkRate(LiveAircraft& aircraft, double rate) {
  aircraft.slots[1].verticalSpeed = rate;
  aircraft.targetVerticalSpeed = rate;
  aircraft.deltaAltitude = rate / 6000;
}

bool lf_nearParkAirport(const LiveAircraft& aircraft) {
  const ParkAirportPosition airport = parkAirportPosition();
  return airport.known && distanceNm(aircraft.lat, aircraft.lon, airport.lat, airport.lon) <= approachNm;
}

void lf_startApproach(LiveAircraft& aircraft) {
  sendThrottle(aircraft, lf_throttle(aircraft, 1));
  sendFlaps(aircraft, 3);
  sendGear(aircraft, true);
  newLiveHexids.push_back(aircraft.hexid);
  aircraft.approaching = true;
  aircraft.climbing = false;
  aircraft.standLat = 0;
  aircraft.standLon = 0;
  aircraft.standHeading = 0;
  aircraft.standId = 0;
  aircraft.onCargoStand = false;
  aircraft.countDown = 1;
  lf_windows(aircraft, 3000, aircraft.departing ? 5000 : 3000);
}

void lf_climbAway(LiveAircraft& aircraft) {
  if (aircraft.climbing) return;
  narrowWindows(aircraft);
  sendThrottle(aircraft, 4);
  sendGear(aircraft, false);
  aircraft.climbing = true;
  aircraft.approaching = false;
  sendFlaps(aircraft, 0);
  aircraft.flareStage = 0;
}

void lf_highConfiguration(LiveAircraft& aircraft, double verticalSpeed) {
  narrowWindows(aircraft);
  sendCabinLights(aircraft.objectId, true);
  aircraft.departing = false;
  aircraft.approaching = false;
  if (verticalSpeed <= -250 && aircraft.throttleState == 3) sendThrottle(aircraft, lf_throttle(aircraft, 2));
  if (verticalSpeed > 400 && aircraft.throttleState == 4) sendThrottle(aircraft, lf_throttle(aircraft, 3));
  const double aboveGround = aircraft.altitudeAboveGround;
  if (aboveGround >= 2400) {
    sendGear(aircraft, false);
    sendFlaps(aircraft, 0);
    return;
  }
  if (verticalSpeed > 100) return;
  if (aboveGround >= 2000) {
    if (aircraft.flapsState == 0) sendFlaps(aircraft, 1);
    return;
  }
  if (aircraft.flapsState <= 1) sendFlaps(aircraft, aircraft.flapsState + 1);
}

void lf_passageLights(LiveAircraft& aircraft) {
  const bool below = aircraft.slots.front().altitude < 10000;
  if (below && !aircraft.lowLightsSet) {
    sendLights(aircraft.objectId, lightSet(LightMoment::below10000, aircraft.altitude, 0, false));
    aircraft.lowLightsSet = true;
    aircraft.highLightsSet = false;
  } else if (!below && !aircraft.highLightsSet) {
    sendLights(aircraft.objectId, lightSet(LightMoment::above10000, aircraft.altitude, 0, false));
    sendThrottle(aircraft, lf_throttle(aircraft, 3));
    sendGear(aircraft, false);
    sendFlaps(aircraft, 0);
    aircraft.highLightsSet = true;
    aircraft.lowLightsSet = false;
  }
}

// Both slots on the ground while the aircraft flies: climb to the first airborne slot ahead, or sink.
void lf_groundSlotsInAir(LiveAircraft& aircraft) {
  auto& slots = aircraft.slots;
  sendGear(aircraft, true);
  if (aircraft.approaching) {
    lf_storeSinkRate(aircraft, sinkRate(aircraft));
    return;
  }
  double sum = 0;
  for (const PositionSlot& slot : slots)
    sum += slot.verticalSpeed;
  if (sum <= 100) {
    lf_storeSinkRate(aircraft, sinkRate(aircraft));
    return;
  }
  for (std::size_t k = 2; k < std::min<std::size_t>(slots.size(), 10); ++k) {
    if (!slots[k].airborne) continue;
    slots.erase(slots.begin() + 1, slots.begin() + static_cast<std::ptrdiff_t>(k));
    retimeAir(aircraft);
    const PositionSlot& target = slots[1];
    const std::int32_t ticks = std::max(25, target.time - simTick);
    aircraft.deltaLat = (target.lat - aircraft.lat) / ticks;
    aircraft.deltaLon = (target.lon - aircraft.lon) / ticks;
    const double rise = target.altitude - aircraft.altitude;
    aircraft.deltaAltitude = rise <= 0 ? 0 : std::min(rise / ticks, aircraft.climbRate);
    return;
  }
  const double rate = std::max(slots[1].verticalSpeed, 601.0);
  slots[1].verticalSpeed = rate;
  aircraft.targetVerticalSpeed = rate;
  aircraft.deltaAltitude = rate / 6000;
}

void lf_climbPitchStep(LiveAircraft& aircraft) {
  --aircraft.countDown;
  const std::int32_t count = aircraft.countDown;
  if (count >= 1) {
    aircraft.onGround = false;
    if (aircraft.pitch > aircraft.rotatePitch)
      aircraft.pitch = std::max(aircraft.pitch + aircraft.deltaPitch, aircraft.rotatePitch);
    return;
  }
  const double rate = (aircraft.climbPitch - aircraft.rotatePitch) / aircraft.climbSlots;
  const bool reached = aircraft.pitch <= aircraft.climbPitch;
  if (!reached) aircraft.pitch = std::max(aircraft.pitch + rate, aircraft.climbPitch);
  aircraft.bank += aircraft.deltaBank;
  if (count == 0) return;
  if (count >= -99) {
    aircraft.altitude += aircraft.deltaAltitude / 10;
  } else if (count >= -199) {
    aircraft.altitude += aircraft.deltaAltitude / 5;
  } else if (count >= -299) {
    aircraft.altitude += aircraft.deltaAltitude / 2;
  } else {
    if (count == -300) sendGear(aircraft, false);
    aircraft.altitude += aircraft.deltaAltitude;
    if (count == -300 || aircraft.pitch > aircraft.climbPitch) return;
    aircraft.deltaPitch = 0;
    if (aircraft.altitudeAboveGround < 800) return;
    sendThrottle(aircraft, lf_throttle(aircraft, 3));
    setPhase(aircraft, Airborne);
    aircraft.countDown = 1;
  }
}

struct FlareStage {
  double height;        // feet above staticCG that start the next stage
  double deltaAltitude; // feet per tick
  double verticalSpeed; // feet per minute of the front slot
};
constexpr std::array<FlareStage, 4> flareStages = {{
    {30, -0.1, -601},
    {20, -0.075, -450},
    {10, -0.05, -300},
    {3, -0.025, -150},
}};

void lf_flareStep(LiveAircraft& aircraft) {
  const std::int32_t stage = aircraft.flareStage;
  if (stage >= 4 || aircraft.phase == TakeOff || !aircraft.approaching || aircraft.onGround ||
      aircraft.altitudeAboveGround > flareWatchFeet)
    return;
  double height = aircraft.altitudeAboveGround;
  if (stage == 0) {
    const ParkAirportPosition airport = parkAirportPosition();
    if (airport.known && !aircraft.airportElevation) aircraft.airportElevation = airport.elevation;
    aircraft.radioHeight =
        aircraft.airportElevation ? aircraft.altitude - *aircraft.airportElevation : height;
    height = std::min(height, aircraft.radioHeight);
  }
  const FlareStage& next = flareStages[static_cast<std::size_t>(stage)];
  if (height > aircraft.staticCG + next.height) return;
  aircraft.deltaAltitude = next.deltaAltitude;
  aircraft.slots.front().verticalSpeed = next.verticalSpeed;
  aircraft.flareStage = stage + 1;
  aircraft.airportElevation.reset();
  if (stage == 0) {
    aircraft.deltaPitch = (flarePitch - aircraft.pitch) / aircraft.flareSlots;
    someoneOnFinal = true;
  }
  if (stage == 2) sendThrottle(aircraft, 0);
}

void lf_landed(LiveAircraft& aircraft) {
  if (aircraft.state == Removing || aircraft.phase == TakeOff) return;
  if (aircraft.flareStage > 0 || aircraft.approaching) {
    aircraft.derotating = true;
    aircraft.rollOut = true;
    someoneOnFinal = false;
    aircraft.landingHeading = aircraft.heading;
    aircraft.approaching = false;
    aircraft.justLanded = true;
    if (LOG.value) logLine(fmt::format("          {:8} landed {}", aircraft.callsign, timeOfDay()));
    sendSpoilers(aircraft, true);
    lf_modelData(aircraft, 100, aircraft.fsltlLivery ? -100 : 100);
    if (aircraft.onGroundSlots <= 0) {
      logLine(fmt::format("{} ! onGround slots {:.1F}", aircraft.callsign,
                          static_cast<double>(aircraft.onGroundSlots)));
    } else {
      aircraft.deltaBank = -aircraft.bank / aircraft.onGroundSlots;
      aircraft.deltaPitch = (aircraft.groundPitch - aircraft.pitch) / aircraft.onGroundSlots;
    }
    newLiveHexids.push_back(aircraft.hexid);
  }
  aircraft.onGround = true;
  aircraft.deltaAltitude = 0;
  aircraft.countDown = 1;
}

} // namespace

double sinkRate(const LiveAircraft& aircraft) {
  if (aircraft.altitudeAboveGround <= 100) return -600;
  const double mean = (aircraft.slots[0].verticalSpeed + aircraft.slots[1].verticalSpeed) / 2;
  return std::min(mean - (qnhForEngine - standardQnh) * 6, -601.0);
}

void groundSegmentSetup(LiveAircraft& aircraft, std::int32_t dt) {
  if (aircraft.phase == Airborne || aircraft.phase == Parked) setPhase(aircraft, Taxi);
  const PositionSlot& front = aircraft.slots[0];
  const PositionSlot& second = aircraft.slots[1];
  if (!aircraft.departing && aircraft.rollOut)
    lf_rollOutStep(aircraft);
  else if (!aircraft.departing || lf_helicopter(aircraft))
    sendThrottle(aircraft, lf_helicopter(aircraft) ? 4 : 0);
  else
    sendThrottle(aircraft, lf_departingThrottle(front.groundSpeed, second.groundSpeed));
  if (!aircraft.rollOut && !aircraft.departing) narrowWindows(aircraft);
  if (aircraft.flareStage <= 0 && aircraft.phase != TakeOff) {
    aircraft.pitch = aircraft.groundPitch;
    aircraft.bank = 0;
    aircraft.deltaPitch = 0;
    aircraft.deltaBank = 0;
  }
  if (hasCurve(aircraft)) aircraft.curveStep = 1.0 / dt;
  aircraft.targetTas = aircraft.phase == PushBack ? -second.groundSpeed : second.groundSpeed;
  lf_liftOffTest(aircraft, dt);
}

void airAltitudeRate(LiveAircraft& aircraft, std::int32_t dt) {
  const PositionSlot& front = aircraft.slots[0];
  PositionSlot& second = aircraft.slots[1];
  if (!front.airborne && second.airborne) {
    const double rise = second.altitude - aircraft.altitude;
    aircraft.deltaAltitude = rise > 0 ? std::min(rise / dt, aircraft.climbRate) : 0;
    return;
  }
  if (front.airborne && !second.airborne) {
    sendGear(aircraft, true);
    const ParkAirportPosition airport = parkAirportPosition();
    const bool lowQnh = qnhForEngine <= standardQnh;
    if (lowQnh && airport.known) {
      aircraft.deltaAltitude = (airport.elevation - aircraft.altitude) / dt;
      return;
    }
    lf_storeSinkRate(aircraft, lowQnh ? -601 : sinkRate(aircraft));
    return;
  }
  lf_groundSlotsInAir(aircraft);
}

void airConfiguration(LiveAircraft& aircraft) {
  lf_passageLights(aircraft);
  if (aircraft.altitude >= 10000) return;
  const double limit = aircraft.category >= 1 && aircraft.category <= 3 ? 2050 : 625;
  const double verticalSpeed = aircraft.slots.front().verticalSpeed;
  if (aircraft.altitudeAboveGround > limit) {
    lf_highConfiguration(aircraft, verticalSpeed);
    return;
  }
  sendCabinLights(aircraft.objectId, false);
  const bool near = lf_nearParkAirport(aircraft);
  if (verticalSpeed <= -250 && !aircraft.approaching && near) {
    lf_startApproach(aircraft);
    return;
  }
  if (verticalSpeed > 600 || (aircraft.approaching && !near)) lf_climbAway(aircraft);
}

void takeOffWatch(LiveAircraft& aircraft, const PositionSlot& last, const PositionSlot& slot) {
  if (aircraft.rollOut) {
    if (!last.airborne || !slot.airborne) return;
    setPhase(aircraft, Taxi);
    lf_leaveForRunway(aircraft, 3, true, LightMoment::below10000);
    return;
  }
  if (aircraft.phase != Taxi) return;
  const bool rolling =
      !slot.airborne && slot.groundSpeed >= liftOffWatchKnots && last.groundSpeed >= liftOffWatchKnots;
  if (rolling || slot.airborne) lf_departureStart(aircraft);
}

void attitudeStep(LiveAircraft& aircraft) {
  if (aircraft.phase == TakeOff) {
    lf_climbPitchStep(aircraft);
    return;
  }
  lf_flareStep(aircraft);
  if (aircraft.derotating) {
    aircraft.pitch += aircraft.deltaPitch;
    aircraft.bank += aircraft.deltaBank;
    if (aircraft.pitch >= aircraft.groundPitch) {
      aircraft.pitch = aircraft.groundPitch;
      aircraft.deltaPitch = 0;
      aircraft.bank = 0;
      aircraft.deltaBank = 0;
      aircraft.derotating = false;
      aircraft.flareStage = 0;
    }
    return;
  }
  if (aircraft.flareStage == 0 && aircraft.onGround) {
    aircraft.pitch = aircraft.groundPitch;
    aircraft.bank = 0;
  } else if (aircraft.flareStage == 0) {
    aircraft.pitch += aircraft.deltaPitch;
  } else {
    aircraft.pitch = std::max(aircraft.pitch + aircraft.deltaPitch, flarePitch);
  }
  aircraft.bank += aircraft.deltaBank;
  aircraft.altitude += aircraft.deltaAltitude;
}

void groundContact(const SimCommand& command) {
  LiveAircraft* aircraft = findLiveByObject(command.objectId);
  if (aircraft == nullptr) return;
  if (command.value != 0 && !aircraft->onGround && aircraft->countDown <= 1) lf_landed(*aircraft);
  aircraft->altitudeAboveGround = command.b;
  if (aircraft->onGround || aircraft->countDown > 1) aircraft->altitude = aircraft->staticCG + command.a;
}

} // namespace ory
