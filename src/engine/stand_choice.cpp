#include "engine/stand_choice.h"

#include "base/display.h"
#include "base/log.h"
#include "base/parameters.h"
#include "engine/engine.h"
#include "engine/geometry.h"
#include "engine/tables.h"
#include "parking/park_airports.h"
#include "parking/stands.h"
#include "simlink/user_aircraft.h"

#include <fmt/format.h>

#include <algorithm>

namespace ory {

namespace {

constexpr double tooWideNm = 0.0009719222462203025;  // 1.8 metres
constexpr double closeNm = 0.010799136069114472;     // 20 metres
constexpr double wideNm = 0.0458963282937365;        // 85 metres
constexpr double oneMetreNm = 0.0005399568034557236; // 1 metre

Stand& lf_stand(std::uint32_t standId) {
  return stands[standId - 1];
}

bool lf_accepts(const StandOption& option, const LiveAircraft& aircraft) {
  if (option.optionId == 0 || option.soft) return false;
  if (option.callsignIn == aircraft.callsign || option.callsignOut == aircraft.callsign) return true;
  return option.airline == aircraft.airline && option.type == aircraft.type;
}

bool lf_anyAccepts(const Stand& stand, const LiveAircraft& aircraft) {
  return std::any_of(stand.options.begin(), stand.options.end(),
                     [&](const StandOption& option) { return lf_accepts(option, aircraft); });
}

bool lf_log(std::string_view text) {
  if (LOG.value) logLine(text);
  return true;
}

double lf_standDistance(std::uint32_t a, std::uint32_t b) {
  return distanceNm(lf_stand(a).lat, lf_stand(a).lon, lf_stand(b).lat, lf_stand(b).lon);
}

bool lf_parkedOn(const LiveAircraft& other, std::uint32_t standId) {
  return other.phase == Parked && other.state == Alive && other.standId == standId;
}

} // namespace

std::uint32_t findStandAt(double lat, double lon, const LiveAircraft& aircraft, double radius, bool wide) {
  std::uint32_t fit = 0;
  std::uint32_t wideCandidate = 0;
  double bestFit = 900;
  double bestWide = 900;
  bool fitTooWide = false;
  for (const Stand& stand : stands) {
    if (stand.takenByLive) continue;
    const double d = distanceNm(lat, lon, stand.lat, stand.lon);
    const bool tooWide = aircraft.halfWingSpan > stand.radius + tooWideNm;
    if (d <= radius && d < bestFit && (!tooWide || d <= closeNm)) {
      fit = stand.standId;
      bestFit = d;
      fitTooWide = tooWide;
      wide = false;
    } else if (wide && d <= wideNm && d < bestWide && !tooWide && !aircraft.callsign.empty() &&
               lf_anyAccepts(stand, aircraft)) {
      wideCandidate = stand.standId;
      bestWide = d;
    }
  }
  const std::uint32_t result = fit != 0 ? fit : wideCandidate;
  if (result == 0) return 0;
  Stand& stand = lf_stand(result);
  if (stand.heli != (aircraft.category == categoryHelicopter)) return 0;
  if (fit != 0 && fitTooWide) {
    stand.radius = aircraft.halfWingSpan - oneMetreNm;
    stand.radiusChanged = true;
    ++updateCount;
  }
  return result;
}

bool isUserStand(std::uint32_t standId) {
  const std::string& id = stands[standId - 1].id;
  if (!reservedStand.empty() && id == reservedStand) return true;
  const UserAircraft& user = engineUser();
  return id == standBelowPoint(user.lat, user.lon);
}

void markCargoStand(const LiveAircraft& aircraft) {
  if (!aircraft.cargo || aircraft.standId == 0) return;
  Stand& stand = lf_stand(aircraft.standId);
  if (stand.cargo) return;
  stand.cargo = true;
  stand.cargoChanged = true;
  ++updateCount;
  logLine(fmt::format("{} stand: {}, cargo attribute set to true, {} parked here", parkAirportCode, stand.id,
                      aircraft.callsign));
  display.updateCount = updateCount;
  repaintWindow();
}

bool claimStand(const LiveAircraft& claimant, std::uint32_t standId) {
  const std::string name = standName(standId);
  const std::string& c = claimant.callsign;
  for (LiveAircraft& other : liveAircraft) {
    if (&other == &claimant || !lf_parkedOn(other, standId)) continue;
    const std::string& o = other.callsign;
    if (o == c) {
      lf_log(fmt::format("{:8}: {:8} ac with same callsign {} wants it, remove existing ... ", name, o, c));
    } else if (isGhost(c) && c.substr(0, c.size() - 1) == o) {
      return !lf_log(fmt::format("{:8}: {:8} ghost {} wants it, but don't do it ... ", name, o, c));
    } else if (isGhost(o) && (o.substr(0, o.size() - 1) == c || !isGhost(c))) {
      lf_log(fmt::format("{:8}: {:8} ghost, replace by {}", name, o, c));
    } else if (!isGhost(o) && isGhost(c)) {
      return !lf_log(fmt::format("{:8}: {:8} ghost {} wants it, refused ", name, o, c));
    } else if (other.standConfirmed) {
      return !lf_log(fmt::format("{:8}: {:8} other live {} wants it? {} ", name, o, c, timeOfDay()));
    } else {
      lf_log(fmt::format("{:8}: {:8} removed because of new {}", name, o, c));
    }
    requestRemove(other);
    return true;
  }
  return true;
}

bool adjacentParkingAllowed(const LiveAircraft& claimant, std::uint32_t standId) {
  for (const std::uint32_t neighbour : lf_stand(standId).neighbours) {
    for (const LiveAircraft& other : liveAircraft) {
      if (!lf_parkedOn(other, neighbour) || other.callsign == claimant.callsign) continue;
      const std::string name = standName(neighbour);
      if (other.halfWingSpan + claimant.halfWingSpan > lf_standDistance(standId, neighbour))
        return !lf_log(fmt::format("{:8}: {:8} at adjacent and colliding, {} blocks live {} parking", name,
                                   other.callsign, other.callsign, claimant.callsign));
      lf_log(
          fmt::format("{:8}: {:8} stays, while live {} at adjacent, and possibly colliding {}, is parking, "
                      "but wingspans fit {}",
                      name, other.callsign, claimant.callsign, standName(standId), timeOfDay()));
    }
  }
  return true;
}

void clearAdjacentForArrival(const LiveAircraft& arriving, std::uint32_t standId) {
  for (const std::uint32_t neighbour : lf_stand(standId).neighbours) {
    for (LiveAircraft& other : liveAircraft) {
      if (!lf_parkedOn(other, neighbour) || other.callsign == arriving.callsign) continue;
      const std::string name = standName(neighbour);
      if (other.halfWingSpan + arriving.halfWingSpan > lf_standDistance(standId, neighbour)) {
        lf_log(fmt::format("{:8}: {:8} removed by adjacent parking {} {}", name, other.callsign,
                           arriving.callsign, standName(standId)));
        requestRemove(other);
      } else {
        lf_log(
            fmt::format("{:8}: {:8} stays, while live {} at adjacent, and possibly colliding {}, is parking, "
                        "but wingspans fit",
                        name, other.callsign, arriving.callsign, standName(standId)));
      }
    }
  }
}

void clearParkedAround(const LiveAircraft& live, std::uint32_t standId) {
  const std::string name = standName(standId);
  for (ParkedAircraft& p : parkedAircraft) {
    if (p.standId != standId) continue;
    const bool same = p.callsign == live.callsignIn || (!p.regcode.empty() && p.regcode == live.regcode);
    const std::string text =
        fmt::format("{:8}: {:8} {} makes place for{} {} {} {}", name, p.callsign, p.type,
                    same ? " the same live version" : "", live.callsign, live.type, timeOfDay());
    if (p.state == Alive) {
      lf_log(text);
      requestRemove(p);
    } else if (p.state == Creating) {
      const auto queued = std::find_if(pendingParkedCreate.begin(), pendingParkedCreate.end(),
                                       [&](const CreateRequest& r) { return r.hexid == p.hexid; });
      lf_log("queued " + text);
      if (queued == pendingParkedCreate.end()) {
        p.removeOnCreated = true;
      } else {
        pendingParkedCreate.erase(queued);
        p.state = Removing; // never created: the record goes with its request
        p.objectId = 0;
      }
    }
    break;
  }
  std::erase_if(parkedAircraft,
                [](const ParkedAircraft& p) { return p.state == Removing && p.objectId == 0; });
  for (const std::uint32_t neighbour : lf_stand(standId).neighbours) {
    for (ParkedAircraft& p : parkedAircraft) {
      if (p.standId != neighbour || p.state != Alive) continue;
      if (p.halfWingSpan + live.halfWingSpan <= lf_standDistance(standId, neighbour)) continue;
      lf_log(fmt::format("{:8}: {:8} removed by adjacent parking {} at {}", standName(neighbour), p.callsign,
                         live.callsign, name));
      requestRemove(p);
      break;
    }
  }
}

} // namespace ory
