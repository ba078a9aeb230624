#include "base/display.h"
#include "base/log.h"
#include "base/parameters.h"
#include "base/run.h"
#include "engine/conflicts.h"
#include "engine/engine.h"
#include "engine/geometry.h"
#include "engine/motion.h"
#include "engine/stand_choice.h"
#include "engine/tables.h"
#include "liveries/dbase.h"
#include "liveries/matching.h"
#include "parking/parked_aircraft.h"
#include "parking/static_parking.h"
#include "simlink/commands.h"
#include "simlink/user_aircraft.h"

#include <fmt/format.h>

#include <algorithm>
#include <cctype>
#include <cmath>

namespace ory {

namespace {

constexpr std::size_t maxCallsignLength = 8;
constexpr std::size_t createQueueFull = 11;
constexpr double groundPitchAtCreation = 0.010471975511965976; // 0.6 degrees
constexpr std::string_view noCallsign = "@@@@@@@@";
constexpr double furtherMarginNm = 0.1;

double lf_userDistance(double lat, double lon) {
  const UserAircraft& user = engineUser();
  return distanceNm(user.lat, user.lon, lat, lon);
}

// The alive aircraft furthest from the user, or null.
LiveAircraft* lf_furthestAlive(double& distance) {
  LiveAircraft* furthest = nullptr;
  distance = -1;
  const UserAircraft& user = engineUser();
  for (LiveAircraft& other : liveAircraft) {
    if (other.state != Alive) continue;
    const double d = distanceNm(user.lat, user.lon, other.lat, other.lon);
    if (d <= distance) continue;
    distance = d;
    furthest = &other;
  }
  return furthest;
}

std::size_t lf_liveCount() {
  const auto alive = std::count_if(liveAircraft.begin(), liveAircraft.end(),
                                   [](const LiveAircraft& a) { return a.state == Alive; });
  return static_cast<std::size_t>(alive) + pendingCreateHexids.size() + pendingLiveCreate.size();
}

bool lf_limited() {
  return MAX_LIVE.value < MAX_LIVE.maximum;
}

// false: the aircraft does not fit under the live limit, even after the furthest made room.
bool lf_makeRoom(const LiveAircraft& aircraft) {
  if (!lf_limited() || lf_liveCount() < static_cast<std::size_t>(MAX_LIVE.value)) return true;
  const PositionSlot& front = aircraft.slots.front();
  const double own = lf_userDistance(front.lat, front.lon);
  double furthestDistance = 0;
  LiveAircraft* furthest = lf_furthestAlive(furthestDistance);
  if (furthest == nullptr || furthestDistance <= own + furtherMarginNm) return false;
  requestRemove(*furthest);
  return true;
}

bool lf_mixedQueue(const LiveAircraft& aircraft) {
  const auto& slots = aircraft.slots;
  const bool anyAirborne =
      std::any_of(slots.begin(), slots.end(), [](const PositionSlot& s) { return s.airborne; });
  const bool anyGround =
      std::any_of(slots.begin(), slots.end(), [](const PositionSlot& s) { return !s.airborne; });
  return anyAirborne && anyGround;
}

void lf_takeRegcodeRecord(LiveAircraft& aircraft) {
  if (aircraft.regcode.empty()) return;
  const std::optional<DbaseRecord> record = lookupDbaseRecord(aircraft.regcode);
  if (!record) return;
  if (!record->airl.empty()) aircraft.airline = record->airl;
  if (!record->type.empty()) aircraft.type = record->type;
  if (!record->opr.empty()) aircraft.airline = record->opr;
  aircraft.cargo = record->cargo;
  if (aircraft.callsign.empty() || aircraft.callsign == noCallsign) aircraft.callsign = aircraft.regcode;
}

std::string lf_airlineOfCallsign(const std::string& callsign) {
  const auto upper = [](char c) { return std::isupper(static_cast<unsigned char>(c)) != 0; };
  if (callsign.size() >= 4 && upper(callsign[0]) && upper(callsign[1]) && upper(callsign[2]) &&
      std::isdigit(static_cast<unsigned char>(callsign[3])) != 0)
    return callsign.substr(0, 3);
  return "PVT";
}

bool lf_onGhostList(const std::string& callsign) {
  return std::find(ghostCallsigns.begin(), ghostCallsigns.end(), callsign) != ghostCallsigns.end();
}

double lf_creationPitch(const PositionSlot& slot) {
  if (!slot.airborne) return groundPitchAtCreation;
  double w = slot.verticalSpeed;
  w = w < 0 ? std::max(w, -3000.0) / 2 : std::min(w, 2400.0);
  return (-3 - w / 600 * 2.2) * degToRad;
}

double lf_creationHeading(const LiveAircraft& aircraft) {
  if (aircraft.keptHeading) return wrapHeading(*aircraft.keptHeading);
  if (aircraft.phase == Parked) return wrapHeading(aircraft.standHeading);
  const PositionSlot& front = aircraft.slots[0];
  const PositionSlot& second = aircraft.slots[1];
  if (second.stopped) return wrapHeading(front.track * degToRad);
  return bearingTo(front.lat, front.lon, second.lat, second.lon);
}

void lf_fillPositionBlock(LiveAircraft& aircraft) {
  const PositionSlot& front = aircraft.slots.front();
  aircraft.lat = front.lat;
  aircraft.lon = front.lon;
  aircraft.pitch = lf_creationPitch(front);
  aircraft.bank = front.hasRoll ? front.roll : 0;
  aircraft.altitude = front.altitude;
  aircraft.verticalSpeed = front.verticalSpeed / 60;
  aircraft.tas = front.tas;
  aircraft.heading = lf_creationHeading(aircraft);
  aircraft.keptHeading.reset();
}

// The aircraft passed admission: livery, phase, stand and position, then its create is queued.
void lf_prepareCreation(LiveAircraft& aircraft) {
  auto& slots = aircraft.slots;
  slots[0].stopped = slots[1].stopped;
  if (slots[0].stopped) {
    slots[0].groundSpeed = 0;
    slots[1].groundSpeed = 0;
    if (slots.size() >= 3 && slots[2].stopped) slots[2].groundSpeed = 0;
  }
  if (aircraft.phase == New) {
    if (!findLivery(aircraft, aircraft.recreated)) {
      aircraft.toDelete = true;
      return;
    }
    if (slots.front().airborne) {
      aircraft.previousPhase = aircraft.phase;
      aircraft.phase = Airborne;
    } else {
      placeOnStand(aircraft);
    }
  }
  if (aircraft.toDelete || aircraft.state != Buffered || slots.empty()) return;
  if (slots.size() < 2 && aircraft.phase != Parked && !aircraft.keptHeading) return;
  newLiveHexids.push_back(aircraft.hexid);
  lf_fillPositionBlock(aircraft);
  aircraft.state = Creating;
  aircraft.heldBack = false;
  pendingCreateHexids.push_back(aircraft.hexid);
  if (!isGhost(aircraft.callsign)) ghostKill(aircraft.callsign);
}

} // namespace

void admit(LiveAircraft& aircraft) {
  auto& slots = aircraft.slots;
  if (slots.empty()) {
    aircraft.toDelete = true;
    return;
  }
  const PositionSlot& front = slots.front();
  const std::int32_t lead = !front.airborne && front.groundSpeed > 0 ? 300 : 100;
  if (simTick < front.time - lead) return;
  if (slots.size() == 1 || (isGhost(aircraft.callsign) && lf_onGhostList(aircraft.callsign))) {
    aircraft.toDelete = true;
    return;
  }
  if (lf_mixedQueue(aircraft)) {
    slots.pop_front();
    return;
  }
  if (keptFromUser(aircraft)) return;
  if (pendingLiveCreate.size() >= createQueueFull && aircraft.phase == New) {
    slots.pop_front();
    return;
  }
  if (!lf_makeRoom(aircraft) ||
      (!BLOCK_CALLSIGN.value.empty() && aircraft.callsign == BLOCK_CALLSIGN.value)) {
    aircraft.toDelete = true;
    return;
  }
  lf_takeRegcodeRecord(aircraft);
  const std::string& callsign = aircraft.callsign;
  if (callsign.empty() || callsign == noCallsign || callsign.size() > maxCallsignLength) {
    aircraft.toDelete = true;
    return;
  }
  if (aircraft.airline.empty()) aircraft.airline = lf_airlineOfCallsign(callsign);
  if (isNoMatch(aircraft.airline, aircraft.type) || (isGhost(callsign) && hasRealFlight(callsign))) {
    aircraft.toDelete = true;
    return;
  }
  lf_prepareCreation(aircraft);
}

bool findLivery(ParkedAircraft& aircraft, bool quiet) {
  MatchAircraft match;
  match.airline = aircraft.airline;
  match.type = aircraft.type;
  match.regcode = aircraft.regcode;
  match.callsign = aircraft.callsign;
  match.text = describe(aircraft);
  match.hexid = aircraft.hexid;
  match.category = static_cast<ModelCategory>(aircraft.category);
  match.cargo = aircraft.cargo;
  match.quiet = quiet;
  match.liveryTitle = aircraft.liveryTitle;
  if (!matchLiveAircraft(match)) {
    addNoMatch(match);
    return false;
  }
  aircraft.liveryTitle = match.liveryTitle;
  aircraft.fsltlLivery = match.fsltlLivery;
  return true;
}

void enforceMaxLive() {
  if (!lf_limited()) return;
  auto alive = static_cast<std::int32_t>(std::count_if(
      liveAircraft.begin(), liveAircraft.end(), [](const LiveAircraft& a) { return a.state == Alive; }));
  for (; alive > MAX_LIVE.value; --alive) {
    double distance = 0;
    LiveAircraft* furthest = lf_furthestAlive(distance);
    if (furthest == nullptr) return;
    requestRemove(*furthest);
  }
}

void serveNewLiveHexid() {
  // An aircraft that is gone leaves the head where it is: the list waits.
  if (newLiveHexids.empty()) return;
  LiveAircraft* aircraft = findLive(newLiveHexids.front());
  if (aircraft == nullptr) return;
  if (!aircraft->coupleSearched) searchCouple(*aircraft, nowSlot());
  replaceParkedBy(*aircraft);
  newLiveHexids.pop_front();
}

void serveBlockedCallsign() {
  // The window writes the text before it raises the flag: read here, it is whole.
  if (!blockPending.exchange(false)) return;
  blockedCallsign = BLOCK_CALLSIGN.value;
  if (blockedCallsign.empty()) return;
  const auto blocked = std::find_if(liveAircraft.begin(), liveAircraft.end(), [](const LiveAircraft& a) {
    return a.callsign == blockedCallsign && a.objectId != 0 && a.state == Alive;
  });
  if (blocked != liveAircraft.end()) requestRemove(*blocked);
}

void serveFlush() {
  if (!flushPending.exchange(false)) return;
  stopStaticParking();
  for (ParkedAircraft& parked : parkedAircraft) {
    if (parked.objectId != 0)
      requestRemove(parked);
    else if (parked.state == Creating)
      parked.removeOnCreated = true;
  }
  if (INITIAL_LOAD_ONLY.value) return;
  INITIAL_LOAD_ONLY.value = true; // for this run only, not stored
  showBool(INITIAL_LOAD_ONLY);
}

void serveNavLights() {
  if (!navLightsPending.exchange(false)) return;
  const bool on = NAV_LIGHTS_WHILE_PARKED.value;
  for (const ParkedAircraft& parked : parkedAircraft)
    if (parked.objectId != 0 && parked.state == Alive) sendNavLights(parked.objectId, on);
  for (const LiveAircraft& live : liveAircraft)
    if (live.objectId != 0 && live.state == Alive && live.phase == Parked) sendNavLights(live.objectId, on);
}

void renew(LiveAircraft& aircraft) {
  auto& slots = aircraft.slots;
  if (aircraft.phase != Parked) {
    PositionSlot here;
    here.lat = aircraft.lat;
    here.lon = aircraft.lon;
    here.roll = aircraft.bank;
    here.hasRoll = true;
    here.trueHeading = aircraft.heading;
    here.hasHeading = true;
    here.altitude = aircraft.altitude;
    here.groundSpeed = aircraft.tas;
    here.track = aircraft.heading * radToDeg;
    here.verticalSpeed = aircraft.verticalSpeed * 60;
    here.tas = aircraft.tas;
    here.time = simTick + 1;
    here.airborne = !slots.empty() && slots.front().airborne;
    here.stopped = !slots.empty() && slots.front().lat == here.lat && slots.front().lon == here.lon;
    slots.push_front(here);
  } else if (!slots.empty()) {
    if (slots.size() > 1) {
      logLine(fmt::format("{:8}: {} {} livery change stream.size: {} !", standName(aircraft.standId),
                          aircraft.callsign, timeOfDay(), slots.size()));
      slots.resize(1);
    }
    slots.front().stopped = true;
    slots.front().track = aircraft.heading * radToDeg;
    PositionSlot copy = slots.front();
    copy.time = simTick + 1;
    slots.push_front(copy);
  }
  aircraft.state = Renewing;
  aircraft.keptHeading = aircraft.heading;
  pendingRemoveObjects.push_back(aircraft.objectId);
}

} // namespace ory
