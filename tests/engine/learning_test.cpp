// The stand statistics learned from live traffic: visits counted on a stand, the guard against counting an
// aircraft twice, the stand guessed for an aircraft without one, and a park airport's whole session from
// parking to the saved learned file.
#include "engine/stand_choice.h"
#include "engine_world.h"
#include "parking/airport_file.h"
#include "parking/park_airports.h"
#include "parking/stand_learning.h"
#include "parking/stands.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace ory {
namespace {

using test::Report;

constexpr double airportLat = 52.3086;
constexpr double airportLon = 4.7639;
constexpr double metresNorth = 1 / 111120.0; // degrees of latitude per metre on the sphere
constexpr double metresEast = 1 / (metresPerDegree * 0.6156615); // degrees of longitude per metre here

// One option as a line: id, day, half hours, airline, type, regcode, callsign, soft.
std::string lf_optionText(const StandOption& o) {
  return fmt::format("{} d{} [{}] {} {} {} {}{}", o.optionId, o.day, slotsToText(o.halfHours), o.airline,
                     o.type, o.regcode, o.callsignIn, o.soft ? " soft" : "");
}

std::vector<std::string> lf_optionTexts(const Stand& stand) {
  std::vector<std::string> texts;
  for (const StandOption& option : stand.options)
    texts.push_back(lf_optionText(option));
  return texts;
}

class LearningTest : public test::EngineTest {
protected:
  void SetUp() override {
    EngineTest::SetUp();
    test::DbaseContent dbase = test::worldDbase();
    dbase.airframes.push_back({"PH-BXA", "KLM", "B739", "TRA"}); // operated by Transavia
    test::installDatabase(dbase);
    parkAirportCode = "EHAM";
    parkAirportLat = airportLat;
    parkAirportLon = airportLon;
    parkAltitude = -11;
    updateNowSlot();
  }
  void TearDown() override {
    resetStands();
    parkAirportCode.clear();
    softLearningAllowed = false;
    EngineTest::TearDown();
  }
  // A stand radius metres wide, metresFromAirport east of the airport's point.
  static Stand& addStand(std::string id, double radius, double metresFromAirport = 0) {
    Stand& stand = stands.emplace_back();
    stand.id = std::move(id);
    stand.standId = static_cast<std::uint32_t>(stands.size());
    stand.lat = airportLat;
    stand.lon = airportLon + metresFromAirport * metresEast;
    stand.heading = pi;
    stand.radius = radius * nmPerMetre;
    return stand;
  }
  static LiveAircraft aircraft(std::string regcode = "PH-BXA") {
    LiveAircraft a;
    a.hexid = 0x484001;
    a.callsign = "KLM601";
    a.airline = "KLM";
    a.type = "B738";
    a.regcode = std::move(regcode);
    a.category = 2;
    a.halfWingSpan = 17.9 * nmPerMetre;
    return a;
  }
};

// ---- Visits on one stand

TEST_F(LearningTest, visitsMakeAndExtendOptionsOncePerHalfHour) {
  struct Call {
    Slot slot;
    bool leaving = false;
    bool counts = true;
  };
  struct Case {
    std::string what;
    std::vector<Call> calls;
    std::vector<std::string> options;
    std::string regcode = "PH-BXA";
    bool archived = false; // the stand holds an archived option of this aircraft on day 3, half hour 5
  };
  const std::string archived = "1 d3 [5] KLM B738 PH-BXA KLM601";
  const std::vector<Case> cases = {
      {"the first visit makes option 1 with one bit, from the database's operator and type",
       {{{3, 20}}},
       {"1 d3 [20] TRA B739 PH-BXA KLM601"}},
      {"an aircraft the database doesn't know keeps the feed's airline and type",
       {{{3, 20}}},
       {"1 d3 [20] KLM B738 PH-BY KLM601"},
       "PH-BY"},
      {"seen twice in one half hour it counts once",
       {{{3, 20}}, {{3, 20}, false, false}},
       {"1 d3 [20] TRA B739 PH-BXA KLM601"}},
      {"the next day makes a new option",
       {{{3, 20}}, {{4, 20}}},
       {"1 d3 [20] TRA B739 PH-BXA KLM601", "2 d4 [20] TRA B739 PH-BXA KLM601"}},
      {"leaving five half hours later fills the gap",
       {{{3, 20}}, {{3, 25}, true}},
       {"1 d3 [20,21,22,23,24,25] TRA B739 PH-BXA KLM601"}},
      {"leaving six half hours later leaves the gap open",
       {{{3, 20}}, {{3, 26}, true}},
       {"1 d3 [20,26] TRA B739 PH-BXA KLM601"}},
      {"a stay from 23:30 into 00:00 makes an option of the next day",
       {{{3, 47}}, {{4, 0}, true}},
       {"1 d3 [47] TRA B739 PH-BXA KLM601", "2 d4 [0] TRA B739 PH-BXA KLM601"}},
      {"a stay from Sunday into Monday",
       {{{7, 47}}, {{1, 0}, true}},
       {"1 d7 [47] TRA B739 PH-BXA KLM601", "2 d1 [0] TRA B739 PH-BXA KLM601"}},
      {"over midnight with an option of the new day the gap is filled on both days",
       {{{4, 10}}, {{3, 46}}, {{4, 1}, true}},
       {"1 d4 [1,10] TRA B739 PH-BXA KLM601", "2 d3 [46,47] TRA B739 PH-BXA KLM601",
        "3 d4 [0,1] TRA B739 PH-BXA KLM601"}},
      {"an archived option is never changed", {{{3, 20}, false, false}}, {archived}, "PH-BXA", true},
      {"an aircraft without regcode is never learned",
       {{{3, 20}, false, false}, {{3, 21}, true, false}},
       {},
       ""},
      {"a half hour out of range changes nothing",
       {{{3, 20}}, {{3, 48}, true, false}},
       {"1 d3 [20] TRA B739 PH-BXA KLM601"}},
  };
  for (const Case& c : cases) {
    resetStands();
    Stand& stand = addStand("D1", 20);
    if (c.archived) {
      StandOption option;
      option.airline = "KLM";
      option.type = "B738";
      option.regcode = "PH-BXA";
      option.callsignIn = "KLM601";
      option.halfHours.set(5);
      option.optionId = 1;
      option.day = 3;
      stand.options.push_back(option);
    }
    const LiveAircraft a = aircraft(c.regcode);
    std::int32_t counted = 0;
    for (std::size_t i = 0; i < c.calls.size(); ++i) {
      const Call& call = c.calls[i];
      EXPECT_EQ(addRealVisit(1, a, call.leaving, call.slot, call.leaving), call.counts)
          << c.what << ", call " << i;
      counted += call.counts ? 1 : 0;
    }
    EXPECT_EQ(lf_optionTexts(stands[0]), c.options) << c.what;
    EXPECT_EQ(updateCount, counted) << c.what;
    EXPECT_TRUE(std::all_of(stands[0].options.begin(), stands[0].options.end(), [&](const StandOption& o) {
      return o.learned || c.archived;
    })) << c.what;
  }
  EXPECT_TRUE(test::logHas("Add real option exception, hh_now: 48, "));
  // A soft visit is counted apart from the real ones.
  const LiveAircraft a = aircraft();
  EXPECT_TRUE(addSoftVisit(1, a, false, {3, 20}));
  EXPECT_FALSE(addSoftVisit(1, a, false, {3, 20}));
  EXPECT_EQ(lf_optionTexts(stands[0]).back(), "2 d3 [20] TRA B739 PH-BXA KLM601 soft");
  EXPECT_EQ(stands[0].softVisits.count(a.hexid), 1u);
}

TEST_F(LearningTest, anAircraftIsCountedAgainOnlyThreeHalfHoursLaterAndTheWeekGoesRound) {
  struct Case {
    Slot slot;
    bool force;
    bool counts;
  };
  const std::vector<Case> cases = {
      {{3, 46}, false, true},  // new
      {{3, 47}, false, false}, // one later
      {{4, 0}, false, false},  // two later, over midnight
      {{4, 0}, true, true},    // forced
      {{4, 3}, false, true},   // three later
  };
  for (const Case& c : cases)
    EXPECT_EQ(countVisit(0x484001, c.slot, c.force), c.counts) << slotText(c.slot);
  ASSERT_EQ(realStandHexids.size(), 1u);
  EXPECT_EQ(unpackSlot(realStandHexids.front().second), (Slot{4, 3}));
  forgetVisit(0x484001);
  EXPECT_TRUE(realStandHexids.empty());
  EXPECT_EQ(nextSlot({7, 47}), (Slot{1, 0}));
  EXPECT_EQ(nextSlot({3, 47}), (Slot{4, 0}));
  EXPECT_EQ(nextSlot({3, 10}), (Slot{3, 11}));
}

// ---- Which stand

TEST_F(LearningTest, theStandFoundUnderAnAircraftMayBeSlightlyTooSmallOnlyWhenItIsClose) {
  struct Case {
    std::string what;
    double tooWide; // metres the aircraft's half span exceeds the stand's radius
    double off;     // metres from the stand
    bool found;
    double radius; // metres afterwards
  };
  const std::vector<Case> cases = {
      {"1.7 metres too wide, 50 metres off", 1.7, 50, true, 20},
      {"2 metres too wide, 21 metres off", 2, 21, false, 20},
      {"2 metres too wide, 15 metres off: the stand grows", 2, 15, true, 21},
  };
  for (const Case& c : cases) {
    resetStands();
    addStand("D1", 20);
    LiveAircraft a = aircraft();
    a.halfWingSpan = (20 + c.tooWide) * nmPerMetre;
    const std::uint32_t found =
        findStandAt(airportLat + c.off * metresNorth, airportLon, a, 0.029697624190064796, true);
    EXPECT_EQ(found, c.found ? 1u : 0u) << c.what;
    EXPECT_NEAR(stands[0].radius / nmPerMetre, c.radius, 1e-9) << c.what;
    EXPECT_EQ(stands[0].radiusChanged, c.radius != 20) << c.what;
    EXPECT_EQ(updateCount, c.radius != 20 ? 1 : 0) << c.what;
  }
}

TEST_F(LearningTest, theGuessedStandFitsTheAircraftsKindSizeAndStatistics) {
  struct StandSpec {
    std::string id;
    double radius = 20; // metres
    bool ramp = false;
    bool cargo = false;
    bool heli = false;
    bool takenNow = false; // another aircraft's option holds the half hour
    bool knows = false;    // an option of another half hour accepts the aircraft
  };
  struct Case {
    std::string what;
    std::vector<StandSpec> stands;
    std::string expected; // empty: none
    std::uint32_t category = 2;
    bool cargo = false;
    std::string code = "EHAM";
  };
  std::vector<StandSpec> elevenTaken;
  for (int i = 0; i < 11; ++i)
    elevenTaken.push_back({fmt::format("G{}", i), 20, false, false, false, true});
  const std::vector<Case> cases = {
      {"a helicopter at a gate gets none", {{"G1"}}, "", 5},
      {"a helicopter takes the helipad", {{"G1"}, {"H1", 8, false, false, true}}, "H1", 5},
      {"two equal free gates give the first", {{"G1"}, {"G2"}}, "G1"},
      {"the closer fit wins", {{"G1", 30}, {"G2", 19}}, "G2"},
      {"a gate taken in this half hour is passed over",
       {{"G1", 20, false, false, false, true}, {"G2"}},
       "G2"},
      {"statistics that know the airline win at an equal fit",
       {{"G1"}, {"G2", 20, false, false, false, false, true}},
       "G2"},
      {"a cargo aircraft takes the cargo stand", {{"G1"}, {"C1", 20, false, true}}, "C1", 2, true},
      {"a light aircraft takes the ramp", {{"G1"}, {"R1", 20, true}}, "R1", 1},
      {"a light aircraft doesn't take a gate", {{"G1"}}, "", 1},
      {"an American airport fills its gates first", {{"R1", 20, true}, {"G1"}}, "G1", 2, false, "KMSP"},
      {"elsewhere the ramp may come first", {{"R1", 20, true}, {"G1"}}, "R1"},
      {"a small airport full now tries the next half hour", {{"G1", 20, false, false, false, true}}, "G1"},
      {"a large one doesn't", elevenTaken, ""},
  };
  const Slot now{3, 20};
  for (const Case& c : cases) {
    resetStands();
    parkAirportCode = c.code;
    for (const StandSpec& spec : c.stands) {
      Stand& stand = addStand(spec.id, spec.radius);
      stand.ramp = spec.ramp;
      stand.cargo = spec.cargo;
      stand.heli = spec.heli;
      StandOption option;
      option.optionId = 1;
      option.day = now.day;
      option.airline = spec.knows ? "KLM" : "DLH";
      option.type = spec.knows ? "B738" : "A320";
      option.halfHours.set(spec.takenNow ? now.halfHour : 3);
      stand.options.push_back(option);
    }
    LiveAircraft a = aircraft();
    a.category = c.category;
    a.cargo = c.cargo;
    if (c.category != 2) a.halfWingSpan = 6 * nmPerMetre;
    const std::uint32_t chosen = chooseStandForLearning(now, a, true);
    EXPECT_EQ(standName(chosen), c.expected.empty() ? "sid==0?" : c.expected) << c.what;
  }
}

// ---- A session at the park airport

// Three 737s at a park airport of three stands: one parks on D1, goes and comes back in the same half hour,
// and leaves; one without regcode parks on D3; one taxies near the airport and is lost from the feed. What is
// learned is saved into the learned file and read back.
TEST_F(LearningTest, aSessionAtTheParkAirportLearnsWhatItSawAndSavesIt) {
  for (int i = 0; i < 3; ++i)
    addStand(fmt::format("D{}", i + 1), 20, 61.0 * i);
  installLiveries({{"KLM", "B738", "KLM 737"}, {"TRA", "B739", "Transavia 737-900"}});
  parkPublisher = "stock";
  parkingSessionOpen = true;
  LEARN_SOFT.value = true;
  softLearningAllowed = true;
  const Slot now = nowSlot();
  const auto standing = [](std::uint32_t hexid, std::string callsign, std::string regcode, double east,
                           double north, double timestamp) {
    Report r;
    r.hexid = hexid;
    r.callsign = std::move(callsign);
    r.regcode = std::move(regcode);
    r.lat = airportLat + north * metresNorth;
    r.lon = airportLon + east * metresEast;
    r.altitude = 0;
    r.speed = 0;
    r.timestamp = timestamp;
    return r;
  };
  const auto parkOn = [&](std::uint32_t hexid, std::string callsign, std::string regcode, double east,
                          double timestamp) {
    for (int i = 0; i < 3; ++i) {
      queue(standing(hexid, callsign, regcode, east, 0, timestamp + 20.0 * i));
      ticks(10);
    }
    return bringAlive(hexid);
  };

  // Parked on D1, counted once although the feed brings the same arrival a second time.
  const std::uint32_t first = parkOn(0x484001, "KLM601", "PH-BXA", 2, 1000);
  ASSERT_NE(first, 0u);
  EXPECT_EQ(findLive(0x484001)->standId, 1u);
  EXPECT_EQ(updateCount, 1);
  requestRemove(*findLive(0x484001));
  pushSimCommand({first, 0, 0, commandRemoved, 0, 0});
  ticks(20);
  ASSERT_EQ(findLive(0x484001), nullptr);
  ASSERT_NE(parkOn(0x484001, "KLM601", "PH-BXA", 2, 1100), 0u);
  EXPECT_EQ(updateCount, 1) << "the same arrival is counted once";
  const std::string d1 = fmt::format("1 d{} [{}] TRA B739 PH-BXA KLM601", now.day, now.halfHour);
  EXPECT_EQ(lf_optionTexts(stands[0]), std::vector<std::string>{d1});

  // Leaving in the same half hour adds nothing and ends the visit.
  queue(standing(0x484001, "KLM601", "PH-BXA", 2, 120, 1200));
  ticks(200);
  EXPECT_TRUE(stands[0].realVisits.empty());
  EXPECT_EQ(updateCount, 1);

  // Without regcode: parked, never learned.
  ASSERT_NE(parkOn(0x484002, "KLM602", "", 124, 1000), 0u);
  EXPECT_EQ(findLive(0x484002)->standId, 3u);
  EXPECT_TRUE(stands[2].options.empty());

  // Taxiing near the airport and lost from the feed: its stand is guessed among the free ones.
  Report taxi = standing(0x484003, "KLM603", "PH-BXB", 30, -300, 1000);
  taxi.speed = 15;
  taxi.track = 90;
  fly(taxi, 4, 5);
  ASSERT_NE(bringAlive(0x484003), 0u);
  for (int i = 0; i < 20000 && findLive(0x484003) != nullptr && findLive(0x484003)->state != Removing; ++i)
    engineTick();
  ASSERT_EQ(stands[1].options.size(), 1u);
  EXPECT_EQ(lf_optionText(stands[1].options[0]),
            fmt::format("1 d{} [{}] KLM B738 PH-BXB KLM603 soft", now.day, now.halfHour));
  EXPECT_EQ(updateCount, 2);

  // Saved when the airport closes, and read back as the next start reads it.
  closeParkAirport();
  std::vector<Stand> next = stands;
  for (Stand& stand : next)
    stand.options.clear();
  readLearned("airports/learned/stock/EHAM.xml", "", next);
  EXPECT_EQ(lf_optionTexts(next[0]), std::vector<std::string>{d1});
  ASSERT_EQ(next[1].options.size(), 1u);
  EXPECT_TRUE(next[1].options[0].soft);
  EXPECT_TRUE(next[2].options.empty());
}

} // namespace
} // namespace ory
