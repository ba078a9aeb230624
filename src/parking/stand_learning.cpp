#include "parking/stand_learning.h"

#include "base/display.h"
#include "base/log.h"
#include "engine/engine.h"
#include "engine/tables.h"
#include "liveries/dbase.h"

#include <fmt/format.h>

#include <algorithm>
#include <exception>
#include <string>
#include <unordered_map>
#include <vector>

namespace ory {

namespace {

constexpr std::int32_t maxGap = 5;         // half hours that a continuous stay may have gone unseen
constexpr std::int32_t guardHalfHours = 3; // one aircraft is counted again only after this many

std::int32_t lf_nextDay(std::int32_t day) {
  return day == 7 ? 1 : day + 1;
}

StandOption* lf_option(Stand& stand, std::int32_t optionId) {
  const auto it = std::find_if(stand.options.begin(), stand.options.end(),
                               [&](const StandOption& o) { return o.optionId == optionId; });
  return it == stand.options.end() ? nullptr : &*it;
}

// The option that counts half hour at: optionId itself on its own day, else the same regcode's option of
// that day.
StandOption* lf_gapOption(Stand& stand, Slot at, std::int32_t optionId) {
  StandOption* given = lf_option(stand, optionId);
  if (given == nullptr || given->day == at.day) return given;
  const auto it = std::find_if(stand.options.begin(), stand.options.end(), [&](const StandOption& o) {
    return o.optionId != 0 && o.day == at.day && o.regcode == given->regcode && o.soft == given->soft;
  });
  return it == stand.options.end() ? nullptr : &*it;
}

void lf_counted() {
  ++updateCount;
  display.updateCount = updateCount;
  repaintWindow();
}

// The visit was seen before in another slot: the half hours up to maxGap in between were spent on the stand.
void lf_closeGap(Stand& stand, const ParkedAircraft& aircraft, bool soft, Slot slot, StandVisit& visit) {
  for (std::int32_t g = 1; g <= maxGap; ++g) {
    if (visit.slot.day == slot.day && (visit.slot.halfHour + g) % halfHoursPerDay == slot.halfHour) {
      fillGap(stand, slot, g - 1, visit.optionId);
      visit.slot = slot;
      return;
    }
    if (lf_nextDay(visit.slot.day) == slot.day &&
        slot.halfHour - visit.slot.halfHour + halfHoursPerDay == g) {
      const std::int32_t optionId = newLearnedOption(stand, aircraft, soft, slot);
      fillGap(stand, slot, g - 1, optionId);
      visit = {slot, optionId};
      return;
    }
  }
}

bool lf_addVisit(std::uint32_t standId, const ParkedAircraft& aircraft, bool continuous, Slot slot,
                 bool departing, bool soft) {
  if (standId == 0 || standId > stands.size() || aircraft.regcode.empty()) return false;
  if (!soft && aircraft.callsign.empty()) return false;
  Stand& stand = stands[standId - 1];
  auto& visits = soft ? stand.softVisits : stand.realVisits;
  const auto found = std::find_if(stand.options.begin(), stand.options.end(), [&](const StandOption& o) {
    return o.optionId != 0 && o.day == slot.day && o.regcode == aircraft.regcode && o.soft == soft;
  });
  if (found == stand.options.end()) {
    const std::int32_t optionId = newLearnedOption(stand, aircraft, soft, slot);
    if (!departing) visits[aircraft.hexid] = {slot, optionId};
    lf_counted();
    return true;
  }
  if (found->halfHours.test(static_cast<std::size_t>(slot.halfHour))) {
    if (departing) visits.erase(aircraft.hexid);
    return false;
  }
  if (!found->learned) return false; // an archived option stays as the archive has it
  found->halfHours.set(static_cast<std::size_t>(slot.halfHour));
  // A stay seen again, or one that ends, fills its gap; a visit that ends without having been watched
  // doesn't.
  if (continuous || !departing) {
    const auto visit = visits.find(aircraft.hexid);
    if (visit == visits.end()) {
      if (!departing) visits[aircraft.hexid] = {slot, found->optionId};
    } else if (visit->second.slot != slot) {
      lf_closeGap(stand, aircraft, soft, slot, visit->second);
    }
  }
  if (departing) visits.erase(aircraft.hexid);
  lf_counted();
  return true;
}

} // namespace

bool addRealVisit(std::uint32_t standId, const ParkedAircraft& aircraft, bool continuous, Slot slot,
                  bool departing) {
  try {
    return lf_addVisit(standId, aircraft, continuous, slot, departing, false);
  } catch (const std::exception& e) {
    logLine(fmt::format("Add real option exception, hh_now: {}, {}", slot.halfHour, e.what()));
    return false;
  }
}

bool addSoftVisit(std::uint32_t standId, const ParkedAircraft& aircraft, bool continuous, Slot slot) {
  try {
    return lf_addVisit(standId, aircraft, continuous, slot, false, true);
  } catch (const std::exception& e) {
    logLine(fmt::format("Add soft option exception, hh_now: {}, {}", slot.halfHour, e.what()));
    return false;
  }
}

std::int32_t newLearnedOption(Stand& stand, const ParkedAircraft& aircraft, bool soft, Slot slot) {
  StandOption option;
  option.halfHours.set(static_cast<std::size_t>(slot.halfHour));
  auto& options = stand.options;
  while (!options.empty() && options.back().optionId == 0)
    options.pop_back();
  option.optionId = options.empty() ? 1 : options.back().optionId + 1;
  option.airline = aircraft.airline;
  option.type = aircraft.type;
  if (const std::optional<DbaseRecord> record = lookupDbaseRecord(aircraft.regcode)) {
    option.airline = record->opr.empty() ? record->airl : record->opr;
    option.type = record->type;
  }
  option.regcode = aircraft.regcode;
  option.callsignIn = withoutGhostMark(aircraft.callsign);
  option.day = slot.day;
  option.learned = true;
  option.soft = soft;
  options.push_back(std::move(option));
  return options.back().optionId;
}

void fillGap(Stand& stand, Slot slot, std::int32_t count, std::int32_t optionId) {
  std::vector<Slot> gap;
  Slot at = slot;
  for (std::int32_t i = 0; i < count; ++i)
    gap.push_back(at = slotBefore(at, 1));
  for (auto it = gap.rbegin(); it != gap.rend(); ++it) {
    StandOption* option = lf_gapOption(stand, *it, optionId);
    if (option == nullptr) return;
    option->halfHours.set(static_cast<std::size_t>(it->halfHour));
  }
}

bool countVisit(std::uint32_t hexid, Slot slot, bool force) {
  const auto known = std::find_if(realStandHexids.begin(), realStandHexids.end(),
                                  [hexid](const auto& entry) { return entry.first == hexid; });
  if (known == realStandHexids.end()) {
    realStandHexids.emplace_back(hexid, packSlot(slot));
    return true;
  }
  const std::int32_t since =
      (slot.halfHour - unpackSlot(known->second).halfHour + halfHoursPerDay) % halfHoursPerDay;
  if (!force && since < guardHalfHours) return false;
  known->second = packSlot(slot);
  return true;
}

void forgetVisit(std::uint32_t hexid) {
  std::erase_if(realStandHexids, [hexid](const auto& entry) { return entry.first == hexid; });
}

} // namespace ory
