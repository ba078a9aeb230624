#pragma once
// Who gives way: live aircraft against static parked ones on the ground, every aircraft against the user's,
// and the create requests withdrawn with an aircraft that goes before it exists. Main loop's thread only.

#include "engine/aircraft.h"
#include "simlink/batches.h"

#include <string_view>

namespace ory {

// Every request of callsign leaves pendingParkedCreate with its parked record; the others keep their order.
// False when none was queued.
bool cancelQueuedParked(std::string_view callsign);
// A live aircraft without an object leaves: its requests of pendingLiveCreate (by callsign) and its entry of
// pendingCreateHexids go with the record; one whose create already left goes as soon as its object exists.
void withdrawLive(LiveAircraft& aircraft);

// Once a second with COLLISION_LIVE_PARKED_GND: a live aircraft taxiing into a parked one removes it.
void avoidLiveParkedCollisions();
// Once a second: the user's aircraft against the live aircraft (in the air or on the ground) and, on the
// ground, against the parked ones.
void avoidUserCollisions();
// The admission's tests for the user's sake on the front slot: true when the slot was dropped.
bool keptFromUser(LiveAircraft& aircraft);
// The answer to a blocked aircraft (value hexid): a record without object is dropped, an object removed.
void removeBlocked(const SimCommand& command);

// The user's position of the last second forgotten, as a new run starts.
void resetConflicts();

} // namespace ory
