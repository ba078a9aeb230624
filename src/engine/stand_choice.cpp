#include "engine/stand_choice.h"

#include "base/display.h"
#include "base/log.h"
#include "base/parameters.h"
#include "engine/conflicts.h"
#include "engine/engine.h"
#include "engine/geometry.h"
#include "engine/tables.h"
#include "liveries/random.h"
#include "parking/park_airports.h"
#include "parking/stand_learning.h"
#include "parking/stands.h"
#include "simlink/user_aircraft.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <optional>
#include <vector>

namespace ory {

namespace {

constexpr double tooWideNm = 0.0009719222462203025;      // 1.8 metres
constexpr double closeNm = 0.010799136069114472;         // 20 metres
constexpr double wideNm = 0.0458963282937365;            // 85 metres
constexpr double oneMetreNm = 0.0005399568034557236;     // 1 metre
constexpr double smallHalfSpanNm = 0.009611230689557531; // 17.8 metres
constexpr double smallStepNm = 0.00755939524838013;      // 14 metres
constexpr double largeStepNm = 0.011339092872570195;     // 21 metres
constexpr double softNm = 5;                             // soft learning reaches this far from the airport
constexpr std::int32_t noGap = 100;
constexpr std::size_t fewStands = 11; // an airport this small may guess the next half hour

// Which stands a pass of the learning search looks at.
enum class StandSet { heli, ramp, cargo, notHeli, withRamp, withoutRamp };
// strict: gap in steps of the size difference, the aircraft must fit; loose: the plain difference; anyTime:
// strict, but a half hour already taken does not count.
enum class GapRule { strict, loose, anyTime };

struct LearningPass {
  StandSet set;
  GapRule rule;
};

struct StandCandidate {
  std::uint32_t standId = 0;
  std::int32_t gap = 0;   // size difference, the lower the better
  std::int32_t match = 0; // 1: an option of the stand accepts the aircraft
};

std::optional<std::int32_t> lf_coupleSpan; // half hours, fixed by the first aircraft of the process

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

bool lf_inSet(const Stand& stand, StandSet set) {
  switch (set) {
  case StandSet::heli:
    return stand.heli;
  case StandSet::ramp:
    return stand.ramp && !stand.heli;
  case StandSet::cargo:
    return stand.cargo && !stand.heli;
  case StandSet::notHeli:
    return !stand.heli;
  case StandSet::withRamp:
    return stand.ramp && !stand.cargo && !stand.heli;
  case StandSet::withoutRamp:
    return !stand.ramp && !stand.cargo && !stand.heli;
  }
  return false;
}

bool lf_takenIn(const Stand& stand, Slot slot) {
  return std::any_of(stand.options.begin(), stand.options.end(), [&](const StandOption& option) {
    return option.day == slot.day && option.halfHours.test(static_cast<std::size_t>(slot.halfHour));
  });
}

// Gates get the first passes at American airports, and most of the time elsewhere.
bool lf_gatesFirst() {
  return parkAirportCode.starts_with('K') || randomIndex(100) >= 10;
}

std::vector<LearningPass> lf_passes(const LiveAircraft& aircraft) {
  if (aircraft.category == categoryHelicopter)
    return {{StandSet::heli, GapRule::strict},
            {StandSet::heli, GapRule::loose},
            {StandSet::heli, GapRule::anyTime},
            {StandSet::ramp, GapRule::anyTime}};
  if (aircraft.cargo)
    return {{StandSet::cargo, GapRule::strict},
            {StandSet::cargo, GapRule::loose},
            {StandSet::notHeli, GapRule::strict},
            {StandSet::notHeli, GapRule::loose}};
  if (aircraft.category < 2 || aircraft.airline == "PVT")
    return {{StandSet::withRamp, GapRule::strict}, {StandSet::withRamp, GapRule::loose}};
  const StandSet first = lf_gatesFirst() ? StandSet::withoutRamp : StandSet::withRamp;
  const StandSet second = first == StandSet::withRamp ? StandSet::withoutRamp : StandSet::withRamp;
  return {
      {first, GapRule::strict}, {first, GapRule::loose}, {second, GapRule::strict}, {second, GapRule::loose}};
}

std::optional<std::int32_t> lf_gap(const Stand& stand, const LiveAircraft& aircraft, GapRule rule) {
  if (rule == GapRule::loose)
    return static_cast<std::int32_t>(std::round(std::abs(aircraft.halfWingSpan - stand.radius)));
  if (aircraft.halfWingSpan > stand.radius + tooWideNm) return std::nullopt;
  const double step = aircraft.halfWingSpan <= smallHalfSpanNm ? smallStepNm : largeStepNm;
  return static_cast<std::int32_t>(std::round((stand.radius - aircraft.halfWingSpan) / step));
}

std::vector<StandCandidate> lf_learningPass(Slot slot, const LiveAircraft& aircraft, LearningPass pass) {
  std::vector<StandCandidate> candidates;
  std::int32_t bestGap = noGap;
  std::int32_t bestMatch = 0;
  for (const Stand& stand : stands) {
    if (!lf_inSet(stand, pass.set)) continue;
    if (pass.rule != GapRule::anyTime && lf_takenIn(stand, slot)) continue;
    const std::optional<std::int32_t> gap = lf_gap(stand, aircraft, pass.rule);
    if (!gap || *gap > bestGap) continue;
    const std::int32_t match = !aircraft.callsign.empty() && lf_anyAccepts(stand, aircraft) ? 1 : 0;
    if (match < bestMatch) continue;
    bestGap = *gap;
    bestMatch = match;
    candidates.push_back({stand.standId, *gap, match});
  }
  return candidates;
}

bool lf_knownNow(const LiveAircraft& aircraft, Slot slot) {
  return std::any_of(stands.begin(), stands.end(), [&](const Stand& stand) {
    return std::any_of(stand.options.begin(), stand.options.end(), [&](const StandOption& option) {
      return !option.soft && option.day == slot.day && option.regcode == aircraft.regcode &&
             option.halfHours.test(static_cast<std::size_t>(slot.halfHour));
    });
  });
}

void lf_searchForCoupledCsAroundThisTime(Slot slot, LiveAircraft& aircraft) {
  if (!lf_coupleSpan) lf_coupleSpan = aircraft.category == 3 ? 14 : 10;
  HalfHours window;
  for (std::int32_t h = std::max(0, slot.halfHour - *lf_coupleSpan);
       h <= std::min(halfHoursPerDay - 1, slot.halfHour + *lf_coupleSpan); ++h)
    window.set(static_cast<std::size_t>(h));
  const std::string_view key = withoutGhostMark(aircraft.callsign);
  for (const Stand& stand : stands) {
    for (const StandOption& option : stand.options) {
      if (option.optionId == 0 || option.day != slot.day || (option.halfHours & window).none() ||
          option.airline != aircraft.airline || option.callsignOut.empty() ||
          (option.callsignIn != key && option.callsignOut != key))
        continue;
      aircraft.callsignIn = option.callsignIn;
      aircraft.callsignOut = option.callsignOut;
      lf_log(fmt::format("          [{} from couple \"{}:{}\" at stand {}]", aircraft.callsign,
                         option.callsignIn, option.callsignOut, stand.id));
      return;
    }
  }
}

// A parked aircraft gives way: removed if it stands, withdrawn with its request while that waits, else gone
// as soon as its object exists. p may be gone afterwards.
void lf_makePlace(ParkedAircraft& p, const std::string& text) {
  if (p.state == Alive) {
    lf_log(text);
    requestRemove(p);
    return;
  }
  if (p.state != Creating) return;
  lf_log("queued " + text);
  const std::string callsign = p.callsign;
  if (!cancelQueuedParked(callsign)) p.removeOnCreated = true;
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

void recordStandVisit(const LiveAircraft& aircraft, Slot slot, bool leaving) {
  if (aircraft.airline.empty() || aircraft.onCargoStand != aircraft.cargo) return;
  if (addRealVisit(aircraft.standId, aircraft, leaving, slot, leaving))
    countVisit(aircraft.hexid, slot, true);
  else if (!leaving)
    forgetVisit(aircraft.hexid);
}

std::uint32_t chooseStandForLearning(Slot slot, const LiveAircraft& aircraft, bool nextSlotAllowed) {
  std::vector<StandCandidate> candidates;
  for (const LearningPass pass : lf_passes(aircraft)) {
    candidates = lf_learningPass(slot, aircraft, pass);
    if (!candidates.empty()) break;
  }
  if (candidates.empty()) {
    if (nextSlotAllowed && stands.size() < fewStands)
      return chooseStandForLearning(nextSlot(slot), aircraft, false);
    return 0;
  }
  shuffle(candidates);
  std::stable_sort(candidates.begin(), candidates.end(),
                   [](const StandCandidate& a, const StandCandidate& b) {
                     return a.gap != b.gap ? a.gap < b.gap : a.match > b.match;
                   });
  return candidates.front().standId;
}

void recordSoftVisit(const LiveAircraft& aircraft) {
  if (!LEARN_SOFT.value || !softLearningAllowed || parkAirportCode.empty()) return;
  if (aircraft.standId != 0 ||
      distanceNm(aircraft.lat, aircraft.lon, parkAirportLat, parkAirportLon) > softNm)
    return;
  const Slot now = nowSlot();
  for (const Stand& stand : stands) {
    const auto visit = stand.softVisits.find(aircraft.hexid);
    if (visit == stand.softVisits.end()) continue;
    if (visit->second.slot == now) return;
    if (addSoftVisit(stand.standId, aircraft, true, now)) countVisit(aircraft.hexid, now, true);
    return;
  }
  if (!countVisit(aircraft.hexid, now, false) || lf_knownNow(aircraft, now)) return;
  const std::uint32_t standId = chooseStandForLearning(now, aircraft, true);
  if (standId != 0 && !addSoftVisit(standId, aircraft, false, now)) forgetVisit(aircraft.hexid);
}

void searchCouple(LiveAircraft& aircraft, Slot slot) {
  aircraft.coupleSearched = true;
  lf_searchForCoupledCsAroundThisTime(slot, aircraft);
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
    lf_makePlace(p, fmt::format("{:8}: {:8} {} makes place for{} {} {} {}", name, p.callsign, p.type,
                                same ? " the same live version" : "", live.callsign, live.type, timeOfDay()));
    break;
  }
  for (const std::uint32_t neighbour : lf_stand(standId).neighbours) {
    for (ParkedAircraft& p : parkedAircraft) {
      if (p.standId != neighbour || (p.state != Alive && p.state != Creating)) continue;
      if (p.halfWingSpan + live.halfWingSpan <= lf_standDistance(standId, neighbour)) continue;
      lf_makePlace(p, fmt::format("{:8}: {:8} removed by adjacent parking {} at {}", standName(neighbour),
                                  p.callsign, live.callsign, name));
      break;
    }
  }
}

} // namespace ory
