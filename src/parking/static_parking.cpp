#include "parking/static_parking.h"

#include "base/display.h"
#include "base/log.h"
#include "base/parameters.h"
#include "base/text_hash.h"
#include "engine/aircraft.h"
#include "engine/geometry.h"
#include "engine/tables.h"
#include "feed/feed.h"
#include "liveries/dbase.h"
#include "liveries/random.h"
#include "parking/park_airports.h"
#include "parking/parked_aircraft.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <iterator>
#include <limits>
#include <set>

namespace ory {

std::vector<StaticRequest> creationQueue;
std::int32_t wantedStands = 0;

namespace {

// One aircraft chosen by the search.
struct StaticCandidate {
  std::string airline;
  std::string type;
  std::uint32_t standId = 0;
  std::int32_t fit = 0; // half hours before now that the statistics saw it here
  std::string regcode;
  std::string callsignIn;
  std::string callsignOut;
  bool staysNextHalfHour = false; // still here in the next half hour: shown with its arrival callsign
};

// A live aircraft parked on a stand at a renewal.
struct LiveStayer {
  std::string callsign;
  std::uint32_t standId = 0;
  std::int64_t minutes = 0; // parked for; 0 when the feed confirms it on the stand
  std::uint32_t hexid = 0;
};

// A static parked aircraft that the renewal keeps.
struct ParkedStayer {
  std::string callsign; // as shown, with its "*"
  std::string callsignIn;
  std::string callsignOut;
  std::string regcode;
  std::string airline;
  std::string type;
  std::uint32_t arrivalTime = 0; // weekday in the low half, half hour in the high half
  std::uint32_t standId = 0;
  bool leavesNow = false; // its statistic ends with this half hour: the departure flight takes its place
};

// A static parked aircraft the renewal takes away.
struct Removal {
  std::string callsign;
  std::uint32_t standId = 0;
};

std::vector<ParkedStayer> parkedStayers;
std::vector<LiveStayer> liveStayers;
std::vector<Removal> removalList;
std::int32_t lastRealFit = -1; // half hours the last real pass went back; -1 none
std::int32_t lastSoftFit = -1; // the same for the soft pass; -1 when it didn't run

constexpr double widerNm = 0.0009719222462203025;     // 1.8 metres
constexpr double smallStandNm = 0.009611230689557531; // 17.8 metres
constexpr double smallStepNm = 0.00755939524838013;   // 14 metres
constexpr double largeStepNm = 0.011339092872570195;  // 21 metres
constexpr std::int64_t liveParkMinutes = 90;
constexpr std::int64_t heavyParkMinutes = 180;
constexpr std::uint32_t categoryHeavy = 3;
constexpr std::size_t workReserve = 512;
constexpr std::size_t optionsPerStep = 60000; // about half a millisecond of search
constexpr double noRoom = std::numeric_limits<double>::infinity();

struct FakeRow {
  std::string_view airline;
  std::string_view type;
};
using FakeRows = std::vector<FakeRow>;

const FakeRows fakeK = {{"UAL", "B77W"}, {"DAL", "B739"}, {"JBU", "BCS3"}, {"FFT", "A320"}, {"UAL", "B78X"},
                        {"UAL", "B738"}, {"AAL", "B738"}, {"SKW", "E75L"}, {"SWA", "B737"}, {"FFT", "A320"}};
const FakeRows fakeC = {{"ACA", "B789"}, {"ACA", "B38M"}, {"ROU", "A321"}, {"JZA", "CRJ9"}};
const FakeRows fakeE = {{"KLM", "B77W"}, {"SAS", "A320"}, {"EZY", "A320"}, {"RYR", "B738"},
                        {"DLH", "A320"}, {"KLM", "B738"}, {"BAW", "A21N"}};
const FakeRows fakeZ = {{"CSA", "A320"}, {"CES", "A333"}, {"CES", "A321"}};
const FakeRows fakeR = {{"ANA", "A20N"}, {"JAL", "A35K"}, {"JAL", "B738"}};
const FakeRows fakeCargo = {
    {"FDX", "C208"}, {"FDX", "B752"}, {"FDX", "B763"}, {"UPS", "A306"}, {"DHK", "B763"}};
const FakeRows fakeRamp = {{"PVT", "C172"}, {"PVT", "C206"}, {"PVT", "P28A"}, {"PVT", "PC12"},
                           {"PVT", "C550"}, {"PVT", "TBM9"}, {"PVT", "LJ25"}, {"PVT", "GLF6"},
                           {"PVT", "FA6X"}, {"PVT", "FA8X"}, {"PVT", "GLF4"}, {"PVT", "GLF5"},
                           {"PVT", "LJ60"}, {"PVT", "DHC7"}, {"PVT", "DH8A"}, {"PVT", "DH8C"},
                           {"PVT", "E550"}, {"PVT", "CL30"}, {"PVT", "GA6C"}};
constexpr FakeRow fakeOther{"ZZZ", "B738"};
constexpr FakeRow fakeHeli{"PVT", "EC35"};

constexpr std::array<std::string_view, 7> weekdayNames = {"Monday", "Tuesday",  "Wednesday", "Thursday",
                                                          "Friday", "Saturday", "Sunday"};

enum class Stage { idle, renumbering, searching, finishing };

// The calculation in progress, a slice of work per step.
struct Calculation {
  Stage stage = Stage::idle;
  Stage afterRenumbering = Stage::idle;
  bool renewal = false;
  Slot now;
  std::int32_t wanted = 0;
  std::int32_t have = 0; // aircraft that already count
  bool soft = false;     // the pass of soft statistics
  std::int32_t fit = 0;
  std::int32_t before = 0;   // occupied stands when the pass began
  std::size_t nextStand = 0; // where the next slice of this fit's pass begins, in stands order
  std::vector<StaticCandidate> found;
  std::vector<StaticCandidate> accumulated;
  TextSet regcodes; // of found and accumulated: one registration is never shown twice
};

Calculation lf_calc;
std::set<std::string> lf_heard;             // callsigns the feed had in the collecting window
std::vector<std::size_t> lf_candidates;     // option indices of one stand, kept for their capacity
std::vector<std::int32_t> lf_parkedOnStand; // by standId: index into parkedAircraft of the one in state 2
std::vector<std::int32_t> lf_queuedOnStand; // by standId: index into creationQueue

const char* lf_plural(std::int64_t count) {
  return count >= 2 ? "s" : "";
}

std::string lf_hours(std::int32_t halfHours) {
  return fmt::format("{:.1f}", halfHours * 0.5 + 0.5);
}

Stand* lf_stand(std::uint32_t standId) {
  return standId >= 1 && standId <= stands.size() ? &stands[standId - 1] : nullptr;
}

void lf_markOccupied(Stand& stand) {
  stand.occupied = true;
  for (const std::uint32_t neighbour : stand.neighbours)
    if (Stand* other = lf_stand(neighbour)) other->blocked = true;
}

std::int32_t lf_occupiedCount() {
  return static_cast<std::int32_t>(
      std::count_if(stands.begin(), stands.end(), [](const Stand& s) { return s.occupied; }));
}

void lf_logSlot(Slot now) {
  logLine(fmt::format("\n{} (utc) It is day {} ({}), {} hours", timeOfDay(), now.day,
                      weekdayNames[static_cast<std::size_t>(now.day - 1) % weekdayNames.size()],
                      lf_hours(now.halfHour)));
}

void lf_takeOverFeedCallsigns() {
  lf_heard.clear();
  trafficReader.collectingCallsigns = false;
  std::lock_guard lock(trafficReader.callsignLock);
  lf_heard.swap(trafficReader.feedCallsigns);
}

void lf_clearStandMarks() {
  for (Stand& stand : stands)
    stand.occupied = stand.reserved = stand.blocked = false;
}

// The static parked aircraft in state 2, found by their stand.
void lf_indexParked() {
  lf_parkedOnStand.assign(stands.size() + 1, -1);
  for (std::size_t i = 0; i < parkedAircraft.size(); ++i) {
    const ParkedAircraft& parked = parkedAircraft[i];
    if (parked.state == Alive && parked.standId >= 1 && parked.standId <= stands.size() &&
        lf_parkedOnStand[parked.standId] < 0)
      lf_parkedOnStand[parked.standId] = static_cast<std::int32_t>(i);
  }
}

const ParkedAircraft* lf_parkedOn(std::uint32_t standId) {
  if (standId >= lf_parkedOnStand.size() || lf_parkedOnStand[standId] < 0) return nullptr;
  return &parkedAircraft[static_cast<std::size_t>(lf_parkedOnStand[standId])];
}

// The widest aircraft the stand still takes beside the parked neighbours: an option of larger radius would
// touch one of them.
double lf_room(const Stand& stand) {
  double room = noRoom;
  for (const std::uint32_t neighbour : stand.neighbours) {
    const ParkedAircraft* parked = lf_parkedOn(neighbour);
    if (parked == nullptr) continue;
    const double radius = aircraftRadius(parked->type);
    if (std::isnan(radius)) continue;
    room = std::min(room, distanceNm(parked->standLat, parked->standLon, stand.lat, stand.lon) - radius);
  }
  return room;
}

bool lf_matches(const StandOption& option, Slot searched, bool soft) {
  return option.optionId != 0 && option.soft == soft && (WEEK.value || option.day == searched.day) &&
         option.halfHours.test(static_cast<std::size_t>(searched.halfHour));
}

bool lf_shownAs(const ParkedAircraft& parked, const StandOption& option) {
  return parked.airline == option.airline && parked.type == option.type &&
         (parked.callsign == option.callsignIn + "*" || parked.callsign == option.callsignOut + "*");
}

// The option of the aircraft already shown on the stand goes first, so that it stays.
bool lf_preferShown(const Stand& stand) {
  const ParkedAircraft* parked = lf_parkedOn(stand.standId);
  if (parked == nullptr) return false;
  const auto shown = std::find_if(lf_candidates.begin(), lf_candidates.end(),
                                  [&](std::size_t i) { return lf_shownAs(*parked, stand.options[i]); });
  if (shown == lf_candidates.end()) return false;
  std::iter_swap(lf_candidates.begin(), shown);
  return true;
}

bool lf_inFeed(const std::string& callsign) {
  return !callsign.empty() && (lf_heard.contains(callsign) || lf_heard.contains(callsign + "_"));
}

// An aircraft that flies, is queued already or stands live somewhere is not parked here as well.
bool lf_elsewhere(const StandOption& option) {
  if (lf_inFeed(option.callsignIn) || lf_inFeed(option.callsignOut)) return true;
  const auto same = [](const std::string& a, const std::string& b) { return !a.empty() && a == b; };
  for (const StaticRequest& queued : creationQueue)
    if (same(queued.callsignIn, option.callsignIn) || same(queued.callsignIn, option.callsignOut) ||
        same(queued.regcode, option.regcode))
      return true;
  return std::any_of(liveStayers.begin(), liveStayers.end(), [&](const LiveStayer& live) {
    return same(live.callsign, option.callsignIn) || same(live.callsign, option.callsignOut);
  });
}

bool lf_staysNextHalfHour(const Stand& stand, const StandOption& option, Slot now) {
  if (option.callsignOut.empty()) return true;
  const Slot next = nextSlot(now);
  if (next.day == now.day) return option.halfHours.test(static_cast<std::size_t>(next.halfHour));
  return std::any_of(stand.options.begin(), stand.options.end(), [&](const StandOption& o) {
    return o.optionId != 0 && o.day == next.day && o.airline == option.airline && o.type == option.type &&
           o.halfHours.test(0);
  });
}

void lf_searchStand(Stand& stand, Slot searched) {
  Calculation& c = lf_calc;
  if (stand.reserved || stand.occupied || stand.blocked || (stand.heli && !HELICOPTERS.value)) return;
  const double room = lf_room(stand);
  lf_candidates.clear();
  for (std::size_t i = 0; i < stand.options.size(); ++i) {
    const StandOption& option = stand.options[i];
    if (!lf_matches(option, searched, c.soft)) continue;
    if (room != noRoom && aircraftRadius(option.type) > room) continue;
    lf_candidates.push_back(i);
  }
  if (lf_candidates.empty()) return;
  if (lf_candidates.size() > 1 && randomOn() && !lf_preferShown(stand)) shuffle(lf_candidates);
  StandOption& option = stand.options[lf_candidates.front()];
  if ((!option.regcode.empty() && c.regcodes.contains(option.regcode)) || lf_elsewhere(option)) {
    option.optionId = 0; // until the next renewal
    return;
  }
  c.found.push_back({option.airline, option.type, stand.standId, c.fit, option.regcode, option.callsignIn,
                     option.callsignOut, lf_staysNextHalfHour(stand, option, c.now)});
  if (!option.regcode.empty()) c.regcodes.insert(option.regcode);
  lf_markOccupied(stand);
}

// One slice of the pass over all stands for the present fit; true when the pass is complete.
bool lf_searchStands() {
  Calculation& c = lf_calc;
  const Slot searched = slotBefore(c.now, c.fit);
  try {
    // The table may have changed since the last slice.
    lf_indexParked();
    for (std::size_t spent = 0; c.nextStand < stands.size() && spent < optionsPerStep; ++c.nextStand) {
      spent += stands[c.nextStand].options.size() + 1;
      lf_searchStand(stands[c.nextStand], searched);
    }
  } catch (const std::exception& error) {
    logLine(fmt::format("exception in lf_searchStands, day: {}, offset {}: {}", searched.day, c.fit,
                        error.what()));
    c.nextStand = stands.size();
  }
  if (c.nextStand < stands.size()) return false;
  c.nextStand = 0;
  return true;
}

void lf_moveFoundToAccumulated() {
  Calculation& c = lf_calc;
  std::move(c.found.begin(), c.found.end(), std::back_inserter(c.accumulated));
  c.found.clear();
}

std::int64_t lf_surplus() {
  const Calculation& c = lf_calc;
  return static_cast<std::int64_t>(c.accumulated.size()) - c.wanted + c.have;
}

// The pass went beyond wanted: the surplus of the last fit goes at random, the rest by stand order.
void lf_trimSurplus() {
  Calculation& c = lf_calc;
  std::int64_t x = lf_surplus();
  if (x > 0 && !c.found.empty()) {
    shuffle(c.found);
    for (; x > 0 && !c.found.empty(); --x)
      c.found.pop_back();
  }
  lf_moveFoundToAccumulated();
  for (x = lf_surplus(); x > 0 && !c.accumulated.empty(); --x)
    c.accumulated.pop_back();
}

void lf_beginPass(bool soft) {
  Calculation& c = lf_calc;
  c.soft = soft;
  c.fit = 0;
  c.nextStand = 0;
  c.before = lf_occupiedCount();
  c.found.clear();
  c.regcodes.clear();
  for (const StaticCandidate& candidate : c.accumulated)
    if (!candidate.regcode.empty()) c.regcodes.insert(candidate.regcode);
  c.stage = Stage::searching;
}

void lf_logPass(std::int32_t n) {
  const Calculation& c = lf_calc;
  const std::string week = WEEK.value ? ", week" : fmt::format(", day {}", c.now.day);
  logLine(fmt::format(
      "{} {} position{} found, Max fit={} hours{}{}", n, c.soft ? "soft" : "real", lf_plural(n),
      lf_hours(MAX_FIT.value), week,
      fmt::format(", hh:{} or {} hrs fit: {} hour", c.now.halfHour, c.now.halfHour * 0.5, lf_hours(c.fit))));
}

void lf_endPass(bool reached) {
  Calculation& c = lf_calc;
  if (c.soft) {
    lastSoftFit = c.fit;
  } else {
    lastRealFit = c.fit;
    lastSoftFit = -1;
  }
  const std::int32_t n = lf_occupiedCount() - c.before;
  if (n > 0) lf_logPass(n);
  if (reached) lf_trimSurplus();
  const bool tooFew = static_cast<std::int64_t>(c.accumulated.size()) + c.have < c.wanted;
  if (!c.soft && tooFew && (PARK_SOFT.value || PARK_FAKE.value)) {
    lf_beginPass(true);
    return;
  }
  for (StaticCandidate& found : c.accumulated)
    creationQueue.push_back({0, found.fit, std::move(found.airline), std::move(found.type), found.standId,
                             std::move(found.callsignIn), std::move(found.callsignOut),
                             std::move(found.regcode), false, found.staysNextHalfHour});
  c.accumulated.clear();
  c.stage = Stage::finishing;
}

void lf_renumberStep() {
  Calculation& c = lf_calc;
  for (std::size_t spent = 0; c.nextStand < stands.size() && spent < optionsPerStep; ++c.nextStand) {
    std::int32_t optionId = 1;
    for (StandOption& option : stands[c.nextStand].options)
      option.optionId = optionId++;
    spent += stands[c.nextStand].options.size() + 1;
  }
  if (c.nextStand < stands.size()) return;
  c.nextStand = 0;
  c.stage = c.afterRenumbering;
}

void lf_searchStep() {
  Calculation& c = lf_calc;
  if (!lf_searchStands()) return;
  if (lf_occupiedCount() >= c.wanted) {
    lf_endPass(true);
    return;
  }
  lf_moveFoundToAccumulated();
  if (c.fit >= MAX_FIT.value) {
    lf_endPass(false);
    return;
  }
  ++c.fit;
}

void lf_begin(bool renewal, Slot now, std::int32_t wanted, std::int32_t have) {
  Calculation& c = lf_calc;
  c.renewal = renewal;
  c.now = now;
  c.wanted = wanted;
  c.have = have;
  c.accumulated.clear();
  c.found.reserve(workReserve);
  c.accumulated.reserve(workReserve);
  if (wanted > have)
    lf_beginPass(false);
  else
    c.stage = Stage::finishing;
}

void lf_sortByFit(bool freshestLast) {
  std::stable_sort(creationQueue.begin(), creationQueue.end(),
                   [&](const StaticRequest& a, const StaticRequest& b) {
                     return freshestLast ? a.fit > b.fit : a.fit < b.fit;
                   });
}

void lf_finishStart() {
  lf_sortByFit(false);
  if (creationQueue.size() > static_cast<std::size_t>(std::max(wantedStands, 0)))
    creationQueue.resize(static_cast<std::size_t>(std::max(wantedStands, 0)));
  if (creationQueue.empty()) {
    logLine("no parking positions found");
    endCalculating();
    return;
  }
  const auto p =
      std::lround(static_cast<double>(creationQueue.size()) * 100 / static_cast<double>(stands.size()));
  logLine(fmt::format("{} positions ({}% vs wanted {}%, with Max fit={} hours)\n", creationQueue.size(), p,
                      parking_percentage.value.load(), lf_hours(MAX_FIT.value)));
  lf_sortByFit(true);
  calculating = true;
}

// Live aircraft parked now; with ageOut those parked too long leave instead.
void lf_collectLiveStayers(bool ageOut) {
  liveStayers.clear();
  for (LiveAircraft& aircraft : liveAircraft) {
    if (aircraft.phase != Parked || aircraft.state != Alive) continue;
    const std::int64_t minutes = aircraft.standConfirmed ? 0 : minutesParked(aircraft);
    const std::int64_t limit = aircraft.category == categoryHeavy ? heavyParkMinutes : liveParkMinutes;
    if (ageOut && !INITIAL_LOAD_ONLY.value && minutes > limit) {
      requestRemove(aircraft);
      continue;
    }
    liveStayers.push_back({aircraft.callsign, aircraft.standId, minutes, aircraft.hexid});
  }
  std::stable_sort(liveStayers.begin(), liveStayers.end(),
                   [](const LiveStayer& a, const LiveStayer& b) { return a.minutes < b.minutes; });
}

ParkedStayer lf_stayer(const ParkedAircraft& parked) {
  return {parked.callsign, parked.callsignIn, parked.callsignOut, parked.regcode,
          parked.airline,  parked.type,       parked.arrivalTime, parked.standId};
}

// The statistic still shows the aircraft within the half hours the last search went back.
bool lf_stillValid(const ParkedAircraft& parked, const Stand& stand, Slot now) {
  const std::int32_t back = std::clamp(std::max(lastRealFit, lastSoftFit), 0, halfHoursPerDay - 1);
  for (const StandOption& option : stand.options) {
    if (option.airline != parked.airline || option.type != parked.type) continue;
    for (std::int32_t k = 0; k <= back; ++k) {
      const Slot slot = slotBefore(now, k);
      if (option.day == slot.day && option.halfHours.test(static_cast<std::size_t>(slot.halfHour)))
        return true;
    }
  }
  return false;
}

bool lf_collides(const ParkedAircraft& parked, const StaticRequest& request) {
  const Stand* stand = lf_stand(request.standId);
  return stand != nullptr && distanceNm(parked.standLat, parked.standLon, stand->lat, stand->lon) <
                                 aircraftRadius(parked.type) + aircraftRadius(request.type);
}

// The older of the parked aircraft and the queued one goes; a tie keeps the one that stands.
// The request queued for a stand, or null; a request given up has standId 0 until the queue is swept.
StaticRequest* lf_queuedOn(std::uint32_t standId) {
  if (standId >= lf_queuedOnStand.size() || lf_queuedOnStand[standId] < 0) return nullptr;
  StaticRequest& request = creationQueue[static_cast<std::size_t>(lf_queuedOnStand[standId])];
  return request.standId == standId ? &request : nullptr;
}

void lf_indexQueue() {
  lf_queuedOnStand.assign(stands.size() + 1, -1);
  for (std::size_t i = 0; i < creationQueue.size(); ++i)
    if (creationQueue[i].standId < lf_queuedOnStand.size() && lf_queuedOnStand[creationQueue[i].standId] < 0)
      lf_queuedOnStand[creationQueue[i].standId] = static_cast<std::int32_t>(i);
}

void lf_stays(const ParkedAircraft& parked, StaticRequest& request) {
  parkedStayers.push_back(lf_stayer(parked));
  request.standId = 0;
}

void lf_olderGoes(const ParkedAircraft& parked, StaticRequest& request, Slot now) {
  if (halfHoursSince(now, parked.arrivalTime) > request.fit)
    removalList.push_back({parked.callsign, parked.standId});
  else
    lf_stays(parked, request);
}

void lf_decideParked(const ParkedAircraft& parked, Slot now) {
  if (lf_inFeed(parked.callsignIn) || lf_inFeed(parked.callsignOut)) {
    removalList.push_back({parked.callsign, parked.standId});
    return;
  }
  if (StaticRequest* onStand = lf_queuedOn(parked.standId)) {
    if (onStand->airline == parked.airline && onStand->type == parked.type &&
        (parked.callsign == onStand->callsignIn + "*" || parked.callsign == onStand->callsignOut + "*"))
      lf_stays(parked, *onStand);
    else
      lf_olderGoes(parked, *onStand, now);
    return;
  }
  const Stand* stand = lf_stand(parked.standId);
  if (stand == nullptr) return;
  for (const std::uint32_t neighbour : stand->neighbours) {
    StaticRequest* beside = lf_queuedOn(neighbour);
    if (beside == nullptr || !lf_collides(parked, *beside)) continue;
    lf_olderGoes(parked, *beside, now);
    return;
  }
  if (lf_stillValid(parked, *stand, now))
    parkedStayers.push_back(lf_stayer(parked));
  else
    removalList.push_back({parked.callsign, parked.standId});
}

// A stayer shown with its arrival callsign whose statistic ends with this half hour.
bool lf_leavesNow(const ParkedStayer& stayer, Slot now) {
  if (stayer.callsignOut.empty()) return false;
  std::string shown = stayer.callsign;
  if (!shown.empty() && shown.back() == '*') shown.pop_back();
  if (shown != stayer.callsignIn) return false;
  const Stand* stand = lf_stand(stayer.standId);
  if (stand == nullptr) return false;
  const auto option = std::find_if(stand->options.begin(), stand->options.end(), [&](const StandOption& o) {
    return o.optionId > 0 && o.day == now.day && o.callsignIn == shown && o.airline == stayer.airline &&
           o.type == stayer.type;
  });
  if (option == stand->options.end()) return false;
  const Slot next = nextSlot(now);
  if (next.day == now.day) return !option->halfHours.test(static_cast<std::size_t>(next.halfHour));
  return std::none_of(stand->options.begin(), stand->options.end(), [&](const StandOption& o) {
    return o.day == next.day && o.airline == stayer.airline && o.type == stayer.type && o.halfHours.test(0);
  });
}

// The arrival flight turns into the departure flight.
void lf_turnAround(Slot now) {
  std::sort(parkedStayers.begin(), parkedStayers.end(), [now](const ParkedStayer& a, const ParkedStayer& b) {
    return halfHoursSince(now, a.arrivalTime) > halfHoursSince(now, b.arrivalTime);
  });
  for (ParkedStayer& stayer : parkedStayers) {
    stayer.leavesNow = lf_leavesNow(stayer, now);
    if (!stayer.leavesNow) continue;
    creationQueue.push_back({0, halfHoursSince(now, stayer.arrivalTime), stayer.airline, stayer.type,
                             stayer.standId, stayer.callsignIn, stayer.callsignOut, stayer.regcode, false,
                             false});
    removalList.push_back({stayer.callsign, stayer.standId});
  }
  std::erase_if(parkedStayers, [](const ParkedStayer& s) { return s.leavesNow; });
}

void lf_dropSurplus() {
  lf_sortByFit(false);
  std::int64_t x =
      static_cast<std::int64_t>(liveStayers.size() + parkedStayers.size() + creationQueue.size()) -
      wantedStands;
  for (; x > 0; --x) {
    if (!creationQueue.empty()) {
      creationQueue.pop_back();
    } else if (!parkedStayers.empty()) {
      removalList.push_back({parkedStayers.back().callsign, parkedStayers.back().standId});
      parkedStayers.pop_back();
    } else if (!liveStayers.empty() && !INITIAL_LOAD_ONLY.value) {
      if (LiveAircraft* live = findLive(liveStayers.back().hexid)) requestRemove(*live);
      liveStayers.pop_back();
    } else {
      return;
    }
  }
}

void lf_finishRenewal() {
  const Slot now = lf_calc.now;
  lf_indexQueue();
  for (const ParkedAircraft& parked : parkedAircraft)
    if (!parked.isRealParked && parked.state == Alive) lf_decideParked(parked, now);
  // A stayer that the search did not see again may share its registration with a request.
  TextSet staying;
  for (const ParkedStayer& stayer : parkedStayers)
    if (!stayer.regcode.empty()) staying.insert(stayer.regcode);
  std::erase_if(creationQueue,
                [&](const StaticRequest& r) { return r.standId == 0 || staying.contains(r.regcode); });
  lf_turnAround(now);
  lf_dropSurplus();
  lf_sortByFit(true);
  logLine(fmt::format("Parking adjustments: {} to be removed, {} to be added\n", removalList.size(),
                      creationQueue.size()));
  for (auto removal = removalList.rbegin(); removal != removalList.rend(); ++removal) {
    const auto parked =
        std::find_if(parkedAircraft.begin(), parkedAircraft.end(), [&](const ParkedAircraft& p) {
          return p.standId == removal->standId && p.state == Alive;
        });
    if (parked != parkedAircraft.end()) requestRemove(*parked);
  }
  if (!creationQueue.empty()) calculating = true;
}

} // namespace

double aircraftRadius(std::string_view type) {
  return halfWingspan(type);
}

bool standFits(const Stand& stand, double radius) {
  if (radius - stand.radius > widerNm) return false;
  const double step = radius <= smallStandNm ? smallStepNm : largeStepNm;
  return std::lround((stand.radius - radius) / step) == 0;
}

std::int32_t computeWanted() {
  const auto n = static_cast<std::int64_t>(stands.size());
  const std::int32_t percentage = parking_percentage.value;
  if (n == 1 || (n < 4 && percentage < 50))
    wantedStands = 1;
  else
    wantedStands = static_cast<std::int32_t>(std::lround(static_cast<double>(percentage * n) / 100));
  return wantedStands;
}

void addFakeOptions(std::vector<Stand>& standList, std::string_view airportCode, Slot now) {
  std::int32_t number = 1;
  const char letter = airportCode.empty() ? ' ' : airportCode.front();
  const FakeRows* byLetter = letter == 'K'   ? &fakeK
                             : letter == 'C' ? &fakeC
                             : letter == 'E' ? &fakeE
                             : letter == 'Z' ? &fakeZ
                             : letter == 'R' ? &fakeR
                                             : nullptr;
  for (Stand& stand : standList) {
    FakeRows rows;
    const auto fitting = [&](const FakeRows& table) {
      std::copy_if(table.begin(), table.end(), std::back_inserter(rows),
                   [&](const FakeRow& row) { return standFits(stand, aircraftRadius(row.type)); });
    };
    if (stand.heli)
      rows = {fakeHeli};
    else if (stand.cargo)
      fitting(fakeCargo);
    else if (stand.ramp)
      fitting(fakeRamp);
    else if (byLetter != nullptr)
      fitting(*byLetter);
    else
      rows = {fakeOther};
    if (rows.empty()) continue;
    const FakeRow& row = rows[randomIndex(rows.size())];
    StandOption option;
    option.airline = row.airline;
    option.type = row.type;
    option.regcode = fmt::format("REGFAKE{}", number);
    option.callsignIn = fmt::format("FAKE{}", number);
    option.halfHours.set(static_cast<std::size_t>(now.halfHour));
    option.optionId = stand.options.empty() ? 1 : stand.options.back().optionId + 1;
    option.day = now.day;
    option.soft = true;
    stand.options.push_back(std::move(option));
    ++number;
  }
}

void startStaticParking() {
  const Slot now = nowSlot();
  lf_logSlot(now);
  logLine("Making changes to airport parking parameters is disabled while static parking takes place ...");
  // Kept for the renewals: the lists don't grow while aircraft are made.
  creationQueue.reserve(256);
  parkedStayers.reserve(256);
  liveStayers.reserve(64);
  creationQueue.clear();
  liveStayers.clear();
  parkedStayers.clear();
  lf_takeOverFeedCallsigns();
  lf_clearStandMarks();
  markReserved();
  calculating = true;
  const std::int32_t wanted = computeWanted();
  lf_begin(false, now, wanted, static_cast<std::int32_t>(creationQueue.size()));
}

void renewStaticParking() {
  const Slot now = nowSlot();
  lf_logSlot(now);
  lf_takeOverFeedCallsigns();
  calculating = true;
  removalList.clear();
  parkedStayers.clear();
  liveStayers.clear();
  creationQueue.clear();
  lf_clearStandMarks();
  markReserved();
  const std::int32_t wanted = computeWanted();
  lf_collectLiveStayers(true);
  if (wanted > 0 && liveStayers.size() > static_cast<std::size_t>(wanted)) {
    const std::size_t surplus = liveStayers.size() - static_cast<std::size_t>(wanted);
    logLine(fmt::format("Parking adjustments: {} more live ac than wanted", surplus));
    removeOldestLive(surplus);
    lf_collectLiveStayers(false);
  }
  for (const LiveStayer& live : liveStayers)
    if (Stand* stand = lf_stand(live.standId)) lf_markOccupied(*stand);
  lf_begin(true, now, wanted, static_cast<std::int32_t>(liveStayers.size()));
  // Options disabled at the last calculation come back first.
  lf_calc.afterRenumbering = lf_calc.stage;
  lf_calc.stage = Stage::renumbering;
}

bool stepStaticParking() {
  switch (lf_calc.stage) {
  case Stage::idle:
    return false;
  case Stage::renumbering:
    lf_renumberStep();
    return true;
  case Stage::searching:
    lf_searchStep();
    return true;
  case Stage::finishing:
    lf_calc.stage = Stage::idle;
    if (lf_calc.renewal)
      lf_finishRenewal();
    else
      lf_finishStart();
    return true;
  }
  return false;
}

bool staticParkingRunning() {
  return lf_calc.stage != Stage::idle;
}

void serveRenewal(std::int32_t secondCount) {
  if (secondCount % 15 == 0 && renewalPending) {
    if (!renewalCollecting) {
      renewalCollecting = true;
      beginCalculating();
      {
        std::lock_guard lock(trafficReader.callsignLock);
        trafficReader.feedCallsigns.clear();
      }
      trafficReader.collectingCallsigns = true;
    } else {
      renewalCollecting = false;
      clearMessage();
      if (!parkAirportCode.empty() && !stands.empty()) renewStaticParking();
      renewalPending = false;
    }
  }
  if (secondCount % 1200 == 0 && parkingSessionOpen && !INITIAL_LOAD_ONLY.value && !renewalPending)
    renewalPending = true;
}

void dropQueuedOn(std::uint32_t standId) {
  std::erase_if(creationQueue, [standId](const StaticRequest& r) { return r.standId == standId; });
}

void refreshFitAverages() {
  const Slot now = nowSlot();
  std::int64_t sum = 0;
  std::int64_t count = 0;
  for (const LiveAircraft& live : liveAircraft)
    if (live.phase == Parked && live.state == Alive) {
      sum += halfHoursSince(now, live.arrivalTime);
      ++count;
    }
  for (const ParkedAircraft& parked : parkedAircraft)
    if (parked.state == Alive) {
      sum += halfHoursSince(now, parked.arrivalTime);
      ++count;
    }
  display.fitAverage =
      count == 0 ? 0.0f : static_cast<float>(static_cast<double>(sum) / static_cast<double>(2 * count) + 0.5);
}

void stopStaticParking() {
  lf_calc.stage = Stage::idle;
  lf_calc.found.clear();
  lf_calc.accumulated.clear();
  creationQueue.clear();
}

void resetStaticParking() {
  stopStaticParking();
  parkedStayers.clear();
  liveStayers.clear();
  removalList.clear();
  lf_heard.clear();
  wantedStands = 0;
  lastRealFit = lastSoftFit = -1;
}

} // namespace ory
