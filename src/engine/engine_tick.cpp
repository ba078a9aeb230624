#include "base/log.h"
#include "base/parameters.h"
#include "base/run.h"
#include "engine/conflicts.h"
#include "engine/engine.h"
#include "engine/flight_plans.h"
#include "engine/geometry.h"
#include "engine/motion.h"
#include "engine/position_buffer.h"
#include "engine/tables.h"
#include "feed/inbox.h"
#include "liveries/matching.h"
#include "parking/parked_aircraft.h"
#include "parking/static_parking.h"
#include "simlink/commands.h"
#include "simlink/session.h"
#include "simlink/user_aircraft.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <filesystem>

namespace ory {

namespace {

constexpr std::uint32_t settleToggleFirst = 50;
constexpr std::uint32_t settleToggleSecond = 100;
constexpr std::uint32_t settleTicks = 200;
constexpr double minStaticCG = 1;  // feet
constexpr double maxStaticCG = 35; // feet
constexpr double minStaticPitch = -1 * degToRad;
constexpr double maxStaticPitch = 2.5 * degToRad;
constexpr double defaultGroundPitch = 0.012217304763960306; // 0.7 degrees
constexpr float lowFrameRate = 50;
constexpr std::size_t recordsPerTick = 2;

std::vector<SimCommand> lf_commands;   // the engine's copy of simCommands, kept to spare allocations
std::vector<TrafficRecord> lf_records; // the records of this tick

void lf_liveAIAdded(const SimCommand& command) {
  LiveAircraft* aircraft = findLive(command.value);
  if (aircraft == nullptr || aircraft->state != Creating) {
    // The record went while its object was on the way: the object would stand forever.
    pendingRemoveObjects.push_back(command.objectId);
    return;
  }
  if (command.objectId < 3) {
    logLine(fmt::format("{} objectId in liveAIAdded {}", aircraft->callsign, command.objectId));
    return;
  }
  aircraft->objectId = command.objectId;
  aircraft->altitudeAboveGround = command.b;
  if (!aircraft->slots.empty() && !aircraft->slots.front().airborne) {
    aircraft->onGround = true;
    aircraft->deltaAltitude = 0;
    if (aircraft->phase == Parked) {
      aircraft->arrivalTime = packedSlot();
      dropQueuedOn(aircraft->standId);
      if (!aircraft->recreated && LOG.value)
        logLine(fmt::format("{:8}: {:8} parks {}", standName(aircraft->standId), aircraft->callsign,
                            timeOfDay()));
    }
    aircraft->recreated = false;
    aircraft->countDown = 1;
  }
  planFor(*aircraft);
  requestModelGeometry(command.objectId);
}

void lf_settledOnGround(LiveAircraft& aircraft) {
  sendSpoilers(aircraft, false);
  const bool parked = aircraft.phase == Parked;
  if (parked)
    sendEngineStop(aircraft.objectId);
  else
    sendEngineStart(aircraft.objectId);
  const LightMoment moment =
      parked ? LightMoment::settledParked
             : (aircraft.phase == Taxi ? LightMoment::settledTaxi : LightMoment::settledGround);
  sendLights(aircraft.objectId,
             lightSet(moment, aircraft.altitude, aircraft.altitudeAboveGround, aircraft.onCargoStand));
  sendThrottle(aircraft, aircraft.category == categoryHelicopter ? 4 : 0);
  sendFlaps(aircraft, aircraft.phase == Taxi ? 1 : 0);
}

void lf_settled(const SimCommand& command) {
  if (command.code == commandParkedAdded) {
    settleParked(command);
    return;
  }
  if (command.code != commandLiveAdded) return;
  LiveAircraft* aircraft = findLiveByObject(command.objectId);
  if (aircraft == nullptr || aircraft->state != Creating) return;
  aircraft->state = Alive;
  if (aircraft->onGround) {
    lf_settledOnGround(*aircraft);
  } else {
    sendEngineStart(aircraft->objectId);
    sendSpoilers(*aircraft, false);
    sendLights(aircraft->objectId, lightSet(LightMoment::settledAirborne, aircraft->altitude,
                                            aircraft->altitudeAboveGround, false));
  }
  if (aircraft->removeOnCreated) requestRemove(*aircraft);
}

void lf_advanceSettling() {
  for (SimCommand& entry : settlingObjects) {
    ++entry.reserved;
    if (entry.reserved == settleToggleFirst || entry.reserved == settleToggleSecond)
      allLightsToggle(entry.objectId);
    if (entry.reserved == settleTicks) lf_settled(entry);
  }
  std::erase_if(settlingObjects, [](const SimCommand& entry) { return entry.reserved >= settleTicks; });
}

void lf_modelGeometry(const SimCommand& command) {
  ParkedAircraft* aircraft = findLiveByObject(command.objectId);
  if (aircraft == nullptr) aircraft = findParkedByObject(command.objectId);
  if (aircraft == nullptr) return;
  if (command.a < minStaticCG || command.a > maxStaticCG)
    logLine(fmt::format("{}: static CG {:.1F}ft wrong?", describe(*aircraft), command.a));
  else
    aircraft->staticCG = command.a;
  const bool oddPitch = command.b <= minStaticPitch || command.b > maxStaticPitch;
  aircraft->groundPitch = oddPitch ? defaultGroundPitch : command.b;
}

void lf_objectRemoved(const SimCommand& command) {
  const auto live = std::find_if(liveAircraft.begin(), liveAircraft.end(),
                                 [&](const LiveAircraft& a) { return a.objectId == command.objectId; });
  if (live != liveAircraft.end()) {
    try {
      deletePlan(*live);
    } catch (const std::filesystem::filesystem_error& e) {
      logLine(fmt::format("deletePlan {}", e.what()));
    }
    if (live->state == Renewing) {
      live->state = Buffered;
      live->recreated = true;
      live->throttleState = 5;
      live->flapsState = 4;
      live->objectId = 0;
      return;
    }
    liveAircraft.erase(live);
    return;
  }
  std::erase_if(parkedAircraft, [&](const ParkedAircraft& a) { return a.objectId == command.objectId; });
}

template <typename Table>
void lf_dropBySwap(Table& table, std::uint32_t hexid) {
  const auto it =
      std::find_if(table.begin(), table.end(), [hexid](const auto& a) { return a.hexid == hexid; });
  if (it == table.end()) return;
  std::swap(*it, table.back());
  table.pop_back();
}

void lf_notCreated(const SimCommand& command) {
  const std::uint32_t hexid = command.value;
  const ParkedAircraft* aircraft =
      hexid > maxParkedHexid ? static_cast<const ParkedAircraft*>(findLive(hexid)) : findParked(hexid);
  if (aircraft == nullptr) return;
  MatchAircraft refused;
  refused.airline = aircraft->airline;
  refused.type = aircraft->type;
  refused.callsign = aircraft->callsign;
  refused.hexid = hexid;
  refused.liveryTitle = aircraft->liveryTitle;
  // The record goes first: the twentieth refusal stops the program.
  if (hexid > maxParkedHexid)
    lf_dropBySwap(liveAircraft, hexid);
  else
    lf_dropBySwap(parkedAircraft, hexid);
  reportNotCreated(refused);
}

void lf_handle(const SimCommand& command) {
  switch (command.code) {
  case commandLiveAdded:
    lf_liveAIAdded(command);
    settlingObjects.push_back({command.objectId, command.value, 0, command.code, command.a, command.b});
    return;
  case commandParkedAdded:
    settlingObjects.push_back({command.objectId, command.value, 0, command.code, command.a, command.b});
    return;
  case commandRemoved:
    lf_objectRemoved(command);
    return;
  case commandInRange:
    groundContact(command);
    return;
  case commandGeometry:
    lf_modelGeometry(command);
    return;
  case commandNotCreated:
    lf_notCreated(command);
    return;
  case commandBlocked:
    removeBlocked(command);
    return;
  default:
    return;
  }
}

void lf_stepAlive(LiveAircraft& aircraft) {
  if (simTick >= aircraft.slots.front().time) {
    segmentChange(aircraft);
    if (aircraft.slots.empty()) return;
    aircraft.verticalSpeed = aircraft.targetVerticalSpeed / 60;
    aircraft.tas = aircraft.slots.front().stopped ? 0 : aircraft.targetTas;
  }
  const double lat = aircraft.lat;
  const double lon = aircraft.lon;
  if (aircraft.state == Alive && !aircraft.slots.front().stopped) stepAlongSegment(aircraft);
  positionBatch.engineHalf.push_back({aircraft.lat, aircraft.lon, aircraft.pitch, aircraft.bank,
                                      aircraft.heading, aircraft.altitude, aircraft.verticalSpeed,
                                      aircraft.tas, aircraft.objectId, (aircraft.lat - lat) * ticksPerSecond,
                                      lonDelta(lon, aircraft.lon) * ticksPerSecond});
}

void lf_swapPositions() {
  std::unique_lock lock(batchLock, std::try_to_lock);
  if (!lock.owns_lock()) {
    if (frameRate <= lowFrameRate) {
      positionBatch.engineHalf.clear();
      return;
    }
    lock.lock();
  }
  std::swap(positionBatch.engineHalf, positionBatch.simulatorHalf);
  positionBatch.simulatorTime = std::chrono::steady_clock::now();
  positionBatch.engineHalf.clear();
}

void lf_stepAll() {
  bool anyDeleted = false;
  for (LiveAircraft& aircraft : liveAircraft) {
    if (aircraft.state == Alive && !aircraft.slots.empty())
      lf_stepAlive(aircraft);
    else if (aircraft.state == Buffered)
      admit(aircraft);
    anyDeleted = anyDeleted || aircraft.toDelete;
  }
  if (anyDeleted) std::erase_if(liveAircraft, [](const LiveAircraft& a) { return a.toDelete; });
  lf_swapPositions();
}

void lf_releaseRemovalAndCreation() {
  if (simTick % 10 == 0 && !pendingRemoveObjects.empty()) {
    std::lock_guard lock(batchLock);
    removeBatch.push_back(pendingRemoveObjects.front());
    pendingRemoveObjects.pop_front();
  }
  if (simTick % 50 != 0) return;
  const bool live = !pendingLiveCreate.empty();
  std::deque<CreateRequest>& queue = live ? pendingLiveCreate : pendingParkedCreate;
  if (!queue.empty()) {
    std::lock_guard lock(batchLock);
    createBatch.push_back(std::move(queue.front()));
    queue.pop_front();
  }
  // Live aircraft go first; the static ones come one a creation step, two a second at most.
  if (!live) makeNextParked();
}

void lf_takeRecords() {
  lf_records.clear();
  takeTraffic(lf_records, recordsPerTick);
  for (TrafficRecord& record : lf_records)
    applyTrafficRecord(record);
}

void lf_buildCreateRequest() {
  if (pendingCreateHexids.empty()) return;
  const std::uint32_t hexid = pendingCreateHexids.back();
  pendingCreateHexids.pop_back();
  const LiveAircraft* aircraft = findLive(hexid);
  if (aircraft == nullptr || aircraft->slots.empty()) return;
  pendingLiveCreate.push_back({aircraft->lat, aircraft->lon, aircraft->altitude, aircraft->pitch * radToDeg,
                               aircraft->bank * radToDeg, aircraft->heading * radToDeg,
                               !aircraft->slots.front().airborne, aircraft->callsign, aircraft->liveryTitle,
                               hexid});
}

} // namespace

void workOffSimCommands() {
  lf_commands.clear();
  takeSimCommands(lf_commands);
  for (const SimCommand& command : lf_commands)
    lf_handle(command);
}

void engineTick() {
  workOffSimCommands();
  lf_advanceSettling();
  lf_stepAll();
  lf_releaseRemovalAndCreation();
  lf_takeRecords();
  lf_buildCreateRequest();
  const bool rangeDue = simTick % 100 == 0 || (simTick % 20 == 0 && someoneOnFinal);
  if (rangeDue && !linkFailed) requestRange(static_cast<std::uint32_t>(rangeMetres.load()));
  if (simTick % 100 == 0) userSecondWork();
  ++simTick;
}

void removeAllLive() {
  for (LiveAircraft& aircraft : liveAircraft) {
    if (aircraft.objectId != 0) {
      requestRemove(aircraft);
    } else if (aircraft.state == Creating) {
      withdrawLive(aircraft);
    }
  }
  std::erase_if(liveAircraft, [](const LiveAircraft& a) { return a.toDelete; });
  // The main loop now waits for RealTraffic and releases nothing: the removals leave with the next frame.
  std::lock_guard lock(batchLock);
  removeBatch.insert(removeBatch.end(), pendingRemoveObjects.begin(), pendingRemoveObjects.end());
  pendingRemoveObjects.clear();
}

void resetEngine() {
  resetEngineTables();
  resetConflicts();
  lf_commands.clear();
  lf_records.clear();
  simTick = 0;
}

} // namespace ory
