// Who gives way, tick by tick: ghosts against their real flights, aircraft on a stand against the one that
// wants it, parked aircraft against live ones, and every aircraft against the user's.
#include "engine/conflicts.h"
#include "engine_world.h"
#include "frame/main_loop.h"
#include "parking/park_airports.h"
#include "parking/stands.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <set>

namespace ory {
namespace {

using test::Report;

class ConflictTest : public test::EngineTest {
protected:
  void SetUp() override {
    EngineTest::SetUp();
    ghostCallsigns.clear();
    userOnGround = false;
    COLLISION_LIVE_PARKED_GND.value = true;
    parkAirportCode = "EHAM";
    parkAirportLat = test::userLat;
    parkAirportLon = test::userLon + 0.01;
    for (std::uint32_t i = 0; i < 2; ++i) { // wing to wing, 30 metres apart
      Stand& stand = stands.emplace_back();
      stand.id = fmt::format("S{}", i + 1);
      stand.standId = i + 1;
      stand.lat = parkAirportLat;
      stand.lon = parkAirportLon + i * 30 * nmPerMetre / 60 / std::cos(test::userLat * degToRad);
      stand.radius = 20 * nmPerMetre;
      stand.neighbours.push_back(2 - i);
    }
  }
  void TearDown() override {
    resetStands();
    parkAirportCode.clear();
    reservedStand.clear();
    COLLISION_USER_GND.value = true;
    COLLISION_LIVE_PARKED_GND.value = false;
    userOnGround = false;
    simRunning = false;
    resetMainLoopState();
    EngineTest::TearDown();
  }
  // Reports of each flight every 4 seconds, count times, on its track; the callsigns created meanwhile.
  static std::set<std::string> fly(std::vector<Report>& flights, std::int32_t count) {
    std::set<std::string> created;
    for (std::int32_t i = 0; i < count * 400; ++i) {
      for (Report& r : flights)
        if (i % 400 == 0) {
          queue(r);
          const LatLon next = destination(r.lat, r.lon, r.track * degToRad, r.speed * 4 / 3600 * feetPerNm);
          r = {r.hexid, r.callsign, r.type, next.lat,        next.lon, r.altitude,
               r.speed, r.track,    0,      r.timestamp + 4, r.regcode};
        }
      engineTick();
      for (const CreateRequest& request : createAll())
        created.insert(request.callsign);
    }
    return created;
  }
  template <typename Aircraft>
  static Aircraft& standing(std::vector<Aircraft>& table, std::string callsign, std::uint32_t standId = 1) {
    Aircraft& a = table.emplace_back();
    a.callsign = std::move(callsign);
    a.hexid = a.objectId = static_cast<std::uint32_t>(60 + liveAircraft.size() + parkedAircraft.size());
    a.standId = standId;
    a.standLat = stands[0].lat;
    a.standLon = stands[0].lon;
    a.halfWingSpan = 20 * nmPerMetre;
    a.state = Alive;
    return a;
  }
};

TEST_F(ConflictTest, aGhostLivesUntilItsRealFlightComesAndNeverReturns) {
  // Ghost and real flight in the same second: only the real one is made, and the ghost is refused for good.
  std::vector<Report> flights = {{.hexid = 0x484002, .callsign = "KLM601_", .lon = test::userLon + 0.05}, {}};
  EXPECT_EQ(fly(flights, 20), std::set<std::string>{"KLM601"}) << test::logText();
  EXPECT_EQ(ghostCallsigns, std::vector<std::string>{"KLM601_"});

  // A callsign ending in '_' by the feed's mistake lives while no such real flight exists.
  flights = {{.hexid = 0x3c0001, .callsign = "DLH5_", .type = "A320"}};
  EXPECT_EQ(fly(flights, 10), std::set<std::string>{"DLH5_"});
  const std::uint32_t mistaken = findLive(0x3c0001)->objectId;
  flights.push_back({.hexid = 0x3c0002, .callsign = "DLH5", .type = "A320", .lon = test::userLon + 0.1});
  EXPECT_EQ(fly(flights, 10), std::set<std::string>{"DLH5"});
  const std::vector<std::uint32_t> removed = takeRemovals();
  EXPECT_NE(std::find(removed.begin(), removed.end(), mistaken), removed.end());
}

TEST_F(ConflictTest,
       aLiveAircraftParkingTakesItsStandFromTheSameCallsignAndTheStaticTwinAndCancelsTheQueued) {
  ParkedAircraft& twin = standing(parkedAircraft, "KLM9*");
  twin.regcode = "PH-XYZ";
  twin.type = "B738";
  LiveAircraft& old = standing(liveAircraft, "KLM601");
  old.phase = Parked;
  std::vector<Report> flights = {
      {.lat = stands[0].lat, .lon = stands[0].lon, .altitude = 0, .speed = 0, .regcode = "PH-XYZ"}};
  ticks(1); // parked off the creation step, which would send a queued request
  fly(flights, 7);
  ticks(100);
  // Queued at the last moment, so that nothing sends it before the live aircraft parks.
  ParkedAircraft& queued = standing(parkedAircraft, "KLM8*", 2);
  queued.state = Creating;
  queued.objectId = 0;
  queued.halfWingSpan = 30 * nmPerMetre;
  pendingParkedCreate = {{.callsign = "KLM8*", .hexid = queued.hexid}, {.callsign = "KLM7*", .hexid = 3}};
  ticks(1);
  const LiveAircraft* live = findLive(Report{}.hexid);
  ASSERT_TRUE(live != nullptr && live->phase == Parked && live->standId == 1) << test::logText();
  EXPECT_TRUE(test::logHas("S1      : KLM601   ac with same callsign KLM601 wants it, remove existing ... "));
  EXPECT_TRUE(test::logHas("S1      : KLM9*    B738 makes place for the same live version KLM601"));
  EXPECT_TRUE(test::logHas("queued S2      : KLM8*    removed by adjacent parking KLM601 at S1"));
  EXPECT_EQ(std::vector(pendingRemoveObjects.begin(), pendingRemoveObjects.end()),
            (std::vector<std::uint32_t>{62, 61}));
  EXPECT_EQ(parkedAircraft.size(), 1u) << "the queued record goes with its request";
  ASSERT_EQ(pendingParkedCreate.size(), 1u);
  EXPECT_EQ(pendingParkedCreate[0].callsign, "KLM7*");
}

TEST_F(ConflictTest, theReservedStandIsEmptiedEveryFiveSecondsWhateverTheUserGroundBox) {
  userOnGround = simRunning = true;
  reservedStand = "S1";
  for (const bool box : {true, false}) {
    COLLISION_USER_GND.value = box;
    resetMainLoopState();
    resetEngineTables();
    standing(parkedAircraft, "KLM9*");
    standing(liveAircraft, "DLH1").phase = Parked;
    std::vector<std::size_t> removedBySecond;
    for (std::int32_t s = 0; s < 5; ++s) {
      secondTick = true;
      mainLoop();
      removedBySecond.push_back(pendingRemoveObjects.size());
    }
    EXPECT_EQ(removedBySecond, (std::vector<std::size_t>{0, 0, 0, 0, 2})) << box;
  }
}

TEST_F(ConflictTest, anAircraftInTheApproachCorridorOfTheUserIsHeldBackUntilHeStandsOnTheGround) {
  UserAircraft user{.lat = test::userLat, .lon = test::userLon, .altitude = 1500, .aboveGround = 1500};
  user.groundSpeed = 140;
  writeUserAircraft(user);
  // 3 nautical miles east, 500 feet above the user, flying towards his track.
  std::vector<Report> flights = {
      {.lat = test::userLat, .lon = test::userLon + 0.05, .altitude = 2000, .speed = 100, .track = 270}};
  EXPECT_TRUE(fly(flights, 15).empty()) << test::logText();
  EXPECT_TRUE(findLive(flights[0].hexid)->heldBack);
  userOnGround = true;
  user.altitude = user.aboveGround = 0;
  writeUserAircraft(user);
  EXPECT_TRUE(fly(flights, 3).empty()) << "landed, still rolling";
  user.groundSpeed = 0;
  writeUserAircraft(user);
  EXPECT_EQ(fly(flights, 3), std::set<std::string>{"KLM601"});
}

TEST_F(ConflictTest, whatComesTooNearTheUserOrAParkedAircraftGoes) {
  struct Row {
    bool userOnGround;
    double userHeight, north, east, altitude, heading; // feet, nautical miles from the user, feet, radians
    bool onGround, removed;
  };
  const Row rows[] = {
      {false, 3000, 0, 2, 3500, 0, false, true},           // in the air, about to pass abeam of the user
      {false, 3000, 0, 2, 3500, 3 * pi / 2, false, false}, // flying along the line between them
      {false, 3000, 0, 2, 4500, 0, false, false},          // 1500 feet above him
      {false, 400, 0.5, 0, 0, 0, true, true},              // on the runway ahead of the low user
      {false, 400, 0, 0.5, 0, 0, true, false},             // beside it
      {true, 0, 0.01, 0, 0, 0, true, true},                // 18.5 metres from the user on the ground
      {true, 0, 0.02, 0, 0, 0, true, false},               // 37 metres
  };
  for (const Row& row : rows) {
    resetEngineTables();
    userOnGround = row.userOnGround;
    writeUserAircraft(
        {.lat = test::userLat, .lon = test::userLon, .altitude = 3000, .aboveGround = row.userHeight});
    userSecondWork();
    LiveAircraft& a = standing(liveAircraft, "KLM1");
    a.lat = test::userLat + row.north / 60;
    a.lon = test::userLon + row.east / 60 / std::cos(test::userLat * degToRad);
    a.altitude = row.altitude;
    a.heading = row.heading;
    a.onGround = row.onGround;
    avoidUserCollisions();
    EXPECT_EQ(pendingRemoveObjects.size(), row.removed ? 1u : 0u) << &row - rows;
  }
  // Live taxiing past a parked aircraft: wings of 20 metres and a margin of a tenth.
  for (const double metres : {43.0, 45.0}) {
    resetEngineTables();
    standing(parkedAircraft, "KLM9*");
    LiveAircraft& taxiing = standing(liveAircraft, "DLH1");
    taxiing.onGround = true;
    taxiing.phase = Taxi;
    taxiing.lat = stands[0].lat + metres * nmPerMetre / 60;
    taxiing.lon = stands[0].lon;
    avoidLiveParkedCollisions();
    EXPECT_EQ(pendingRemoveObjects.size(), metres < 44 ? 1u : 0u) << metres;
  }
  // The answer to a blocked aircraft: a record without object is dropped, an object removed.
  standing(liveAircraft, "DLH2").state = Buffered;
  pushSimCommand({0, 0x3c0000, 0, commandBlocked, 0, 0});
  pushSimCommand({0, 62, 0, commandBlocked, 0, 0});
  pushSimCommand({0, 63, 0, commandBlocked, 0, 0});
  workOffSimCommands();
  EXPECT_EQ(std::vector(pendingRemoveObjects.begin(), pendingRemoveObjects.end()),
            std::vector<std::uint32_t>{62});
  EXPECT_TRUE(findLive(63)->toDelete);
  EXPECT_TRUE(test::logHas("DLH1 removed from simulator immediately while blocked"));
  EXPECT_TRUE(test::logHas("DLH2 will be removed from buffer while blocked"));
}

} // namespace
} // namespace ory
