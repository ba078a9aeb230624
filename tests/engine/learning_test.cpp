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

#include <sstream>
#include <tuple>

namespace ory {
namespace {

using test::Report;

constexpr double airportLat = 52.3086;
constexpr double airportLon = 4.7639;
constexpr double metresNorth = 1 / 111120.0; // degrees of latitude per metre on the sphere
constexpr double metresEast = 1 / (metresPerDegree * 0.6156615); // degrees of longitude per metre here

// Options as "1 d3 [20,21]; 2 d4 [0] soft".
std::string lf_options(const Stand& stand) {
  std::string text;
  for (const StandOption& o : stand.options)
    text += fmt::format("{}{} d{} [{}]{}", text.empty() ? "" : "; ", o.optionId, o.day,
                        slotsToText(o.halfHours), o.soft ? " soft" : "");
  return text;
}

// "3/20L": day 3, half hour 20, and marks after it.
Slot lf_slot(const std::string& call) {
  return {std::stoi(call), std::stoi(call.substr(call.find('/') + 1))};
}

std::string lf_fullOption(const StandOption& o) {
  return fmt::format("{} {} {} {}{}", o.airline, o.type, o.regcode, o.callsignIn, o.soft ? " soft" : "");
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

// calls: "day/halfhour" for an arrival, with "L" for leaving, and "x" when it must not count.
TEST_F(LearningTest, visitsMakeAndExtendOptionsOncePerHalfHour) {
  struct Case {
    std::string what, calls, options, regcode = "PH-BXA";
  };
  const std::vector<Case> cases = {
      {"the first visit makes option 1 with one bit", "3/20", "1 d3 [20]"},
      {"seen twice in one half hour it counts once", "3/20 3/20x", "1 d3 [20]"},
      {"the next day makes a new option", "3/20 4/20", "1 d3 [20]; 2 d4 [20]"},
      {"leaving five half hours later fills the gap", "3/20 3/25L", "1 d3 [20,21,22,23,24,25]"},
      {"seen again six half hours later the gap stays open", "3/20 3/26", "1 d3 [20,26]"},
      {"seen again after leaving is a new visit", "3/20 3/21L 3/23 3/24", "1 d3 [20,21,23,24]"},
      {"a stay from 23:30 into 00:00 makes an option of the next day", "3/47 4/0L", "1 d3 [47]; 2 d4 [0]"},
      {"a stay from Sunday into Monday", "7/47 1/0L", "1 d7 [47]; 2 d1 [0]"},
      {"over midnight onto a day with an option, the gap is filled on both days", "4/10 3/46 4/1L",
       "1 d4 [1,10]; 2 d3 [46,47]; 3 d4 [0,1]"},
      {"an archived option is never changed", "3/5x 3/20x", "1 d3 [5]"},
      {"an aircraft without regcode is never learned", "3/20x 3/21Lx", "", ""},
      {"a half hour out of range changes nothing", "3/20 3/48Lx", "1 d3 [20]"},
  };
  for (const Case& c : cases) {
    resetStands();
    Stand& stand = addStand("D1", 20);
    const bool archived = c.what.starts_with("an archived");
    if (archived) stand.options.push_back({"KLM", "B738", "PH-BXA", "KLM601", "", HalfHours(1u << 5), 1, 3});
    const LiveAircraft a = aircraft(c.regcode);
    std::int32_t counted = 0;
    std::istringstream calls(c.calls);
    for (std::string call; calls >> call;) {
      const Slot slot = lf_slot(call);
      const bool leaving = call.find('L') != std::string::npos;
      const bool counts = call.find('x') == std::string::npos;
      EXPECT_EQ(addRealVisit(1, a, leaving, slot, leaving), counts) << c.what << ": " << call;
      counted += counts ? 1 : 0;
    }
    EXPECT_EQ(lf_options(stands[0]), c.options) << c.what;
    EXPECT_EQ(updateCount, counted) << c.what;
    for (const StandOption& o : stands[0].options)
      EXPECT_TRUE(o.learned != archived) << c.what;
  }
  EXPECT_TRUE(test::logHas("Add real option exception, hh_now: 48, "));
  const LiveAircraft a = aircraft();
  EXPECT_EQ(lf_fullOption(stands[0].options[0]), "TRA B739 PH-BXA KLM601")
      << "the database's operator and type";
  // A soft visit is counted apart from the real ones, and may not correct a half hour already counted.
  EXPECT_TRUE(addSoftVisit(1, a, false, {3, 20}));
  EXPECT_FALSE(addSoftVisit(1, a, false, {3, 20}));
  EXPECT_EQ(lf_options(stands[0]), "1 d3 [20]; 2 d3 [20] soft");
  EXPECT_EQ(stands[0].softVisits.count(a.hexid), 1u);
}

// calls as above, "F" for a forced count: new, one later, two later over midnight, forced, three later.
TEST_F(LearningTest, anAircraftIsCountedAgainOnlyThreeHalfHoursLaterAndTheWeekGoesRound) {
  std::istringstream calls("3/46 3/47x 4/0x 4/0F 4/3");
  for (std::string call; calls >> call;)
    EXPECT_EQ(countVisit(0x484001, lf_slot(call), call.ends_with('F')), !call.ends_with('x')) << call;
  ASSERT_EQ(realStandHexids.size(), 1u);
  EXPECT_EQ(unpackSlot(realStandHexids.front().second), (Slot{4, 3}));
  forgetVisit(0x484001);
  EXPECT_TRUE(realStandHexids.empty());
  EXPECT_EQ(nextSlot({7, 47}), (Slot{1, 0}));
  EXPECT_EQ(nextSlot({3, 47}), (Slot{4, 0}));
}

// ---- Which stand

TEST_F(LearningTest, theStandUnderAnAircraftMayBeSlightlyTooSmallOnlyWhenItIsClose) {
  // Metres too wide, metres off, found, the stand's radius afterwards.
  const std::vector<std::tuple<double, double, bool, double>> cases = {
      {1.7, 50, true, 20}, {2, 21, false, 20}, {2, 15, true, 21}};
  for (const auto& [tooWide, off, found, radius] : cases) {
    resetStands();
    addStand("D1", 20);
    LiveAircraft a = aircraft();
    a.halfWingSpan = (20 + tooWide) * nmPerMetre;
    const std::string what = fmt::format("{} m too wide {} m off", tooWide, off);
    EXPECT_EQ(findStandAt(airportLat + off * metresNorth, airportLon, a, 0.029697624190064796, true),
              found ? 1u : 0u)
        << what;
    EXPECT_NEAR(stands[0].radius / nmPerMetre, radius, 1e-9) << what;
    EXPECT_EQ(updateCount, radius != 20 ? 1 : 0) << what;
  }
}

// stands: "id:attributes", attributes a radius in metres (20 without), ramp, cargo, heli, taken (another
// aircraft's statistics hold this half hour) or knows (statistics of another half hour accept the aircraft).
TEST_F(LearningTest, theGuessedStandFitsTheAircraftsKindSizeAndStatistics) {
  struct Case {
    std::string what, stands, expected;
    std::uint32_t category = 2;
    std::string code = "EHAM";
    bool cargo = false;
  };
  std::string elevenTaken;
  for (int i = 0; i < 11; ++i)
    elevenTaken += fmt::format(" G{}:taken", i);
  const std::vector<Case> cases = {
      {"a helicopter at a gate gets none", "G1", "", 5},
      {"a helicopter takes the helipad", "G1 H1:8:heli", "H1", 5},
      {"two equal free gates give the first", "G1 G2", "G1"},
      {"the closer fit wins", "G1:30 G2:19", "G2"},
      {"a gate taken in this half hour is passed over", "G1:taken G2", "G2"},
      {"statistics that know the airline win at an equal fit", "G1 G2:knows", "G2"},
      {"a cargo aircraft takes the cargo stand", "G1 C1:cargo", "C1", 2, "EHAM", true},
      {"a light aircraft takes the ramp", "G1 R1:ramp", "R1", 1},
      {"a light aircraft doesn't take a gate", "G1", "", 1},
      {"an American airport fills its gates first", "R1:ramp G1", "G1", 2, "KMSP"},
      {"elsewhere the ramp may come first", "R1:ramp G1", "R1"},
      {"a small airport full now tries the next half hour", "G1:taken", "G1"},
      {"a large one doesn't", elevenTaken, ""},
  };
  const Slot now{3, 20};
  for (const Case& c : cases) {
    resetStands();
    parkAirportCode = c.code;
    std::istringstream specs(c.stands);
    for (std::string spec; specs >> spec;) {
      const std::size_t colon = spec.find(':');
      const std::string attributes = colon == std::string::npos ? "" : spec.substr(colon);
      const bool number = colon != std::string::npos && std::isdigit(spec[colon + 1]) != 0;
      Stand& stand = addStand(spec.substr(0, colon), number ? std::stod(spec.substr(colon + 1)) : 20);
      stand.ramp = attributes.find("ramp") != std::string::npos;
      stand.cargo = attributes.find("cargo") != std::string::npos;
      stand.heli = attributes.find("heli") != std::string::npos;
      const bool knows = attributes.find("knows") != std::string::npos;
      const bool taken = attributes.find("taken") != std::string::npos;
      stand.options.push_back({knows ? "KLM" : "DLH", knows ? "B738" : "A320", "", "", "",
                               HalfHours(1ull << (taken ? now.halfHour : 3)), 1, now.day});
    }
    LiveAircraft a = aircraft();
    a.category = c.category;
    a.cargo = c.cargo;
    if (a.category != 2) a.halfWingSpan = 6 * nmPerMetre;
    EXPECT_EQ(standName(chooseStandForLearning(now, a, true)), c.expected.empty() ? "sid==0?" : c.expected)
        << c.what;
  }
}

TEST_F(LearningTest, aNewFlightFindsItsCallsignPairInTheStatisticsOfItsDayAroundThisTime) {
  addStand("D1", 20).options.push_back({"KLM", "B738", "", "KLM602", "KLM601", HalfHours(1u << 25), 1, 3});
  // Slot, callsign, airline, and the pair found.
  const std::vector<std::tuple<Slot, std::string, std::string, std::string>> cases = {
      {{3, 20}, "KLM601", "KLM", "KLM602:KLM601"},
      {{3, 20}, "KLM601_", "KLM", "KLM602:KLM601"},
      {{3, 20}, "KLM602", "KLM", "KLM602:KLM601"},
      {{3, 40}, "KLM601", "KLM", ":"},
      {{4, 20}, "KLM601", "KLM", ":"},
      {{3, 20}, "KLM601", "TRA", ":"}};
  for (const auto& [slot, callsign, airline, pair] : cases) {
    LiveAircraft a = aircraft();
    a.callsign = callsign;
    a.airline = airline;
    searchCouple(a, slot);
    EXPECT_TRUE(a.coupleSearched);
    EXPECT_EQ(a.callsignIn + ":" + a.callsignOut, pair)
        << callsign << " " << slotText(slot) << " " << airline;
  }
  EXPECT_TRUE(test::logHas("          [KLM601_ from couple \"KLM602:KLM601\" at stand D1]"));
}

// ---- A session at the park airport

// Two 737s at a park airport of three stands: one parks on D1, goes and comes back in the same half hour, and
// leaves; one taxies near the airport and is lost from the feed. What is learned is saved into the learned
// file and read back.
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
    Report r{hexid, std::move(callsign), "B738", airportLat + north * metresNorth,
             airportLon + east * metresEast};
    r.altitude = r.speed = 0;
    r.timestamp = timestamp;
    r.regcode = std::move(regcode);
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
  const std::string d1 = fmt::format("1 d{} [{}]", now.day, now.halfHour);
  EXPECT_EQ(lf_options(stands[0]), d1);

  // Leaving in the same half hour adds nothing and ends the visit.
  queue(standing(0x484001, "KLM601", "PH-BXA", 2, 120, 1200));
  ticks(200);
  EXPECT_TRUE(stands[0].realVisits.empty());
  EXPECT_EQ(updateCount, 1);

  // Taxiing near the airport and lost from the feed: its stand is guessed among the free ones.
  Report taxi = standing(0x484003, "KLM603", "PH-BXB", 30, -300, 1000);
  taxi.speed = 15;
  taxi.track = 90;
  fly(taxi, 4, 5);
  ASSERT_NE(bringAlive(0x484003), 0u);
  for (int i = 0; i < 20000 && findLive(0x484003) != nullptr && findLive(0x484003)->state != Removing; ++i)
    engineTick();
  ASSERT_EQ(lf_options(stands[1]), d1 + " soft");
  EXPECT_EQ(lf_fullOption(stands[1].options[0]), "KLM B738 PH-BXB KLM603 soft");
  EXPECT_EQ(updateCount, 2);

  // Saved when the airport closes, and read back as the next start reads it.
  closeParkAirport();
  std::vector<Stand> next = stands;
  for (Stand& stand : next)
    stand.options.clear();
  readLearned("airports/learned/stock/EHAM.xml", "", next);
  EXPECT_EQ(lf_options(next[0]), d1);
  EXPECT_EQ(lf_fullOption(next[0].options.at(0)), "TRA B739 PH-BXA KLM601");
  EXPECT_EQ(lf_options(next[1]), d1 + " soft");
}

} // namespace
} // namespace ory
