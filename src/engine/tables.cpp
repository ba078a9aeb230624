#include "engine/tables.h"

#include "base/log.h"
#include "base/parameters.h"
#include "base/run.h"
#include "parking/stand_learning.h"
#include "parking/stands.h"

#include <fmt/format.h>

#include <algorithm>

namespace ory {

std::vector<LiveAircraft> liveAircraft;
std::vector<ParkedAircraft> parkedAircraft;
std::deque<CreateRequest> pendingLiveCreate;
std::deque<CreateRequest> pendingParkedCreate;
std::vector<std::uint32_t> pendingCreateHexids;
std::deque<std::uint32_t> pendingRemoveObjects;
std::deque<std::uint32_t> newLiveHexids;
std::vector<SimCommand> settlingObjects;
std::vector<std::string> ghostCallsigns;
std::vector<std::pair<std::uint32_t, std::uint32_t>> realStandHexids;
bool someoneOnFinal = false;
std::string blockedCallsign;

namespace {

// Pointers into the tables and the 10 ms path stay free of reallocation while MAX_LIVE, at most 300, holds.
constexpr std::size_t reservedLive = 512;
constexpr std::size_t reservedParked = 256;

template <typename Table, typename Test>
auto* lf_find(Table& table, Test test) {
  const auto it = std::find_if(table.begin(), table.end(), test);
  return it == table.end() ? nullptr : &*it;
}

} // namespace

LiveAircraft* findLive(std::uint32_t hexid) {
  return lf_find(liveAircraft, [hexid](const LiveAircraft& a) { return a.hexid == hexid; });
}

LiveAircraft* findLiveByObject(std::uint32_t objectId) {
  return lf_find(liveAircraft, [objectId](const LiveAircraft& a) { return a.objectId == objectId; });
}

LiveAircraft* findLiveByCallsign(std::string_view callsign) {
  return lf_find(liveAircraft,
                 [callsign](const LiveAircraft& a) { return a.state != Removing && a.callsign == callsign; });
}

ParkedAircraft* findParked(std::uint32_t hexid) {
  return lf_find(parkedAircraft, [hexid](const ParkedAircraft& a) { return a.hexid == hexid; });
}

ParkedAircraft* findParkedByObject(std::uint32_t objectId) {
  return lf_find(parkedAircraft, [objectId](const ParkedAircraft& a) { return a.objectId == objectId; });
}

void requestRemove(ParkedAircraft& aircraft) {
  if (aircraft.standId >= 1 && aircraft.standId <= stands.size())
    stands[aircraft.standId - 1].takenByLive = false;
  if (aircraft.objectId == 0) {
    logLine(fmt::format("removing act {} with objectId=0 ?", aircraft.callsign));
    return;
  }
  aircraft.state = Removing;
  pendingRemoveObjects.push_back(aircraft.objectId);
}

std::string standName(std::uint32_t standId) {
  if (standId == 0) return "sid==0?";
  if (standId > stands.size()) return "unknown";
  return stands[standId - 1].id;
}

std::uint32_t packedSlot() {
  return packSlot(nowSlot());
}

std::string describe(const ParkedAircraft& aircraft) {
  return fmt::format("{} {} {} {} {:06X}", aircraft.callsign, aircraft.airline, aircraft.type,
                     aircraft.regcode, aircraft.hexid);
}

void reserveEngineTables() {
  blockedCallsign = BLOCK_CALLSIGN.value;
  liveAircraft.reserve(reservedLive);
  parkedAircraft.reserve(reservedParked);
  pendingCreateHexids.reserve(reservedLive);
  settlingObjects.reserve(reservedLive);
  std::lock_guard lock(batchLock);
  positionBatch.engineHalf.reserve(reservedLive);
  positionBatch.simulatorHalf.reserve(reservedLive);
}

void resetEngineTables() {
  liveAircraft.clear();
  parkedAircraft.clear();
  pendingLiveCreate.clear();
  pendingParkedCreate.clear();
  pendingCreateHexids.clear();
  pendingRemoveObjects.clear();
  newLiveHexids.clear();
  settlingObjects.clear();
  realStandHexids.clear();
  someoneOnFinal = false;
}

} // namespace ory
