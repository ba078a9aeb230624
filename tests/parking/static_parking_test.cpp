#include "base/log.h"
#include "base/parameters.h"
#include "base/run.h"
#include "engine/geometry.h"
#include "engine/motion.h"
#include "engine/tables.h"
#include "feed/feed.h"
#include "liveries/dbase.h"
#include "parking/airport_file.h"
#include "parking/park_airports.h"
#include "parking/parked_aircraft.h"
#include "parking/stands.h"
#include "parking/static_parking.h"
#include "support/scratch.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <set>
#include <string>
#include <vector>

namespace ory {
namespace {

using test::logHas;

struct Opt {
  std::string cs; // "KLM1" or "KLM1:KLM2"
  std::int32_t day = 3;
  std::vector<std::int32_t> hh = {20};
  std::string reg;   // empty: "R-" and the callsign
  bool soft = false; //
  std::string airline = "KLM";
  std::string type = "B738";
};

struct StandSpec {
  std::vector<Opt> options;
  bool heli = false;
};

// Stands on a meridian, spacing metres apart, each of radius 20 metres.
void lf_makeStands(const std::vector<StandSpec>& specs, double spacing = 100) {
  stands.clear();
  for (const StandSpec& spec : specs) {
    Stand& stand = stands.emplace_back();
    stand.id = fmt::format("S{}", stands.size());
    stand.standId = static_cast<std::uint32_t>(stands.size());
    stand.lat = 52 + (stands.size() - 1) * spacing * nmPerMetre / 60;
    stand.lon = 4;
    stand.radius = 20 * nmPerMetre;
    stand.heli = spec.heli;
    for (const Opt& o : spec.options) {
      StandOption& option = stand.options.emplace_back();
      const std::size_t colon = o.cs.find(':');
      option.callsignIn = o.cs.substr(0, colon);
      option.callsignOut = colon == std::string::npos ? "" : o.cs.substr(colon + 1);
      option.regcode = o.reg.empty() ? "R-" + option.callsignIn : o.reg;
      option.airline = o.airline;
      option.type = o.type;
      option.day = o.day;
      option.soft = o.soft;
      option.optionId = static_cast<std::int32_t>(stand.options.size());
      for (const std::int32_t bit : o.hh)
        option.halfHours.set(static_cast<std::size_t>(bit));
    }
  }
  findOverlaps(stands);
}

// 5 January 1970 was a Monday.
void lf_setNow(std::int32_t day, std::int32_t halfHour) {
  rtProfessional = true;
  lastFeedTime = (4.0 + day - 1) * 86400 + halfHour * 1800 + 60;
  updateNowSlot();
}

// Between steps the engine's creation step finds the queue not yet to be taken from.
std::int32_t lf_runToEnd() {
  std::int32_t steps = 0;
  while (stepStaticParking()) {
    ++steps;
    if (!staticParkingRunning()) continue;
    const std::size_t queued = creationQueue.size();
    makeNextParked();
    EXPECT_EQ(creationQueue.size(), queued);
  }
  return steps;
}

// "stand:fit", with "s" when the aircraft stays into the next half hour, by stand.
std::string lf_queued() {
  std::vector<const StaticRequest*> sorted;
  for (const StaticRequest& request : creationQueue)
    sorted.push_back(&request);
  std::sort(sorted.begin(), sorted.end(), [](auto a, auto b) { return a->standId < b->standId; });
  std::string text;
  for (const StaticRequest* r : sorted)
    text += fmt::format("{}{}:{}{}", text.empty() ? "" : " ", r->standId, r->fit,
                        r->staysNextHalfHour ? "s" : "");
  return text;
}

class StaticParkingTest : public test::InScratchFolder {
protected:
  void SetUp() override {
    openLog();
    test::installPreparedData(".");
    ASSERT_TRUE(readDbase());
    resetParking();
  }
  void TearDown() override {
    resetParking();
    resetStands();
    clearDbase();
    closeLog();
  }
  static void resetParking() {
    for (IntParameter* number : {&parking_percentage, &MAX_FIT})
      number->value = number->defaultValue;
    for (BoolParameter* flag : {&WEEK, &PARK_FAKE, &PARK_SOFT, &INITIAL_LOAD_ONLY, &HELICOPTERS})
      flag->value = flag->defaultValue;
    RANDOM.value = false;
    rtProfessional = false;
    lastFeedTime = 0;
    forgetParkAirports();
    resetEngineTables();
    trafficReader.feedCallsigns.clear();
    trafficReader.collectingCallsigns = false;
    renewalPending = renewalCollecting = false;
  }
};

TEST_F(StaticParkingTest, theShareOfStandsToFill) {
  struct Row {
    std::size_t stands;
    std::int32_t percentage, wanted;
  };
  for (const Row& row : {Row{1, 0, 1}, Row{1, 100, 1}, Row{3, 49, 1}, Row{3, 50, 2}, Row{4, 30, 1},
                         Row{4, 49, 2}, Row{10, 30, 3}}) {
    lf_makeStands(std::vector<StandSpec>(row.stands));
    parking_percentage.value = row.percentage;
    EXPECT_EQ(computeWanted(), row.wanted) << row.stands << " stands at " << row.percentage << "%";
  }
}

TEST_F(StaticParkingTest, theSearchFillsStandsFromTheFreshestStatisticsOnward) {
  struct Row {
    const char* probe;
    std::vector<StandSpec> stands;
    std::string queued;
    std::function<void()> tweak; // after Wednesday 10:00, 100 percent, the parameters' defaults
  };
  const std::vector<Row> rows = {
      {"fit 0 on every stand first",
       {{{{"KLM1", 3, {19}}, {"KLM2", 3, {20}}}}, {{{"KLM3", 3, {10}}}}},
       "1:0s 2:10s"},
      {"MAX_FIT 0: the current half hour alone",
       {{{{"KLM1"}}}, {{{"KLM2", 3, {19}}}}},
       "1:0s",
       [] { MAX_FIT.value = 0; }},
      {"fit 1 just after midnight is the previous weekday's last",
       {{{{"KLM1", 2, {47}}}}, {{{"KLM2", 3, {47}}}}},
       "1:1s",
       [] { lf_setNow(3, 0); }},
      {"WEEK on: a Monday statistic counts on Sunday",
       {{{{"KLM1", 1, {20}}}}},
       "1:0s",
       [] {
         lf_setNow(7, 20);
         WEEK.value = true;
       }},
      {"WEEK off: it doesn't", {{{{"KLM1", 1, {20}}}}}, "", [] { lf_setNow(7, 20); }},
      {"a registration once; the stand takes its next option at the next fit",
       {{{{"KLM1", 3, {20}, "PH-A"}}}, {{{"KLM2", 3, {20}, "PH-A"}, {"KLM3", 3, {19}, "PH-B"}}}},
       "1:0s 2:1s"},
      {"four at fit 0 for three wanted: the last in stand order goes",
       {{{{"KLM1"}}}, {{{"KLM2"}}}, {{{"KLM3"}}}, {{{"KLM4"}}}},
       "1:0s 2:0s 3:0s",
       [] { parking_percentage.value = 75; }},
      {"no helipad with HELICOPTERS off",
       {{{{"HLX1", 3, {20}, "", false, "PVT", "EC35"}}, true}, {{{"KLM2"}}}},
       "2:0s",
       [] { HELICOPTERS.value = false; }},
      {"a neighbour of an occupied stand is blocked",
       {{{{"KLM1"}}}, {{{"KLM2"}}}},
       "1:0s",
       [] {
         lf_makeStands({{{{"KLM1"}}}, {{{"KLM2"}}}}, 30);
       }},
      {"soft statistics fill what the real ones leave",
       {{{{"KLM1"}}}, {{{"KLM2", 3, {20}, "", true}}}},
       "1:0s 2:0s"},
      {"without PARK_SOFT they don't",
       {{{{"KLM1"}}}, {{{"KLM2", 3, {20}, "", true}}}},
       "1:0s",
       [] { PARK_SOFT.value = false; }},
      {"the user's stand stays free", {{{{"KLM1"}}}, {{{"KLM2"}}}}, "2:0s", [] { reservedStand = "S1"; }},
      {"flying callsigns and their ghosts are not parked",
       {{{{"KLM1"}}}, {{{"KLM2:KLM8"}}}, {{{"KLM3"}}}, {{{"KLM4", 3, {20, 21}}}}},
       "4:0s",
       [] {
         trafficReader.feedCallsigns = {"KLM1", "KLM8", "KLM3_"};
       }},
      {"an aircraft leaving after this half hour shows its departure callsign",
       {{{{"KLM1:KLM2", 3, {20}}}}, {{{"KLM3:KLM4", 3, {20, 21}}}}},
       "1:0 2:0s"},
      {"over midnight the next weekday's first half hour tells",
       {{{{"KLM1:KLM2", 3, {47}}, {"KLM1:KLM2", 4, {0}}}}, {{{"KLM3:KLM4", 3, {47}}}}},
       "1:0s 2:0",
       [] { lf_setNow(3, 47); }},
  };
  for (const Row& row : rows) {
    resetParking();
    lf_makeStands(row.stands);
    lf_setNow(3, 20);
    parking_percentage.value = 100;
    if (row.tweak) row.tweak();
    startStaticParking();
    const std::int32_t steps = lf_runToEnd();
    EXPECT_EQ(lf_queued(), row.queued) << row.probe;
    EXPECT_LE(steps, 2 * (MAX_FIT.value + 1) + 1)
        << row.probe << ": a fit a step, a real and a soft pass, the end";
    EXPECT_EQ(calculating, !creationQueue.empty()) << row.probe;
  }
  EXPECT_TRUE(logHas("It is day 3 (Wednesday), 10.5 hours"));
  EXPECT_TRUE(logHas("3 positions (75% vs wanted 75%, with Max fit=24.0 hours)"));
  EXPECT_TRUE(logHas("1 real position found, Max fit=0.5 hours, day 3, hh:20 or 10 hrs fit: 0.5 hour"));
  EXPECT_TRUE(logHas("no parking positions found"));
}

TEST_F(StaticParkingTest, fakeOptionsFillTheStandsByKindAndAirportButNeverAHelipadWithoutHelicopters) {
  lf_makeStands({{}, {}, {}, {{}, true}});
  stands[0].radius = 18 * nmPerMetre;
  stands[1].cargo = true;
  stands[1].radius = 24 * nmPerMetre;
  stands[2].ramp = true;
  stands[2].radius = 10 * nmPerMetre;
  lf_setNow(3, 20);
  addFakeOptions(stands, "EHAM", nowSlot());
  std::vector<std::string> made;
  for (const Stand& stand : stands)
    for (const StandOption& o : stand.options)
      made.push_back(fmt::format("{} {} {} {} {} {}{}", o.airline, o.type, o.regcode, o.callsignIn, o.day,
                                 o.halfHours.to_ullong() == 1ull << 20 ? "hh20" : "?",
                                 o.soft ? " soft" : ""));
  // The first row of each table that fits the stand (A320 on 18 metres, B752 on 24, C172 on 10), RANDOM off.
  EXPECT_EQ(made, (std::vector<std::string>{
                      "SAS A320 REGFAKE1 FAKE1 3 hh20 soft", "FDX B752 REGFAKE2 FAKE2 3 hh20 soft",
                      "PVT C172 REGFAKE3 FAKE3 3 hh20 soft", "PVT EC35 REGFAKE4 FAKE4 3 hh20 soft"}));
  stands[0].options.clear();
  addFakeOptions(stands, "YSSY", nowSlot());
  EXPECT_EQ(stands[0].options.front().airline + stands[0].options.front().type, "ZZZB738");

  PARK_FAKE.value = true;
  HELICOPTERS.value = false;
  parking_percentage.value = 100;
  startStaticParking();
  lf_runToEnd();
  EXPECT_EQ(lf_queued(), "1:0s 2:0s 3:0s");
  EXPECT_TRUE(logHas("3 soft positions found"));
}

TEST_F(StaticParkingTest, theRenewalKeepsWhatStillFitsAndSwapsTheRest) {
  constexpr std::int64_t minute = 60000;
  const auto parked = [](std::uint32_t standId, std::string callsign, std::string in, std::string out,
                         std::int32_t halfHoursAgo, std::uint32_t objectId, std::string airline = "KLM") {
    ParkedAircraft p;
    p.standId = standId;
    p.standLat = stands[standId - 1].lat;
    p.standLon = stands[standId - 1].lon;
    p.callsign = std::move(callsign);
    p.callsignIn = std::move(in);
    p.callsignOut = std::move(out);
    p.airline = std::move(airline);
    p.type = p.airline == "KLM" ? "B738" : "A320";
    p.arrivalTime = 3u | static_cast<std::uint32_t>(20 - halfHoursAgo) << 16;
    p.objectId = objectId;
    p.state = Alive;
    return p;
  };
  for (const bool initialLoadOnly : {false, true}) {
    resetParking();
    lf_makeStands(
        {{{{"KLM1"}}}, {{{"KLM2"}}}, {{{"KLM3", 2, {10}}}}, {{{"KLM4"}}}, {{{"KLM5:KLM6", 3, {20}}}}, {}});
    lf_setNow(3, 20);
    parkAirportCode = "EHAM";
    parkingSessionOpen = true;
    INITIAL_LOAD_ONLY.value = initialLoadOnly;
    parking_percentage.value = 100;
    parkedAircraft = {parked(1, "KLM1*", "KLM1", "", 0, 21),         // the statistic still shows it: stays
                      parked(2, "DLH9*", "DLH9", "", 10, 22, "DLH"), // older than the fresh KLM2: goes
                      parked(3, "KLM3*", "KLM3", "", 5, 23),         // its statistic is too old now: goes
                      parked(4, "KLM4*", "KLM4", "", 0, 24),         // heard in the air: goes
                      parked(5, "KLM5*", "KLM5", "KLM6", 2, 25)};    // leaves now: KLM6 takes its place
    parkedAircraft[0].regcode = "R-KLM2"; // so KLM2 is not made: one registration once
    LiveAircraft& live = liveAircraft.emplace_back();
    live.hexid = 0x484001;
    live.objectId = 31;
    live.standId = 6;
    live.phase = Parked;
    live.state = Alive;
    live.parkedSince = steadyMilliseconds() - 100 * minute;

    serveRenewal(1200);
    EXPECT_EQ(renewalPending, !initialLoadOnly) << "20 minutes are up";
    if (initialLoadOnly) {
      renewStaticParking(); // as a changed parking parameter asks for it
    } else {
      serveRenewal(1215);
      EXPECT_TRUE(trafficReader.collectingCallsigns && renewalCollecting && calculating);
      trafficReader.feedCallsigns.insert("KLM4"); // the reader hears it meanwhile
      serveRenewal(1230);
      EXPECT_FALSE(renewalPending || renewalCollecting || trafficReader.collectingCallsigns);
    }
    lf_runToEnd();
    std::vector<std::uint32_t> removed(pendingRemoveObjects.begin(), pendingRemoveObjects.end());
    std::sort(removed.begin(), removed.end());
    std::vector<std::string> queued;
    for (const StaticRequest& r : creationQueue)
      queued.push_back(fmt::format("{} {}:{} fit {}{}", r.standId, r.callsignIn, r.callsignOut, r.fit,
                                   r.staysNextHalfHour ? " stays" : ""));
    if (initialLoadOnly) {
      EXPECT_EQ(removed, (std::vector<std::uint32_t>{22, 23, 25})) << "nothing heard, and no live by age";
    } else {
      EXPECT_EQ(removed, (std::vector<std::uint32_t>{22, 23, 24, 25, 31}));
      EXPECT_TRUE(logHas("Parking adjustments: 4 to be removed, 1 to be added"));
    }
    EXPECT_EQ(queued, (std::vector<std::string>{"5 KLM5:KLM6 fit 2"}));
  }
}

} // namespace
} // namespace ory
