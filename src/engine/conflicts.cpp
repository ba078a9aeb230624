#include "engine/conflicts.h"

#include "base/display.h"
#include "base/log.h"
#include "base/parameters.h"
#include "engine/geometry.h"
#include "engine/tables.h"
#include "simlink/user_aircraft.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>

namespace ory {

namespace {

constexpr double crossingNm = 4;                  // an aircraft in the air this near the user in the air
constexpr double crossingFt = 1000;               // and this near in altitude
constexpr double abeamFt = 700;                   // goes when it is about to pass abeam of the user
constexpr double lowUserFt = 500;                 // a user this low over the ground
constexpr double runwayNm = 1;                    // and an aircraft on the ground this near
constexpr double runwayWidthFt = 50;              // on the user's line
constexpr double safetyFactor = 1.1;              // on the sum of two half spans
constexpr double standingKnots = 8;               // a user or slot at most this fast stands
constexpr double heldBackNm = 500 * nmPerMetre;   // a held-back aircraft on the ground at least this far
constexpr double nearGroundNm = 150 * nmPerMetre; // nothing on the ground nearer to a user on it
constexpr double renewedNm = 1.5;                 // a renewed aircraft on the ground near a user in the air
constexpr double finalFt = 1000;                  // a user under this height over the ground
constexpr double finalLineFt = 500;               // an aircraft on the user's line within this
constexpr double corridorNm = 6;                  // the approach corridor's reach
constexpr double corridorHeightFt = 3000;         // its height band around the user
constexpr double corridorAbeamFt = 4000;          // along the aircraft's heading to abeam of the user

LatLon lf_lastUser; // degrees, the user's position at the last second

// An angle onto 0 to pi / 2 from the line it is measured from, either way along it.
double lf_fromLine(double angle) {
  const double a = std::abs(headingDiff(angle, 0));
  return a > pi / 2 ? pi - a : a;
}

// Feet of the distance across the user's heading.
double lf_offUserLineFt(const UserAircraft& user, double lat, double lon) {
  const double d = distanceNm(user.lat, user.lon, lat, lon);
  return std::abs(std::sin(headingDiff(bearingTo(user.lat, user.lon, lat, lon), user.heading))) * d *
         feetPerNm;
}

// Feet along heading from the point to abeam of the user.
double lf_toAbeamFt(const UserAircraft& user, double lat, double lon, double heading) {
  const double d = distanceNm(user.lat, user.lon, lat, lon);
  return std::cos(lf_fromLine(heading - bearingTo(user.lat, user.lon, lat, lon))) * d * feetPerNm;
}

bool lf_crossesUserInAir(const UserAircraft& user, const LiveAircraft& a) {
  return distanceNm(user.lat, user.lon, a.lat, a.lon) <= crossingNm &&
         std::abs(a.altitude - user.altitude) <= crossingFt &&
         lf_toAbeamFt(user, a.lat, a.lon, a.heading) <= abeamFt;
}

bool lf_onLowUsersLine(const UserAircraft& user, const LiveAircraft& a) {
  return user.aboveGround < lowUserFt && distanceNm(user.lat, user.lon, a.lat, a.lon) <= runwayNm &&
         lf_offUserLineFt(user, a.lat, a.lon) <= runwayWidthFt;
}

void lf_userInAir(const UserAircraft& user) {
  for (LiveAircraft& a : liveAircraft) {
    if (a.state != Alive) continue;
    if (a.onGround ? lf_onLowUsersLine(user, a) : lf_crossesUserInAir(user, a)) {
      requestRemove(a);
      return;
    }
  }
}

bool lf_touchesUser(const UserAircraft& user, double lat, double lon, double halfWingSpan) {
  return distanceNm(user.lat, user.lon, lat, lon) <
         (halfWingSpan + userHalfWingSpan().value_or(0)) * safetyFactor;
}

void lf_userOnGround(const UserAircraft& user) {
  for (LiveAircraft& a : liveAircraft) {
    if (a.state != Alive || !a.onGround || !lf_touchesUser(user, a.lat, a.lon, a.halfWingSpan)) continue;
    requestRemove(a);
    return;
  }
  if (user.lat == lf_lastUser.lat && user.lon == lf_lastUser.lon) return;
  for (ParkedAircraft& p : parkedAircraft) {
    if (p.state != Alive || !lf_touchesUser(user, p.standLat, p.standLon, p.halfWingSpan)) continue;
    requestRemove(p);
    return;
  }
}

ParkedAircraft* lf_parkedInTheWay(const LiveAircraft& live) {
  const auto hit = std::find_if(parkedAircraft.begin(), parkedAircraft.end(), [&](const ParkedAircraft& p) {
    return p.state == Alive && distanceNm(live.lat, live.lon, p.standLat, p.standLon) <=
                                   (p.halfWingSpan + live.halfWingSpan) * safetyFactor;
  });
  return hit == parkedAircraft.end() ? nullptr : &*hit;
}

// User on the ground: what stands near him or moves while he does.
bool lf_dropForGroundUser(const LiveAircraft& aircraft, const UserAircraft& user, const PositionSlot& slot,
                          double d) {
  if (aircraft.heldBack) {
    if (user.groundSpeed > standingKnots) return true;
    if (!slot.airborne && (slot.groundSpeed > standingKnots || d < heldBackNm)) return true;
  }
  return COLLISION_USER_GND.value && !slot.airborne && d < nearGroundNm;
}

// User in the air: what would appear on his runway or in his approach corridor is held back.
bool lf_dropForAirUser(LiveAircraft& aircraft, const UserAircraft& user, const PositionSlot& slot, double d) {
  if (!COLLISION_USER_AIR.value) return false;
  bool hold = false;
  if (!slot.airborne) {
    if (aircraft.heldBack) return true;
    // A new aircraft's block still holds zero: only a renewed one can meet this.
    hold = distanceNm(user.lat, user.lon, aircraft.lat, aircraft.lon) <= renewedNm &&
           user.aboveGround < finalFt && lf_offUserLineFt(user, slot.lat, slot.lon) <= finalLineFt;
  } else {
    hold = d <= corridorNm && std::abs(slot.altitude - user.altitude) <= corridorHeightFt &&
           lf_toAbeamFt(user, slot.lat, slot.lon, aircraft.targetHeading) <= corridorAbeamFt;
  }
  if (hold) aircraft.heldBack = true;
  return hold;
}

} // namespace

bool cancelQueuedParked(std::string_view callsign) {
  const auto erased = std::erase_if(pendingParkedCreate, [&](const CreateRequest& r) {
    if (r.callsign != callsign) return false;
    std::erase_if(parkedAircraft,
                  [&](const ParkedAircraft& p) { return p.hexid == r.hexid && p.objectId == 0; });
    return true;
  });
  return erased > 0;
}

void withdrawLive(LiveAircraft& aircraft) {
  if (aircraft.objectId != 0) {
    requestRemove(aircraft);
    return;
  }
  if (aircraft.state == Buffered) {
    aircraft.toDelete = true;
    return;
  }
  if (aircraft.state != Creating) return;
  const auto stacked = std::erase(pendingCreateHexids, aircraft.hexid);
  const auto queued = std::erase_if(pendingLiveCreate, [&](const CreateRequest& r) {
    if (r.callsign != aircraft.callsign) return false;
    if (LiveAircraft* owner = findLive(r.hexid); owner != nullptr) owner->toDelete = true;
    return true;
  });
  if (stacked + queued > 0)
    aircraft.toDelete = true;
  else
    aircraft.removeOnCreated = true;
}

void avoidLiveParkedCollisions() {
  if (!COLLISION_LIVE_PARKED_GND.value || liveAircraft.empty() || parkedAircraft.empty()) return;
  for (LiveAircraft& live : liveAircraft) {
    if (!live.onGround || (live.phase != Taxi && live.phase != ToStand)) continue;
    if (live.lat == live.lastCheckLat && live.lon == live.lastCheckLon) continue;
    live.lastCheckLat = live.lat;
    live.lastCheckLon = live.lon;
    if (live.state != Alive || live.rollOut || live.departing) continue;
    ParkedAircraft* parked = lf_parkedInTheWay(live);
    if (parked == nullptr) continue;
    if (LOG.value)
      logLine(fmt::format("{:8}: {:8} removed for collision avoidance with live {}",
                          standName(parked->standId), parked->callsign, live.callsign));
    requestRemove(*parked);
  }
}

void avoidUserCollisions() {
  const UserAircraft& user = engineUser();
  if (isNullPosition(user.lat, user.lon)) return;
  if (userOnGround) {
    if (COLLISION_USER_GND.value) lf_userOnGround(user);
  } else if (COLLISION_USER_AIR.value) {
    lf_userInAir(user);
  }
  lf_lastUser = {user.lat, user.lon};
}

bool keptFromUser(LiveAircraft& aircraft) {
  const UserAircraft& user = engineUser();
  if (isNullPosition(user.lat, user.lon)) return false;
  const PositionSlot& slot = aircraft.slots.front();
  const double d = distanceNm(user.lat, user.lon, slot.lat, slot.lon);
  const bool drop = userOnGround ? lf_dropForGroundUser(aircraft, user, slot, d)
                                 : lf_dropForAirUser(aircraft, user, slot, d);
  if (drop) aircraft.slots.pop_front();
  return drop;
}

void removeBlocked(const SimCommand& command) {
  LiveAircraft* aircraft = findLive(command.value);
  if (aircraft == nullptr) return;
  if (aircraft->state == Buffered) {
    showMessage(fmt::format("{} will be removed from buffer while blocked", aircraft->callsign), true);
    aircraft->toDelete = true;
  } else if (aircraft->state == Alive) {
    showMessage(fmt::format("{} removed from simulator immediately while blocked", aircraft->callsign), true);
    requestRemove(*aircraft);
  }
}

void resetConflicts() {
  lf_lastUser = {};
}

} // namespace ory
