#include "base/log.h"
#include "base/parameters.h"
#include "base/paths.h"
#include "base/run.h"
#include "engine/geometry.h"
#include "engine/tables.h"
#include "feed/feed.h"
#include "liveries/text_tokens.h"
#include "parking/airport_database.h"
#include "parking/park_airports.h"
#include "parking/stands.h"
#include "simlink/user_aircraft.h"
#include "support/scratch.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

namespace ory {
namespace {

namespace fs = std::filesystem;
using test::logHas;
using test::writeBytes;

// The reference points of the real airport table.
constexpr LatLon eham{52.308601, 4.76389};
constexpr LatLon ehle{52.453188, 5.514622};

struct StandSpec {
  std::string id;
  double lat = 0; // degrees
  double lon = 0; // degrees
};

// Two stands 55.6 m apart, north of each other.
const std::vector<StandSpec> ehamStands = {{"D4", 52.3090, 4.7600}, {"D6", 52.3095, 4.7600}};

void lf_writeArchivedFile(std::string_view code, const std::vector<StandSpec>& standList) {
  std::string positions;
  for (const StandSpec& stand : standList)
    positions += fmt::format(R"(<parkpos id="{}" latitude="{:.6f}" longitude="{:.6f}" heading="90.0" )"
                             R"(radius="20.0" cargo="false" ramp="false"/>)"
                             "\n",
                             stand.id, stand.lat, stand.lon);
  writeBytes(fs::path("airports/archive/stock") / fmt::format("{}.xml", code),
             fmt::format(R"(<?xml version="1.0"?>
<parameters>
  <parameter name="airport_name" value="{} Airport"/>
  <parameter name="publisher" value="stock"/>
  <parameter name="altitude" value="-11"/>
  <parameter name="num_parkpos" value="{}"/>
</parameters>
<parkpositions>
{}</parkpositions>
)",
                         code, standList.size(), positions));
}

void lf_placeUser(LatLon at, double aboveGroundFt, bool onGround) {
  UserAircraft user;
  user.lat = at.lat;
  user.lon = at.lon;
  user.aboveGround = aboveGroundFt;
  writeUserAircraft(user);
  userOnGround = onGround;
  userOnGroundKnown = true;
}

LatLon lf_awayFrom(LatLon from, double nm) {
  return destination(from.lat, from.lon, pi / 2, nm * metresPerNm * feetPerMetre);
}

std::vector<std::string> lf_listed() {
  std::vector<std::string> entries;
  for (const ParkAirportEntry& entry : parkAirports)
    entries.push_back(entry.stand.empty() ? entry.code : entry.code + "," + entry.stand);
  return entries;
}

std::uint32_t lf_standId(std::string_view id) {
  const auto found = std::find_if(stands.begin(), stands.end(), [&](const Stand& s) { return s.id == id; });
  return found == stands.end() ? 0 : found->standId;
}

void lf_resetParameters() {
  for (IntParameter* number :
       {&AIRPORT_RANGE, &AIRPORT_HEIGHT, &MAX_LIVE, &LATERAL_RANGE, &parking_percentage, &MAX_FIT})
    number->value = number->defaultValue;
  for (BoolParameter* flag : {&LEARN_SOFT, &AUTO_RANGE, &WEEK, &PARK_FAKE, &PARK_SOFT, &INITIAL_LOAD_ONLY})
    flag->value = flag->defaultValue;
}

class ParkAirportsTest : public test::InScratchFolder {
protected:
  void SetUp() override {
    openLog();
    test::installPreparedData(".");
    ASSERT_TRUE(readAirports());
    lf_resetParameters();
  }
  void TearDown() override {
    forgetParkAirports();
    resetStands();
    resetEngineTables();
    writeUserAircraft({});
    userOnGround = false;
    userOnGroundKnown = false;
    trafficReader.collectingCallsigns = false;
    reReadPending = false;
    lf_resetParameters();
    clearAirports();
    closeLog();
  }
  // The 16-second step, once to choose and once to open.
  void chooseAndOpen() {
    checkParkAirport(true);
    ASSERT_TRUE(openPending) << test::logText();
    checkParkAirport(false);
  }
};

// ---- The list
// ------------------------------------------------------------------------------------------------

TEST_F(ParkAirportsTest, theListIsReadLineByLineAndStopsAtTheFirstSystemError) {
  lf_writeArchivedFile("EHAM", ehamStands);
  const std::string file = pathText(myParkAirportsFile);
  struct Row {
    const char* probe;
    const char* text; // nullptr: no file
    std::vector<std::string> listed;
    bool okay;
    std::string logged;
  };
  const std::vector<Row> rows = {
      {"no file: an empty list", nullptr, {}, true, file + " not found"},
      {"an empty stand is no stand and isn't tested",
       "EHAM,\n\n  EHLE , \n",
       {"EHAM", "EHLE"},
       true,
       "2 park airports read from"},
      {"three fields stop the reading",
       "EHLE\nEHAM,A1,X\nEHRD\n",
       {"EHLE"},
       false,
       file + ":EHAM,A1,X wrong syntax, skipped"},
      {"a second line of an airport stops the reading",
       "EHRD\nEHAM\nEHRD\nEHLE\n",
       {"EHAM", "EHRD"},
       false,
       file + ":EHRD double, skipped"},
      {"an unknown airport is left out", "XX99\nEHAM,D4\n", {"EHAM,D4"}, false, "airport XX99 is unknown"},
      {"an unknown stand is told but kept", "EHAM,Z9\n", {"EHAM,Z9"}, false, "EHAM stand Z9 is unknown"},
  };
  lf_placeUser(eham, 0, true);
  for (const Row& row : rows) {
    fs::remove(myParkAirportsFile);
    if (row.text != nullptr) writeBytes(myParkAirportsFile, row.text);
    EXPECT_EQ(readParkAirports(), row.okay) << row.probe;
    EXPECT_EQ(lf_listed(), row.listed) << row.probe;
    EXPECT_TRUE(logHas(row.logged)) << row.probe << ": no line " << row.logged;
  }
}

TEST_F(ParkAirportsTest, addOnAirportsJoinTheListAndAllAreSortedByTheUsersDistance) {
  writeBytes(myParkAirportsFile, "EHAM,D4\nEHRD\n");
  lf_writeArchivedFile("EHAM", ehamStands);
  writeBytes("airports/my_thirdparty/EHLE.xml", "x");
  writeBytes("airports/my_thirdparty/EHAM.txt", "x"); // listed already
  writeBytes("airports/my_thirdparty/QQQQ.xml", "x"); // not in the airport table
  lf_placeUser(ehle, 0, true);
  EXPECT_TRUE(readParkAirports());
  EXPECT_EQ(lf_listed(), (std::vector<std::string>{"EHLE", "EHAM,D4", "EHRD"}));
  EXPECT_TRUE(logHas("1 park airport added from"));
  EXPECT_EQ(parkAirports.front().distance, 0);
  EXPECT_TRUE(std::is_sorted(parkAirports.begin(), parkAirports.end(),
                             [](const auto& a, const auto& b) { return a.distance < b.distance; }));
  // For the automatic range: the first airport seen from elsewhere.
  EXPECT_NEAR(firstParkAirportDistance(eham.lat, eham.lon), std::next(parkAirports.begin())->distance, 1e-9);
  parkAirports.clear();
  EXPECT_EQ(firstParkAirportDistance(eham.lat, eham.lon), 10000);
}

// ---- Choosing
// ------------------------------------------------------------------------------------------------

TEST_F(ParkAirportsTest, fromTheAirTheFirstListedAirportInRangeAndBelowTheHeightIsChosen) {
  struct Row {
    const char* probe;
    double nm;      // east of EHAM
    double aboveFt; // above the ground
    bool chosen;
  };
  const std::vector<Row> rows = {
      {"in range, low", 10, 3000, true},
      {"in range, above AIRPORT_HEIGHT", 10, 18001, false},
      {"at AIRPORT_HEIGHT", 10, 18000, true},
      {"at AIRPORT_RANGE", 19.99, 3000, true},
      {"beyond AIRPORT_RANGE", 20.05, 3000, false},
  };
  writeBytes(myParkAirportsFile, "EHAM\n");
  for (const Row& row : rows) {
    forgetParkAirports();
    trafficReader.collectingCallsigns = false;
    lf_placeUser(lf_awayFrom(eham, row.nm), row.aboveFt, false);
    readParkAirports();
    checkParkAirport(true);
    EXPECT_EQ(parkAirportCode, row.chosen ? "EHAM" : "") << row.probe;
    EXPECT_EQ(openPending, row.chosen) << row.probe;
    EXPECT_EQ(calculating.load(), row.chosen) << row.probe;
    EXPECT_EQ(trafficReader.collectingCallsigns.load(), row.chosen) << row.probe;
    EXPECT_EQ(trafficReader.hasParkAirport.load(), row.chosen) << row.probe;
  }
  EXPECT_TRUE(logHas("EHAM(AMS) in sight at 10.0 nm"));
  EXPECT_TRUE(logHas("The park airport is EHAM(AMS)"));
  EXPECT_DOUBLE_EQ(trafficReader.parkLat.load(), eham.lat);
  EXPECT_DOUBLE_EQ(trafficReader.parkElevation.load(), -11);
}

TEST_F(ParkAirportsTest, onTheGroundTheAirportBelowTheUserIsChosenIfItHasAFile) {
  lf_writeArchivedFile("EHAM", ehamStands);
  struct Row {
    const char* probe;
    LatLon at;
    std::string chosen;
    std::string logged;
  };
  const std::vector<Row> rows = {
      {"at Schiphol, with its file", {52.3095, 4.7600}, "EHAM", "User aircraft on the ground at EHAM(AMS)"},
      {"at Rotterdam, without a file",
       {51.9569, 4.4372},
       "",
       "User aircraft on the ground at EHRD(RTM), no "
       "airport file found"},
      {"over the Atlantic", {45.0, -30.0}, "", "User aircraft on the ground, no airport in sight"},
  };
  // The list plays no part on the ground.
  for (const Row& row : rows) {
    forgetParkAirports();
    lf_placeUser(row.at, 0, true);
    checkParkAirport(true);
    EXPECT_EQ(parkAirportCode, row.chosen) << row.probe;
    EXPECT_TRUE(logHas(row.logged)) << row.probe << ": no line " << row.logged;
  }
}

TEST_F(ParkAirportsTest, beforeTheSimulatorTellsThePositionNothingIsDecided) {
  clearAirports();
  writeBytes("airports_p3d.xml",
             R"(<airports><airport code="ZERO" lat="0.01" lon="0.06" alt="0"/></airports>)");
  ASSERT_TRUE(readAirports());
  writeBytes(myParkAirportsFile, "ZERO\n");
  readParkAirports();
  lf_placeUser({0, 0}, 0, true);
  checkParkAirport(true);
  lf_placeUser({0.0009, 0.05}, 1000, false);
  checkParkAirport(true);
  EXPECT_EQ(parkAirportCode, "");
  EXPECT_FALSE(logHas("User aircraft on the ground"));
  lf_placeUser({0.0010, 0.05}, 1000, false);
  checkParkAirport(true);
  EXPECT_EQ(parkAirportCode, "ZERO") << "a position just outside the square counts";
}

// ---- A stand of the user's
// ------------------------------------------------------------------------------------------------

TEST_F(ParkAirportsTest, aUserOnAStandOfAnUnlistedAirportHasItWrittenIntoTheListAndKeptFree) {
  lf_writeArchivedFile("EHAM", ehamStands);
  writeBytes(myParkAirportsFile, "EHRD\nLSZH\n");
  readParkAirports();
  lf_placeUser({52.3095, 4.7600}, 0, true); // on D6
  chooseAndOpen();
  ASSERT_EQ(stands.size(), 2u) << test::logText();
  EXPECT_EQ(lf_listed().front(), "EHAM,D6");
  EXPECT_EQ(test::fileLines(myParkAirportsFile), (std::vector<std::string>{"EHAM,D6", "EHRD", "LSZH"}));
  EXPECT_TRUE(logHas(pathText(myParkAirportsFile) + ":EHAM,D6 new entry"));
  EXPECT_EQ(reservedStand, "D6");
  EXPECT_TRUE(stands[lf_standId("D6") - 1].reserved);
  EXPECT_FALSE(stands[lf_standId("D4") - 1].reserved);

  // The stand below a point: the nearest within 55 metres.
  EXPECT_EQ(standBelowPoint(52.3093, 4.7600), "D6");
  EXPECT_EQ(standBelowPoint(52.3092, 4.7600), "D4");
  EXPECT_EQ(standBelowPoint(52.3100, 4.7600), ""); // 55.6 m north of D6
  userOnGround = false;
  EXPECT_EQ(standBelowPoint(52.3095, 4.7600), "") << "only a user on the ground holds a stand";
  userOnGround = true;

  // The job of every 5 seconds takes away what stands on the reserved stand: one static, one live.
  const std::uint32_t d6 = lf_standId("D6");
  const std::uint32_t d4 = lf_standId("D4");
  const auto parkedOn = [](std::uint32_t standId, std::uint32_t objectId) {
    ParkedAircraft aircraft;
    aircraft.standId = standId;
    aircraft.objectId = objectId;
    aircraft.state = Alive;
    return aircraft;
  };
  parkedAircraft = {parkedOn(d4, 21), parkedOn(d6, 22), parkedOn(d6, 23)};
  for (const auto& [objectId, phase] :
       {std::pair{31u, Taxi}, std::pair{32u, Parked}, std::pair{33u, Parked}}) {
    LiveAircraft aircraft;
    static_cast<ParkedAircraft&>(aircraft) = parkedOn(d6, objectId);
    aircraft.phase = phase;
    liveAircraft.push_back(aircraft);
  }
  clearReservedStand();
  EXPECT_EQ(std::vector<std::uint32_t>(pendingRemoveObjects.begin(), pendingRemoveObjects.end()),
            (std::vector<std::uint32_t>{22, 32}));

  // The user names another stand in the file and presses "Re-read": that one is kept free now.
  pendingRemoveObjects.clear();
  writeBytes(myParkAirportsFile, "EHAM,D4\nEHRD\nLSZH\n");
  reReadPending = true;
  calculating = false;
  serveReRead();
  EXPECT_FALSE(reReadPending);
  EXPECT_EQ(reservedStand, "D4");
  EXPECT_TRUE(stands[d4 - 1].reserved);
  EXPECT_FALSE(stands[d6 - 1].reserved);
  EXPECT_EQ(std::vector<std::uint32_t>(pendingRemoveObjects.begin(), pendingRemoveObjects.end()),
            (std::vector<std::uint32_t>{21}));
  EXPECT_TRUE(logHas("reserved stand changed from \"D6\" to \"D4\""));
  serveReRead(); // nothing pending: nothing read
  reReadPending = true;
  serveReRead();
  EXPECT_TRUE(logHas("park airports and stands are okay"));
}

TEST_F(ParkAirportsTest, aUserOnAStandWithoutAListGetsAFileAndAListedStandFollowsTheUser) {
  lf_writeArchivedFile("EHAM", ehamStands);
  readParkAirports();
  lf_placeUser({52.3090, 4.7600}, 0, true); // on D4
  chooseAndOpen();
  EXPECT_EQ(test::fileLines(myParkAirportsFile), (std::vector<std::string>{"EHAM,D4"}));
  EXPECT_TRUE(logHas(pathText(myParkAirportsFile) + " created with EHAM,D4"));

  // Another flight, parked on D6: the listed stand changes.
  writeBytes(myParkAirportsFile, "LSZH\nEHAM,D4\nEHRD\n");
  forgetParkAirports();
  resetStands();
  readParkAirports();
  lf_placeUser({52.3095, 4.7600}, 0, true);
  chooseAndOpen();
  EXPECT_EQ(test::fileLines(myParkAirportsFile), (std::vector<std::string>{"EHAM,D6", "EHRD", "LSZH"}));
  EXPECT_TRUE(logHas(":EHAM,D6 updated stand"));
  EXPECT_EQ(reservedStand, "D6");
}

// ---- Losing sight
// ------------------------------------------------------------------------------------------------

TEST_F(ParkAirportsTest, anAirportOutOfSightIsClosedWithItsParkedAircraftAndItsLearningSaved) {
  lf_writeArchivedFile("EHAM", ehamStands);
  // A learned file that sets its own live limit, which holds only while the airport is open.
  writeBytes("airports/learned/stock/EHAM.xml", R"(<?xml version="1.0"?>
<parameters><parameter name="airport_name" value="EHAM Airport"/><parameter name="MAX_LIVE" value="100"/></parameters>
<parkpositions/>
)");
  writeBytes(myParkAirportsFile, "EHAM\n");
  lf_placeUser(lf_awayFrom(eham, 5), 2000, false);
  readParkAirports();
  chooseAndOpen();
  ASSERT_EQ(stands.size(), 2u) << test::logText();
  EXPECT_EQ(MAX_LIVE.value, 100);
  EXPECT_TRUE(softLearningAllowed) << "two stands are too few to go without guesses";

  // Parked aircraft of both tables, in all states, and a live aircraft taxiing from a stand.
  ParkedAircraft statics[2];
  statics[0].objectId = 21;
  statics[0].state = Alive;
  statics[1].state = Creating;
  parkedAircraft = {statics[0], statics[1]};
  const auto live = [](std::uint32_t objectId, std::uint32_t state, std::uint32_t phase) {
    LiveAircraft aircraft;
    aircraft.objectId = objectId;
    aircraft.state = state;
    aircraft.phase = phase;
    aircraft.standId = 1;
    aircraft.standLat = 52.3090;
    return aircraft;
  };
  liveAircraft = {live(31, Alive, Parked), live(0, Creating, Parked), live(33, Alive, Taxi)};
  updateCount = 1;

  lf_placeUser(lf_awayFrom(eham, 25), 2000, false);
  checkParkAirport(false);
  EXPECT_TRUE(logHas("EHAM(AMS) is out of sight (25.0 nm), parked aircraft will be removed"));
  EXPECT_EQ(parkAirportCode, "");
  EXPECT_TRUE(stands.empty());
  EXPECT_FALSE(trafficReader.hasParkAirport.load());
  EXPECT_EQ(std::vector<std::uint32_t>(pendingRemoveObjects.begin(), pendingRemoveObjects.end()),
            (std::vector<std::uint32_t>{21, 31}));
  EXPECT_TRUE(parkedAircraft[1].removeOnCreated);
  EXPECT_TRUE(liveAircraft[1].removeOnCreated);
  EXPECT_EQ(liveAircraft[2].state, Alive) << "a taxiing aircraft stays";
  EXPECT_EQ(liveAircraft[2].standId, 0u);
  EXPECT_EQ(liveAircraft[2].standLat, 0);
  EXPECT_EQ(MAX_LIVE.value, MAX_LIVE.defaultValue);
  EXPECT_TRUE(logHas("saved with 1 update"));

  // Still airborne and out of range: nothing is chosen again.
  checkParkAirport(false);
  EXPECT_EQ(parkAirportCode, "");
}

TEST_F(ParkAirportsTest, aListedAirportTakesOverOnlyWhenItIsNearerThanTheParkAirport) {
  // Two airports on one parallel, 19.3 nm apart.
  clearAirports();
  writeBytes("airports_p3d.xml", R"(<airports>
<airport code="AAAA" lat="50" lon="5" alt="100"/><airport code="BBBB" lat="50" lon="5.5" alt="100"/>
</airports>)");
  ASSERT_TRUE(readAirports());
  lf_writeArchivedFile("AAAA", {{"A1", 50, 5}});
  lf_writeArchivedFile("BBBB", {{"B1", 50, 5.5}});
  writeBytes(myParkAirportsFile, "AAAA\nBBBB\n");
  struct Row {
    const char* probe;
    double lon; // of the user, on the parallel
    bool takeover;
  };
  const std::vector<Row> rows = {
      {"nearer to the park airport", 5.26, false},
      {"nearer to the other", 5.24, true},
  };
  for (const Row& row : rows) {
    forgetParkAirports();
    resetStands();
    lf_placeUser({50, 5.45}, 3000, false);
    readParkAirports();
    chooseAndOpen();
    ASSERT_EQ(parkAirportCode, "BBBB");
    lf_placeUser({50, row.lon}, 3000, false);
    checkParkAirport(false);
    EXPECT_EQ(parkAirportCode, row.takeover ? "" : "BBBB") << row.probe;
    checkParkAirport(false);
    EXPECT_EQ(parkAirportCode, row.takeover ? "AAAA" : "BBBB") << row.probe;
  }
  EXPECT_TRUE(logHas(" AAAA is in sight (9.3 nm), parked aircraft at BBBB will be removed first"));
}

} // namespace
} // namespace ory
