#include "parking/parked_aircraft.h"

#include "base/exceptions.h"
#include "base/log.h"
#include "base/parameters.h"
#include "engine/engine.h"
#include "engine/geometry.h"
#include "engine/motion.h"
#include "engine/tables.h"
#include "liveries/dbase.h"
#include "liveries/matching.h"
#include "liveries/random.h"
#include "parking/static_parking.h"
#include "simlink/commands.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <utility>
#include <vector>

namespace ory {

std::uint32_t staticHexid = 0;

namespace {

constexpr std::uint32_t lastStaticHexid = 9999;
constexpr int missingStandError = 563;

bool lf_standsNear(const LiveAircraft& live) {
  return live.phase == Parked || live.phase == ToStand;
}

// A live aircraft on the stand or a neighbour: the request is dropped and not replaced.
bool lf_liveInTheWay(const StaticRequest& request, const Stand& stand) {
  const std::string name = standName(request.standId);
  for (const LiveAircraft& live : liveAircraft) {
    if (!lf_standsNear(live) || live.standId == 0) continue;
    if (live.standId == request.standId) {
      if (LOG.value)
        logLine(fmt::format("{:8}: no static parking for {}, live aircraft {} standing here", name,
                            request.callsignIn, live.callsign));
      return true;
    }
    if (std::find(stand.neighbours.begin(), stand.neighbours.end(), live.standId) == stand.neighbours.end())
      continue;
    if (LOG.value)
      logLine(fmt::format(
          "{:8}: no static parking for {}, live aircraft {} is adjacent at {}, possibly colliding", name,
          request.callsignIn, live.callsign, standName(live.standId)));
    return true;
  }
  return false;
}

std::string lf_shownCallsign(const StaticRequest& request, std::uint32_t hexid) {
  if (request.callsignIn.empty()) return fmt::format("{}{}{}", request.airline, hexid, "*");
  std::string callsign = request.staysNextHalfHour ? request.callsignIn : request.callsignOut;
  while (!callsign.empty() && callsign.back() == '_')
    callsign.pop_back();
  if (callsign.empty() || callsign.back() != '*') callsign += '*';
  return callsign;
}

// Live aircraft parked on a stand, longest parked first.
std::vector<std::pair<std::uint32_t, std::int64_t>> lf_oldestLive() {
  std::vector<std::pair<std::uint32_t, std::int64_t>> parked;
  for (const LiveAircraft& live : liveAircraft)
    if (live.phase == Parked && live.state == Alive) parked.emplace_back(live.hexid, minutesParked(live));
  std::stable_sort(parked.begin(), parked.end(),
                   [](const auto& a, const auto& b) { return a.second > b.second; });
  return parked;
}

} // namespace

std::int64_t minutesParked(const LiveAircraft& aircraft) {
  return (steadyMilliseconds() - aircraft.parkedSince) / 60000;
}

std::uint32_t nextStaticHexid() {
  staticHexid = staticHexid >= lastStaticHexid ? 0 : staticHexid + 1;
  return staticHexid;
}

void makeNextParked() {
  // A running calculation still sorts, trims and sets the queue against what stands.
  if (stands.empty() || creationQueue.empty() || staticParkingRunning()) return;
  const StaticRequest request = std::move(creationQueue.back());
  creationQueue.pop_back();
  if (request.standId == 0 || request.standId > stands.size())
    throw SysErrorException(missingStandError, fmt::format("stand with id {} not found", request.standId));
  const Stand& stand = stands[request.standId - 1];
  if (lf_liveInTheWay(request, stand)) return;
  ParkedAircraft aircraft;
  aircraft.hexid = nextStaticHexid();
  aircraft.airline = request.airline;
  aircraft.type = request.type;
  aircraft.regcode = request.regcode;
  aircraft.callsignIn = request.callsignIn;
  aircraft.callsignOut = request.callsignOut;
  aircraft.callsign = lf_shownCallsign(request, aircraft.hexid);
  aircraft.category = static_cast<std::uint32_t>(modelCategory(request.type));
  aircraft.cargo = cargoOperators.contains(request.airline);
  const double radius = aircraftRadius(request.type);
  aircraft.halfWingSpan = std::isnan(radius) ? 0 : radius;
  aircraft.onCargoStand = stand.cargo;
  aircraft.standId = request.standId;
  aircraft.standLat = stand.lat;
  aircraft.standLon = stand.lon;
  aircraft.standHeading = stand.heading;
  if (!findLivery(aircraft, false)) return;
  aircraft.isRealParked = request.isRealParked;
  aircraft.arrivalTime = packSlot(slotBefore(nowSlot(), std::clamp(request.fit, 0, 47)));
  aircraft.liveHexid = request.liveHexid;
  aircraft.state = Creating;
  pendingParkedCreate.push_back({stand.lat, stand.lon, 0, 0, 0, stand.heading * radToDeg, true,
                                 aircraft.callsign, aircraft.liveryTitle, aircraft.hexid});
  parkedAircraft.push_back(std::move(aircraft));
}

void settleParked(const SimCommand& entry) {
  ParkedAircraft* aircraft = findParked(entry.value);
  if (aircraft == nullptr) {
    // The record went while its object was on the way: the object would stand forever.
    pendingRemoveObjects.push_back(entry.objectId);
    return;
  }
  aircraft->state = Alive;
  aircraft->objectId = entry.objectId;
  sendThrottle(*aircraft, 0);
  sendFlaps(*aircraft, 0);
  sendEngineStop(aircraft->objectId);
  LightSet lights = lightSet(LightMoment::settledParked, 0, 0, aircraft->onCargoStand);
  constexpr std::size_t cabin = 6;
  // One aircraft in ten stands dark inside, and every one on a cargo stand.
  if (aircraft->onCargoStand || (randomOn() && randomIndex(10) == 9)) lights[cabin] = 0;
  sendLights(aircraft->objectId, lights);
  if (LOG.value)
    logLine(
        fmt::format("{:8}: {:8} parked {}", standName(aircraft->standId), aircraft->callsign, timeOfDay()));
  if (aircraft->removeOnCreated) requestRemove(*aircraft);
}

void limitParked(std::int32_t extra) {
  const auto live = static_cast<std::int32_t>(
      std::count_if(liveAircraft.begin(), liveAircraft.end(),
                    [](const LiveAircraft& a) { return a.phase == Parked && a.state == Alive; }));
  if (!INITIAL_LOAD_ONLY.value && wantedStands > 0 && wantedStands < live + extra) {
    const auto oldest = lf_oldestLive();
    if (!oldest.empty()) {
      LiveAircraft* aircraft = findLive(oldest.front().first);
      if (LOG.value)
        logLine(fmt::format("{:}: {:8} max park exceeded, removed", standName(aircraft->standId),
                            aircraft->callsign));
      requestRemove(*aircraft);
    }
  }
  const auto statics = static_cast<std::int32_t>(
      std::count_if(parkedAircraft.begin(), parkedAircraft.end(),
                    [](const ParkedAircraft& a) { return a.state == Alive || a.state == Removing; }));
  if (!WEEK.value) refreshFitAverages();
  if (wantedStands >= live + statics + extra) return;
  // By arrival, over the week's wrap: the one that came last is the last.
  const Slot now = nowSlot();
  std::stable_sort(parkedAircraft.begin(), parkedAircraft.end(),
                   [now](const ParkedAircraft& a, const ParkedAircraft& b) {
                     return halfHoursSince(now, a.arrivalTime) > halfHoursSince(now, b.arrivalTime);
                   });
  // The last that still stands; one already on its way out counts once.
  const auto last = std::find_if(parkedAircraft.rbegin(), parkedAircraft.rend(),
                                 [](const ParkedAircraft& a) { return a.state == Alive; });
  if (last != parkedAircraft.rend()) requestRemove(*last);
}

void removeOldestLive(std::size_t n) {
  auto oldest = lf_oldestLive();
  if (oldest.size() > n) oldest.resize(n);
  for (const auto& [hexid, minutes] : oldest) {
    LiveAircraft* aircraft = findLive(hexid);
    logLine(fmt::format("live parked {} at {} removed", describe(*aircraft), standName(aircraft->standId)));
    requestRemove(*aircraft);
  }
}

void replaceParkedBy(const LiveAircraft& live) {
  if (live.callsign.empty()) return;
  const std::string key = live.callsign.substr(0, live.callsign.size() - 1);
  const auto either = [](const ParkedAircraft& p, const std::string& callsign) {
    return !callsign.empty() && (p.callsignIn == callsign || p.callsignOut == callsign);
  };
  for (ParkedAircraft& p : parkedAircraft) {
    if (p.state != Alive) continue;
    std::string line;
    const std::string name = standName(p.standId);
    if (p.isRealParked && p.liveHexid == live.hexid) {
      const bool ground = !live.slots.empty() && !live.slots.front().airborne;
      line = fmt::format("{:8}: {:8} removed, new {} {} has same hexid", name, p.callsign,
                         ground ? "on ground" : "airborne", live.callsign);
    } else if (!live.regcode.empty() && live.regcode == p.regcode) {
      line = fmt::format("{:8}: {:8} {} removed, new {} {} has same regcode {}", name, p.callsign, p.type,
                         live.callsign, live.type, live.regcode);
    } else if (either(p, live.callsign) || either(p, live.callsignOut) ||
               (isGhost(live.callsign) && either(p, key))) {
      line = fmt::format("{:8}: {:8} \"{} {}\" removed, new {} {} \"{} {}\" has {} callsign {}", name,
                         p.callsign, p.callsignIn, p.callsignOut, live.callsign, live.type, live.callsignIn,
                         live.callsignOut, live.callsign == p.callsignIn ? "same" : "coupled", live.callsign);
    } else {
      continue;
    }
    if (LOG.value) logLine(line);
    requestRemove(p);
    return;
  }
}

void sweepDuplicates() {
  for (const LiveAircraft& live : liveAircraft) {
    if (live.phase != Parked || live.state != Alive || !live.standConfirmed) continue;
    for (ParkedAircraft& parked : parkedAircraft) {
      if (parked.state != Alive) continue;
      if (parked.callsign == live.callsign + "*" || (!live.regcode.empty() && parked.regcode == live.regcode))
        requestRemove(parked);
    }
  }
}

} // namespace ory
