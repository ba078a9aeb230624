#pragma once
// The engine's commands to one simulator object: gear, flaps, spoilers, throttle, engines and lights. Each is
// appended to the event batch under the batch lock and leaves at the simulator's next frame. Called on the
// main loop's thread.

#include "engine/aircraft.h"

#include <array>
#include <cstdint>

namespace ory {

// nav, beacon, landing, taxi, strobes, logo, cabin: 1 on, 0 off.
using LightSet = std::array<std::uint32_t, 7>;

enum class LightMoment {
  settledParked,
  settledTaxi,   // settled on the ground in the taxi phase
  settledGround, // settled on the ground in any other phase
  settledAirborne,
  arrivedOnStand,
  pullOutPushBack,
  departureStart,
  below10000, // the first time below 10000 feet
  above10000, // the first time at or above 10000 feet
};

// The row of the light table for a moment; altitude and aboveGround in feet matter for settledAirborne,
// cargoStand for arrivedOnStand.
LightSet lightSet(LightMoment moment, double altitude, double aboveGround, bool cargoStand);

// A helicopter gets no gear, spoilers or flaps; a step equal to the one last sent sends nothing.
void sendGear(ParkedAircraft& aircraft, bool down);
void sendSpoilers(ParkedAircraft& aircraft, bool on);
void sendFlaps(ParkedAircraft& aircraft, std::uint32_t step);    // 0 to 4
void sendThrottle(ParkedAircraft& aircraft, std::uint32_t step); // 0 to 4; 5 only stores the step
void sendLights(std::uint32_t objectId, const LightSet& lights);
void sendEngineStart(std::uint32_t objectId);
void sendEngineStop(std::uint32_t objectId);
void sendNavLights(std::uint32_t objectId, bool on);
void sendCabinLights(std::uint32_t objectId, bool on);
// Throttle 0, flaps 0, engines off and the lights of an aircraft arrived on its stand.
void setParkedSystems(ParkedAircraft& aircraft);
// "ALL_LIGHTS_TOGGLE" straight to the object, as the settling of a new object needs it twice.
void allLightsToggle(std::uint32_t objectId);
// Spoilers handle and both throttle levers of the model itself, in percent; the throttle negative is reverse.
void setSpoilersThrottleData(std::uint32_t objectId, double spoilersPercent, double throttlePercent);
// Static CG and static pitch of the object's model, once; the answer comes back as a geometry command.
void requestModelGeometry(std::uint32_t objectId);

} // namespace ory
