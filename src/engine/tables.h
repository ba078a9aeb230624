#pragma once
// The engine's memory: the two aircraft tables and the queues between the traffic reader, the engine and the
// simulator thread. All of it belongs to the main loop's thread; the batches and simCommands that cross to
// the simulator thread are in simlink/batches.h, the traffic inbox in feed/inbox.h.

#include "engine/aircraft.h"
#include "simlink/batches.h"

#include <cstdint>
#include <deque>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace ory {

extern std::vector<LiveAircraft> liveAircraft;
extern std::vector<ParkedAircraft> parkedAircraft;
extern std::deque<CreateRequest> pendingLiveCreate;
extern std::deque<CreateRequest> pendingParkedCreate;
extern std::vector<std::uint32_t> pendingCreateHexids; // a stack: aircraft that need a CreateRequest built
extern std::deque<std::uint32_t> pendingRemoveObjects; // object ids to remove, ten a second
extern std::deque<std::uint32_t> newLiveHexids;        // to be checked against the parked table, one a second
extern std::vector<SimCommand> settlingObjects;        // new objects settling; reserved counts their ticks
extern std::vector<std::string> ghostCallsigns;        // ghosts that lost against their real flight
// Arrivals counted in the stand statistics: hexid and the moment (day in the low half, half hour high).
extern std::vector<std::pair<std::uint32_t, std::uint32_t>> realStandHexids;
extern bool someoneOnFinal;         // an aircraft flares: the in-range request runs five times a second
extern std::string blockedCallsign; // the engine's copy of BLOCK_CALLSIGN, taken when the window changes it

inline constexpr std::size_t maxSlots = 200;           // a longer queue cannot keep up
inline constexpr std::uint32_t maxParkedHexid = 10000; // ids up to this are made up for parked aircraft

// Plain scans from the start of the table; null when none.
LiveAircraft* findLive(std::uint32_t hexid);
LiveAircraft* findLiveByObject(std::uint32_t objectId);
LiveAircraft* findLiveByCallsign(std::string_view callsign); // skips aircraft in Removing
ParkedAircraft* findParked(std::uint32_t hexid);
ParkedAircraft* findParkedByObject(std::uint32_t objectId);

// The only way out of the simulator: frees the stand, Removing, and the object id queued for removal.
void requestRemove(ParkedAircraft& aircraft);
// The stand's name for the log: "sid==0?" for 0, "unknown" for an id no stand has.
std::string standName(std::uint32_t standId);
// The present weekday in the low half and half hour in the high half, as arrivalTime holds it.
std::uint32_t packedSlot();
// How the aircraft appears in the log: callsign, airline, type, regcode and hexid.
std::string describe(const ParkedAircraft& aircraft);

// Room for the largest run, so that the 10 ms path never reallocates.
void reserveEngineTables();
// Every table and queue emptied; the simulator took the objects away with the flight.
void resetEngineTables();

} // namespace ory
