#pragma once
// Which stand an aircraft stands on or rolls to, and who gives way when two aircraft want one stand.

#include "base/run.h"
#include "engine/aircraft.h"

#include <cstdint>

namespace ory {

// The stand within radius (nautical miles) of the position that fits aircraft; 0 for none. wide also takes a
// stand up to 85 metres away whose statistics know the aircraft. A stand that the fitting aircraft is too
// wide for by at most 1.8 metres is enlarged.
std::uint32_t findStandAt(double lat, double lon, const LiveAircraft& aircraft, double radius, bool wide);
// The stand kept free for the user, or the stand the user's aircraft stands on.
bool isUserStand(std::uint32_t standId);
// The stand's cargo mark, set for a cargo aircraft on it.
void markCargoStand(const LiveAircraft& aircraft);

// The aircraft's stay on its stand counted in the statistics: arriving or standing (leaving false), or
// leaving.
void recordStandVisit(const LiveAircraft& aircraft, Slot slot, bool leaving);
// The free stand of the statistics in slot that an aircraft of this kind and size would most likely take; 0
// for none. With nextSlotAllowed a small airport is tried once more in the next half hour.
std::uint32_t chooseStandForLearning(Slot slot, const LiveAircraft& aircraft, bool nextSlotAllowed);
// An aircraft that ends or departs near the park airport without a stand: a guessed stand learns from it.
void recordSoftVisit(const LiveAircraft& aircraft);
// The callsign pair of the stand statistics that this aircraft's flight belongs to, around slot.
void searchCouple(LiveAircraft& aircraft, Slot slot);

// claimant wants standId: a live aircraft parked there goes, or the claim is refused (false).
bool claimStand(const LiveAircraft& claimant, std::uint32_t standId);
// Live aircraft parked on the neighbours of standId whose wings would touch the claimant's: refuse the claim
// (parking), or go (arriving).
bool adjacentParkingAllowed(const LiveAircraft& claimant, std::uint32_t standId);
void clearAdjacentForArrival(const LiveAircraft& arriving, std::uint32_t standId);
// Parked aircraft on the stand and its touching neighbours make place for live.
void clearParkedAround(const LiveAircraft& live, std::uint32_t standId);

} // namespace ory
