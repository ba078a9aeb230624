#pragma once
// The life of a static parked aircraft: a request of the creation queue becomes a record of parkedAircraft
// and a simulator object, is settled once the simulator made it, and the total of parked aircraft, live and
// static, is held at what static parking wants. A parked aircraft never moves. Its shown callsign always ends
// in "*", which tells static from live in the log. All of it runs on the main-loop thread.

#include "engine/aircraft.h"
#include "simlink/batches.h"

#include <cstddef>
#include <cstdint>

namespace ory {

extern std::uint32_t staticHexid; // the last made-up hexid, 0 to 9999; real hexids lie above 10000

// Whole minutes since the live aircraft last showed itself on its stand.
std::int64_t minutesParked(const LiveAircraft& aircraft);
// The next made-up hexid: one up, from 9999 back to 0.
std::uint32_t nextStaticHexid();
// The freshest request of the creation queue becomes a parked aircraft with its create queued, unless a live
// aircraft stands on its stand or next to it. Called every 50 ticks while the queue has entries.
void makeNextParked();
// The simulator made the object of a parked aircraft and it has settled: engines off, parked lights.
void settleParked(const SimCommand& entry);
// A live aircraft parked; extra is 1 while it is not yet counted. What is parked beyond the wanted number
// goes: the live aircraft parked longest, then the static one that arrived last.
void limitParked(std::int32_t extra);
// The n live aircraft parked longest leave the simulator.
void removeOldestLive(std::size_t n);
// A new live aircraft: the static parked aircraft that stands for the same airframe or flight goes.
void replaceParkedBy(const LiveAircraft& live);
// A live aircraft on a stand whose static twin still stands somewhere: the twin goes.
void sweepDuplicates();

} // namespace ory
