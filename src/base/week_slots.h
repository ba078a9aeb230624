#pragma once
// Arithmetic on the half hours of the week that the stand statistics count in.

#include "base/run.h"

#include <cstdint>

namespace ory {

inline constexpr std::int32_t halfHoursPerDay = 48;
inline constexpr std::int32_t halfHoursPerWeek = 7 * halfHoursPerDay;

// Weekday in the low half, half hour in the high half, as arrivalTime holds it; and back.
std::uint32_t packSlot(Slot slot);
Slot unpackSlot(std::uint32_t packed);
// The half hour after slot: after 47 of day 7 comes 0 of day 1.
Slot nextSlot(Slot slot);
// now moved back by halfHours (0 to 47), over midnight to the previous weekday.
Slot slotBefore(Slot now, std::int32_t halfHours);
// Half hours from then to now, over the week: 0 to 335.
std::int32_t halfHoursSince(Slot now, std::uint32_t packedThen);

} // namespace ory
