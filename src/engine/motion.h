#pragma once
// What the aircraft does at the ends of its flight and on the ground: the segment set-up on the ground, the
// take-off watch, pitch, bank and altitude per tick, touch down from the simulator's ground sensor, stands.

#include "engine/aircraft.h"
#include "simlink/batches.h"

#include <cstdint>

namespace ory {

// At a segment change on the ground; dt ticks to the second slot.
void groundSegmentSetup(LiveAircraft& aircraft, std::int32_t dt);
// The rate of climb or descent of an air segment whose two slots differ in being airborne; dt as above.
void airAltitudeRate(LiveAircraft& aircraft, std::int32_t dt);
// The air phase's lights, throttle, flaps and gear after an air segment set-up.
void airConfiguration(LiveAircraft& aircraft);
// Feet per minute of the last segments before touch down.
double sinkRate(const LiveAircraft& aircraft);
// At slot intake for an aircraft on the ground that is not departing: l the last slot, s the new one.
void takeOffWatch(LiveAircraft& aircraft, const PositionSlot& last, const PositionSlot& slot);
// Pitch, bank and altitude of one tick.
void attitudeStep(LiveAircraft& aircraft);
// The simulator's in-range answer for one object (command 3).
void groundContact(const SimCommand& command);
// A new aircraft on the ground: Parked on a stand, Taxi, or the end of it.
void placeOnStand(LiveAircraft& aircraft);
// A slot of the feed for an aircraft on or going to a stand: keep or drop.
bool parkedFeed(LiveAircraft& aircraft, PositionSlot& slot);
// At a segment change on the ground: push back, parking and curves, then the retime.
void groundSegmentChange(LiveAircraft& aircraft);
// A stand for an aircraft that stopped or is about to: it rolls onto it, ToStand.
void seekStand(LiveAircraft& aircraft, bool wide);
// The queue of an aircraft rolling to its stand ran out: parked, or taxiing on.
void arriveAtStand(LiveAircraft& aircraft);
// Steady clock milliseconds, for the time on a stand.
std::int64_t steadyMilliseconds();

} // namespace ory
