#pragma once
// Which stand an aircraft stands on or rolls to, and who gives way when two aircraft want one stand.

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

// claimant wants standId: a live aircraft parked there goes, or the claim is refused (false).
bool claimStand(const LiveAircraft& claimant, std::uint32_t standId);
// Live aircraft parked on the neighbours of standId whose wings would touch the claimant's: refuse the claim
// (parking), or go (arriving).
bool adjacentParkingAllowed(const LiveAircraft& claimant, std::uint32_t standId);
void clearAdjacentForArrival(const LiveAircraft& arriving, std::uint32_t standId);
// Parked aircraft on the stand and its touching neighbours make place for live.
void clearParkedAround(const LiveAircraft& live, std::uint32_t standId);

} // namespace ory
