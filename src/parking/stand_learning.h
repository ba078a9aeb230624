#pragma once
// The statistics of the park airport's stands grow from what the live traffic shows: a real aircraft on a
// stand (real visit), or one near the airport whose stand is guessed (soft visit). What is learned are
// options with learned set; the learned file keeps them when the airport closes. Main-loop thread.

#include "base/run.h"
#include "base/week_slots.h"
#include "engine/aircraft.h"
#include "parking/stands.h"

#include <cstdint>

namespace ory {

// A real aircraft counted on the stand in slot; true if the statistics changed. A visit seen again up to 5
// half hours later counts the half hours in between too; departing ends the visit, with them if continuous
// (it stood there all along), without them otherwise.
bool addRealVisit(std::uint32_t standId, const ParkedAircraft& aircraft, bool continuous, Slot slot,
                  bool departing);
// The same for a guessed stand: the options it makes and changes are soft.
bool addSoftVisit(std::uint32_t standId, const ParkedAircraft& aircraft, bool continuous, Slot slot);
// Appends a learned option of the aircraft with the slot's half hour on its weekday; its optionId.
std::int32_t newLearnedOption(Stand& stand, const ParkedAircraft& aircraft, bool soft, Slot slot);
// Sets the count half hours before slot, oldest first, on option optionId or the same regcode's option of the
// day before midnight; stops at the first half hour without such an option.
void fillGap(Stand& stand, Slot slot, std::int32_t count, std::int32_t optionId);
// The guard of realStandHexids: false if the hexid was counted less than 3 half hours ago (unless force);
// otherwise its moment becomes slot.
bool countVisit(std::uint32_t hexid, Slot slot, bool force);
// The hexid leaves the guard's list.
void forgetVisit(std::uint32_t hexid);

} // namespace ory
