#include "simlink/commands.h"

#include "base/log.h"
#include "base/parameters.h"
#include "liveries/random.h"
#include "simlink/batches.h"
#include "simlink/session.h"

#include <fmt/format.h>

#include <mutex>

namespace ory {

namespace {

constexpr std::array<std::uint32_t, 5> flapsData = {0, 3072, 10240, 16383, 0};
constexpr std::array<std::uint32_t, 5> throttleData = {0, 4914, 8191, 11468, 16383};
constexpr std::uint32_t spoilersOn = 16383;
constexpr std::uint32_t throttleKeep = 5; // a throttle step that is only stored
constexpr double lightsAltitude = 10000;  // feet: landing and logo lights below, on the way up and down
constexpr double cabinAboveGround = 2000; // feet: cabin lights above, once airborne
// The light events in the order of a LightSet.
constexpr std::array<std::uint32_t, 7> lightEvents = {
    eventIdNavLights, eventIdBeaconLights, eventIdLandingLights, eventIdTaxiLights,
    eventIdStrobes,   eventIdLogoLights,   eventIdCabinLights};

// Object 0 is the user's aircraft to the simulator: an aircraft without its object sends nothing.
bool lf_append(std::uint32_t objectId, std::uint32_t eventId, std::uint32_t data) {
  if (objectId == 0) return false;
  std::lock_guard lock(batchLock);
  eventBatch.push_back({objectId, eventId, data});
  return true;
}

bool lf_isHelicopter(const ParkedAircraft& aircraft) {
  return aircraft.category == categoryHelicopter;
}

std::uint32_t lf_on(bool on) {
  return on ? 1 : 0;
}

// Cabin lights of an aircraft on its stand: dark on a cargo stand, else lit nine times in ten.
std::uint32_t lf_cabinOnStand(bool cargoStand) {
  return lf_on(!cargoStand && randomIndex(10) <= 8);
}

} // namespace

LightSet lightSet(LightMoment moment, double altitude, double aboveGround, bool cargoStand) {
  const std::uint32_t navParked = lf_on(NAV_LIGHTS_WHILE_PARKED.value);
  switch (moment) {
  case LightMoment::settledParked:
    return {navParked, 0, 0, 0, 0, 1, 1};
  case LightMoment::settledTaxi:
    return {1, 1, 0, 1, 0, 1, 1};
  case LightMoment::settledGround:
    return {1, 1, 0, 0, 0, 1, 1};
  case LightMoment::settledAirborne: {
    const std::uint32_t low = lf_on(altitude <= lightsAltitude);
    return {1, 1, low, 0, 1, low, lf_on(aboveGround >= cabinAboveGround)};
  }
  case LightMoment::arrivedOnStand:
    return {navParked, 0, 0, 0, 0, 1, lf_cabinOnStand(cargoStand)};
  case LightMoment::pullOutPushBack:
    return {1, 1, 0, 1, 0, 1, 0};
  case LightMoment::departureStart:
    return {1, 1, 1, 1, 1, 1, 0};
  case LightMoment::below10000:
    return {1, 1, 1, 1, 1, 1, 1};
  case LightMoment::above10000:
    return {1, 1, 0, 0, 0, 0, 1};
  }
  return {};
}

void sendGear(ParkedAircraft& aircraft, bool down) {
  if (lf_isHelicopter(aircraft)) return;
  lf_append(aircraft.objectId, eventIdGear, lf_on(down));
}

void sendSpoilers(ParkedAircraft& aircraft, bool on) {
  if (lf_isHelicopter(aircraft)) return;
  lf_append(aircraft.objectId, eventIdSpoilers, on ? spoilersOn : 0);
}

void sendFlaps(ParkedAircraft& aircraft, std::uint32_t step) {
  if (lf_isHelicopter(aircraft) || step == aircraft.flapsState) return;
  if (step >= flapsData.size()) {
    logLine(fmt::format("! {} flaps step {} out of range", aircraft.callsign, step));
    return;
  }
  if (lf_append(aircraft.objectId, eventIdFlaps, flapsData[step])) aircraft.flapsState = step;
}

void sendThrottle(ParkedAircraft& aircraft, std::uint32_t step) {
  if (step == aircraft.throttleState) return;
  if (step == throttleKeep) {
    aircraft.throttleState = step;
    return;
  }
  if (step > throttleKeep) {
    logLine(fmt::format("! {} throttle step {} out of range", aircraft.callsign, step));
    return;
  }
  if (lf_append(aircraft.objectId, eventIdThrottle, throttleData[step])) aircraft.throttleState = step;
}

void sendLights(std::uint32_t objectId, const LightSet& lights) {
  if (objectId == 0) return;
  std::lock_guard lock(batchLock);
  for (std::size_t i = 0; i < lights.size(); ++i)
    eventBatch.push_back({objectId, lightEvents[i], lights[i]});
}

void sendEngineStart(std::uint32_t objectId) {
  lf_append(objectId, eventIdEngineStart, 0);
}

void sendEngineStop(std::uint32_t objectId) {
  lf_append(objectId, eventIdEngineStop, 0);
}

void sendNavLights(std::uint32_t objectId, bool on) {
  lf_append(objectId, eventIdNavLights, lf_on(on));
}

void sendCabinLights(std::uint32_t objectId, bool on) {
  lf_append(objectId, eventIdCabinLights, lf_on(on));
}

void setParkedSystems(ParkedAircraft& aircraft) {
  sendThrottle(aircraft, 0);
  sendFlaps(aircraft, 0);
  sendEngineStop(aircraft.objectId);
  sendLights(aircraft.objectId, lightSet(LightMoment::arrivedOnStand, 0, 0, aircraft.onCargoStand));
}

void allLightsToggle(std::uint32_t objectId) {
  SimResult result = simFail;
  {
    std::lock_guard lock(batchLock);
    result = SimConnect_TransmitClientEvent(simHandle, objectId, eventIdAllLightsToggle, 0, groupIdAi, 0);
  }
  if (result != simOk) logLine("SimConnect gf_allLightsToggle fails");
}

void requestModelGeometry(std::uint32_t objectId) {
  requestObjectData(requestIdStaticData, definitionIdStatic, objectId, SIMCONNECT_PERIOD_ONCE,
                    "SimConnect request StaticCG fails");
}

} // namespace ory
