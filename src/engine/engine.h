#pragma once
// The engine: live aircraft fed from the traffic records, flown 30 seconds behind the feed at 100 ticks a
// second, created and removed in the simulator through the batches. Everything here runs on the main loop's
// thread.

#include "engine/aircraft.h"
#include "feed/traffic_record.h"

#include <string_view>

namespace ory {

// One tick of 10 ms while the simulator's flight runs.
void engineTick();
// A new aircraft or an update of a known one; drops what the rules refuse.
void applyTrafficRecord(TrafficRecord& record);
// Works off the simulator's replies (also while the flight is paused).
void workOffSimCommands();
// The livery the matching chooses for the aircraft, or false with its no-match noted; quiet logs nothing of
// the search (a recreated object).
bool findLivery(ParkedAircraft& aircraft, bool quiet);
// The once-a-tick test of an aircraft still without an object.
void admit(LiveAircraft& aircraft);
// A lowered MAX_LIVE takes effect at once: the furthest alive aircraft above the limit go.
void enforceMaxLive();
// Once a second: the head of newLiveHexids, once its aircraft is in the table, is done with.
void serveNewLiveHexid();
// Once a second: a callsign the user blocked leaves the simulator and is refused from then on.
void serveBlockedCallsign();
// Once a second: "Flush static" takes every parked aircraft away and keeps the parking to its first load.
void serveFlush();
// Once a second: the nav lights box switches the lights of every aircraft standing on its stand.
void serveNavLights();
// RealTraffic is gone: every live aircraft leaves the simulator at once; one being created stops, or goes as
// soon as it exists.
void removeAllLive();
// A new object after an identity change; stand and heading stay.
void renew(LiveAircraft& aircraft);

// A ghost's callsign ends in '_'; its real flight has the callsign without it.
bool isGhost(std::string_view callsign);
// The callsign without its ghost mark.
std::string_view withoutGhostMark(std::string_view callsign);
// The ghost of callsign loses against it and is removed.
void ghostKill(std::string_view callsign);
// For a ghost's callsign: its real flight exists.
bool hasRealFlight(std::string_view callsign);

// The engine's tables emptied and its tick counter at 0, as a new run starts.
void resetEngine();

} // namespace ory
