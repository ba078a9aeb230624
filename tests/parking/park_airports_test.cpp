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
#include "parking/static_parking.h"
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

struct StandSpec {
  std::string id;
  double lat, lon; // degrees
};
// Two stands 55.6 m apart, north of each other.
const std::vector<StandSpec> ehamStands = {{"D4", 52.3090, 4.7600}, {"D6", 52.3095, 4.7600}};

void lf_writeArchivedFile(std::string_view code, const std::vector<StandSpec>& standList) {
  std::string text = fmt::format(R"(<parameters><parameter name="airport_name" value="{} Airport"/>
<parameter name="publisher" value="stock"/><parameter name="altitude" value="-11"/></parameters>
<parkpositions>)",
                                 code);
  for (const StandSpec& stand : standList)
    text += fmt::format(R"(<parkpos id="{}" latitude="{}" longitude="{}" heading="90" radius="20"/>)",
                        stand.id, stand.lat, stand.lon);
  writeBytes(fs::path("airports/archive/stock") / fmt::format("{}.xml", code), text + "</parkpositions>");
}

void lf_placeUser(LatLon at, double aboveGroundFt, bool onGround) {
  writeUserAircraft({.lat = at.lat, .lon = at.lon, .aboveGround = aboveGroundFt});
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

LiveAircraft lf_aircraft(std::uint32_t standId, std::uint32_t objectId, std::uint32_t state,
                         std::uint32_t phase) {
  LiveAircraft aircraft;
  aircraft.standId = standId;
  aircraft.standLat = 52.3090;
  aircraft.objectId = objectId;
  aircraft.state = state;
  aircraft.phase = phase;
  return aircraft;
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
    userOnGround = userOnGroundKnown = trafficReader.collectingCallsigns = reReadPending = false;
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
      {"no file", nullptr, {}, true, file + " not found"},
      {"an empty stand isn't tested", "EHAM,\n\n  EHLE , \n", {"EHAM", "EHLE"}, true, "2 park airports read"},
      {"three fields", "EHLE\nEHAM,A1,X\nEHRD\n", {"EHLE"}, false, file + ":EHAM,A1,X wrong syntax, skipped"},
      {"twice", "EHRD\nEHAM\nEHRD\nEHLE\n", {"EHAM", "EHRD"}, false, file + ":EHRD double, skipped"},
      {"an unknown airport", "XX99\nEHAM,D4\n", {"EHAM,D4"}, false, "airport XX99 is unknown"},
      {"an unknown stand", "EHAM,Z9\n", {"EHAM,Z9"}, false, "EHAM stand Z9 is unknown"},
  };
  lf_placeUser(eham, 0, true);
  for (const Row& row : rows) {
    fs::remove(myParkAirportsFile);
    if (row.text != nullptr) writeBytes(myParkAirportsFile, row.text);
    EXPECT_EQ(readParkAirports(), row.okay) << row.probe;
    EXPECT_EQ(lf_listed(), row.listed) << row.probe;
    EXPECT_TRUE(logHas(row.logged)) << row.probe << ": no line " << row.logged;
  }
  // The user's add-on airports join the list, all sorted by the user's distance.
  for (const char* name : {"EHKD.xml", "EHAM.txt", "QQQQ.xml"}) // EHAM is listed, QQQQ unknown
    writeBytes(myThirdpartyFolder / name, "x");
  EXPECT_FALSE(readParkAirports());
  EXPECT_EQ(lf_listed(), (std::vector<std::string>{"EHAM,Z9", "EHKD"}));
  EXPECT_TRUE(logHas("1 park airport added from"));
}

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
    // To be opened at the next step; the reader takes ground traffic there and tells who flies meanwhile.
    const bool all[] = {openPending, calculating, trafficReader.collectingCallsigns,
                        trafficReader.hasParkAirport};
    EXPECT_EQ(std::count(std::begin(all), std::end(all), row.chosen), 4) << row.probe;
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
      {"with a file", {52.3095, 4.7600}, "EHAM", "User aircraft on the ground at EHAM(AMS)"},
      {"without", {51.9569, 4.4372}, "", "User aircraft on the ground at EHRD(RTM), no airport file found"},
      {"nowhere", {45.0, -30.0}, "", "User aircraft on the ground, no airport in sight"},
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

TEST_F(ParkAirportsTest, theStandTheUserStartsOnIsWrittenFirstIntoTheListAndKeptFree) {
  lf_writeArchivedFile("EHAM", ehamStands);
  const std::string file = pathText(myParkAirportsFile);
  struct Row {
    const char* probe;
    const char* before; // nullptr: no file
    std::string logged;
  };
  const std::vector<Row> rows = {
      {"no list", nullptr, file + " created with EHAM,D4"},
      {"an unlisted airport", "LSZH\nEHRD\n", file + ":EHAM,D4 new entry"},
      {"a listed airport with another stand", "LSZH\nEHAM,D6\nEHRD\n", file + ":EHAM,D4 updated stand"},
  };
  for (const Row& row : rows) {
    forgetParkAirports();
    resetStands();
    fs::remove(myParkAirportsFile);
    if (row.before != nullptr) writeBytes(myParkAirportsFile, row.before);
    readParkAirports();
    lf_placeUser({52.3090, 4.7600}, 0, true); // on D4
    chooseAndOpen();
    EXPECT_TRUE(staticParkingRunning() && calculating) << row.probe << ": handed over to static parking";
    EXPECT_TRUE(logHas(row.logged)) << row.probe << ": no line " << row.logged;
    EXPECT_EQ(lf_listed().front(), "EHAM,D4") << row.probe;
    EXPECT_EQ(reservedStand, "D4") << row.probe;
    ASSERT_EQ(stands.size(), 2u) << row.probe;
    EXPECT_TRUE(stands[0].reserved && !stands[1].reserved) << row.probe;
  }
  EXPECT_EQ(test::fileLines(myParkAirportsFile), (std::vector<std::string>{"EHAM,D4", "EHRD", "LSZH"}));
}

TEST_F(ParkAirportsTest, whatStandsOnTheReservedStandGoesAndReReadMovesTheReservation) {
  lf_writeArchivedFile("EHAM", ehamStands);
  writeBytes(myParkAirportsFile, "EHAM,D6\n");
  readParkAirports();
  lf_placeUser({52.3095, 4.7600}, 0, true); // on D6
  chooseAndOpen();
  ASSERT_EQ(reservedStand, "D6") << test::logText();
  constexpr std::uint32_t d4 = 1, d6 = 2;

  // The nearest stand within 55 metres of a point, for a user on the ground.
  EXPECT_EQ(standBelowPoint(52.3093, 4.7600), "D6");
  EXPECT_EQ(standBelowPoint(52.3092, 4.7600), "D4");
  EXPECT_EQ(standBelowPoint(52.3100, 4.7600), ""); // 55.6 m north of D6
  userOnGround = false;
  EXPECT_EQ(standBelowPoint(52.3095, 4.7600), "");
  userOnGround = true;

  // Every 5 seconds the first static and the first parked live aircraft on the reserved stand go.
  parkedAircraft = {lf_aircraft(d4, 21, Alive, Parked), lf_aircraft(d6, 22, Alive, Parked),
                    lf_aircraft(d6, 23, Alive, Parked)};
  liveAircraft = {lf_aircraft(d6, 31, Alive, Taxi), lf_aircraft(d6, 32, Alive, Parked),
                  lf_aircraft(d6, 33, Alive, Parked)};
  clearReservedStand();
  EXPECT_EQ(std::vector(pendingRemoveObjects.begin(), pendingRemoveObjects.end()),
            (std::vector<std::uint32_t>{22, 32}));

  // The user names another stand in the file and presses "Re-read".
  pendingRemoveObjects.clear();
  writeBytes(myParkAirportsFile, "EHAM,D4\n");
  reReadPending = true;
  calculating = false;
  serveReRead();
  EXPECT_FALSE(reReadPending);
  EXPECT_TRUE(logHas("reserved stand changed from \"D6\" to \"D4\""));
  EXPECT_EQ(reservedStand, "D4");
  EXPECT_TRUE(stands[d4 - 1].reserved && !stands[d6 - 1].reserved);
  EXPECT_EQ(std::vector(pendingRemoveObjects.begin(), pendingRemoveObjects.end()),
            (std::vector<std::uint32_t>{21}));
  reReadPending = true;
  serveReRead();
  EXPECT_TRUE(logHas("park airports and stands are okay"));
}

TEST_F(ParkAirportsTest, anAirportOutOfSightIsClosedWithItsParkedAircraftAndItsLearningSaved) {
  lf_writeArchivedFile("EHAM", ehamStands);
  // A learned file that sets its own live limit, which holds only while the airport is open.
  writeBytes("airports/learned/stock/EHAM.xml",
             R"(<parameters><parameter name="airport_name" value="EHAM Airport"/>
<parameter name="MAX_LIVE" value="100"/></parameters><parkpositions/>)");
  writeBytes(myParkAirportsFile, "EHAM\n");
  lf_placeUser(lf_awayFrom(eham, 5), 2000, false);
  readParkAirports();
  chooseAndOpen();
  ASSERT_EQ(stands.size(), 2u) << test::logText();
  EXPECT_EQ(MAX_LIVE.value, 100);
  EXPECT_TRUE(softLearningAllowed) << "two stands are too few to go without guesses";

  // Parked aircraft of both tables, in all states, and a live aircraft taxiing from a stand.
  parkedAircraft = {lf_aircraft(1, 21, Alive, Parked), lf_aircraft(1, 0, Creating, Parked)};
  liveAircraft = {lf_aircraft(1, 31, Alive, Parked), lf_aircraft(1, 0, Creating, Parked),
                  lf_aircraft(1, 33, Alive, Taxi)};
  updateCount = 1;

  lf_placeUser(lf_awayFrom(eham, 25), 2000, false);
  checkParkAirport(false);
  EXPECT_TRUE(logHas("EHAM(AMS) is out of sight (25.0 nm), parked aircraft will be removed"));
  EXPECT_EQ(parkAirportCode, "");
  EXPECT_TRUE(stands.empty());
  EXPECT_FALSE(trafficReader.hasParkAirport.load());
  EXPECT_EQ(std::vector<std::uint32_t>(pendingRemoveObjects.begin(), pendingRemoveObjects.end()),
            (std::vector<std::uint32_t>{21, 31}));
  EXPECT_TRUE(parkedAircraft[1].removeOnCreated && liveAircraft[1].removeOnCreated);
  const LiveAircraft& taxiing = liveAircraft[2];
  EXPECT_TRUE(taxiing.state == Alive && taxiing.standId == 0 && taxiing.standLat == 0)
      << "stays, without stand";
  EXPECT_EQ(MAX_LIVE.value, MAX_LIVE.defaultValue);
  EXPECT_TRUE(logHas("saved with 1 update"));
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
  // Midway, at 5.25, both are as near: the listed one takes over.
  for (const auto& [lon, takeover] : {std::pair{5.26, false}, std::pair{5.25, true}, std::pair{5.24, true}}) {
    forgetParkAirports();
    resetStands();
    lf_placeUser({50, 5.45}, 3000, false);
    readParkAirports();
    chooseAndOpen();
    ASSERT_EQ(parkAirportCode, "BBBB");
    lf_placeUser({50, lon}, 3000, false); // nearer to AAAA only at 5.24
    readParkAirports();                   // as the job of every 5 seconds reads it
    checkParkAirport(false);
    EXPECT_EQ(parkAirportCode, takeover ? "" : "BBBB") << lon;
    checkParkAirport(false);
    EXPECT_EQ(parkAirportCode, takeover ? "AAAA" : "BBBB") << lon;
  }
  EXPECT_TRUE(logHas(" AAAA is in sight (9.3 nm), parked aircraft at BBBB will be removed first"));
}

} // namespace
} // namespace ory
