// Who gives way, tick by tick: ghosts against their real flights, aircraft on a stand against the one that
// wants it, parked aircraft against live ones, and every aircraft against the user's.
#include "engine/stand_choice.h"
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

constexpr double airportLat = 52.3086;
constexpr double airportLon = 4.7639;
constexpr double metresEast = 1 / (metresPerDegree * 0.6156615); // degrees of longitude per metre here

class ConflictTest : public test::EngineTest {
protected:
  void SetUp() override {
    EngineTest::SetUp();
    ghostCallsigns.clear();
    userOnGround = false;
    // Two stands 30 metres apart, wing to wing.
    parkAirportCode = "EHAM";
    parkAirportLat = airportLat;
    parkAirportLon = airportLon;
    for (std::uint32_t i = 0; i < 2; ++i) {
      Stand& stand = stands.emplace_back();
      stand.id = fmt::format("S{}", i + 1);
      stand.standId = i + 1;
      stand.lat = airportLat;
      stand.lon = airportLon + i * 30 * metresEast;
      stand.heading = pi;
      stand.radius = 20 * nmPerMetre;
      stand.neighbours.push_back(2 - i);
    }
  }
  void TearDown() override {
    resetStands();
    parkAirportCode.clear();
    reservedStand.clear();
    ghostCallsigns.clear();
    COLLISION_USER_GND.value = true;
    simRunning = false;
    resetMainLoopState();
    EngineTest::TearDown();
  }
  // Ticks with every create answered; the callsigns created.
  static std::set<std::string> run(std::int32_t count) {
    std::set<std::string> created;
    for (std::int32_t i = 0; i < count; ++i) {
      engineTick();
      for (const CreateRequest& r : createAll())
        created.insert(r.callsign);
    }
    return created;
  }
  // Reports of each flight every 4 seconds, count times, flown on its track; the callsigns created meanwhile.
  static std::set<std::string> fly(std::vector<Report>& flights, std::int32_t count) {
    std::set<std::string> created;
    for (std::int32_t i = 0; i < count; ++i) {
      for (Report& r : flights) {
        queue(r);
        const LatLon next = destination(r.lat, r.lon, r.track * degToRad, r.speed * 4 / 3600 * feetPerNm);
        r.lat = next.lat;
        r.lon = next.lon;
        r.timestamp += 4;
      }
      created.merge(run(400));
    }
    return created;
  }
  static ParkedAircraft parked(std::uint32_t standId, std::string callsign, std::uint32_t state) {
    ParkedAircraft p;
    p.hexid = standId;
    p.standId = standId;
    p.standLat = stands[standId - 1].lat;
    p.standLon = stands[standId - 1].lon;
    p.callsign = std::move(callsign);
    p.type = "B738";
    p.halfWingSpan = 20 * nmPerMetre;
    p.state = state;
    p.objectId = state == Alive ? 60 + standId : 0;
    return p;
  }
};

TEST_F(ConflictTest, aGhostLivesUntilItsRealFlightComesAndNeverReturns) {
  // Ghost and real flight in the same second: the ghost is admitted first, but only the real one is made.
  Report ghost;
  ghost.hexid = 0x484002;
  ghost.callsign = "KLM601_";
  ghost.lon += 0.05;
  std::vector<Report> flights = {ghost, Report{}};
  std::set<std::string> created = fly(flights, 20);
  EXPECT_EQ(created, std::set<std::string>{"KLM601"}) << test::logText();
  EXPECT_EQ(ghostCallsigns, std::vector<std::string>{"KLM601_"});

  // A flight whose callsign ends in '_' by the feed's mistake lives while no such real flight exists.
  Report mistaken;
  mistaken.hexid = 0x3c0001;
  mistaken.callsign = "DLH5_";
  mistaken.type = "A320";
  mistaken.lon -= 0.05;
  flights = {mistaken};
  EXPECT_EQ(fly(flights, 10), std::set<std::string>{"DLH5_"});
  const std::uint32_t mistakenObject = findLive(mistaken.hexid)->objectId;
  Report real = flights[0];
  real.hexid = 0x3c0002;
  real.callsign = "DLH5";
  real.lon += 0.1;
  flights.push_back(real);
  created = fly(flights, 10);
  EXPECT_EQ(created, std::set<std::string>{"DLH5"});
  const std::vector<std::uint32_t> removed = takeRemovals();
  EXPECT_NE(std::find(removed.begin(), removed.end(), mistakenObject), removed.end());
  EXPECT_TRUE(test::logHas("          DLH5_    is a ghost and will be removed, continue with DLH5"));
}

TEST_F(ConflictTest, aClaimOnAStandRemovesTheAircraftOnItOrIsRefused) {
  struct Row {
    const char *claimant, *standing;
    bool confirmed, allowed, removed;
  };
  const Row rows[] = {
      {"KLM5", "KLM5", true, true, true},     // a second aircraft of the same callsign
      {"KLM5_", "KLM5", false, false, false}, // the ghost of the one standing
      {"KLM5", "KLM5_", true, true, true},    // the real flight of the ghost standing
      {"DLH1", "KLM5_", true, true, true},    // any real flight against a ghost
      {"DLH1_", "KLM5", false, false, false}, // a ghost against a real flight
      {"DLH1", "KLM5", true, false, false},   // the feed confirms the one standing
      {"DLH1", "KLM5", false, true, true},    // else the new one wins
  };
  for (const Row& row : rows) {
    liveAircraft.clear();
    pendingRemoveObjects.clear();
    LiveAircraft& standing = liveAircraft.emplace_back();
    standing.callsign = row.standing;
    standing.objectId = 77;
    standing.standId = 1;
    standing.phase = Parked;
    standing.state = Alive;
    standing.standConfirmed = row.confirmed;
    LiveAircraft claimant;
    claimant.callsign = row.claimant;
    EXPECT_EQ(claimStand(claimant, 1), row.allowed) << row.claimant << " " << row.standing;
    EXPECT_EQ(pendingRemoveObjects.size(), row.removed ? 1u : 0u) << row.claimant << " " << row.standing;
  }
  EXPECT_TRUE(test::logHas("S1      : KLM5     ac with same callsign KLM5 wants it, remove existing ... "));
}

TEST_F(ConflictTest, aLiveAircraftOnAStandTakesThePlaceOfItsStaticTwinAndCancelsTheQueuedNeighbour) {
  parkedAircraft = {parked(1, "KLM9*", Alive)};
  parkedAircraft[0].regcode = "PH-XYZ";
  Report r;
  r.lat = airportLat;
  r.lon = airportLon;
  r.altitude = 0;
  r.speed = 0;
  r.regcode = "PH-XYZ";
  ticks(1); // admitted off the creation step, which would send a queued request
  const std::int32_t admitted = simTick + 2900;
  for (int i = 0; i < 3; ++i) {
    queue(r);
    r.timestamp += 20;
    ticks(10);
  }
  ticks(admitted - simTick);
  // Queued at the last moment, so that no creation step sends it before the live aircraft arrives.
  parkedAircraft.push_back(parked(2, "KLM8*", Creating));
  parkedAircraft.back().halfWingSpan = 30 * nmPerMetre;
  pendingParkedCreate = {{0, 0, 0, 0, 0, 0, true, "KLM8*", "", 2}, {0, 0, 0, 0, 0, 0, true, "KLM7*", "", 3}};
  ticks(1);
  const LiveAircraft* live = findLive(r.hexid);
  ASSERT_TRUE(live != nullptr && live->phase == Parked && live->standId == 1) << test::logText();
  EXPECT_TRUE(test::logHas("S1      : KLM9*    B738 makes place for the same live version KLM601"));
  EXPECT_TRUE(test::logHas("queued S2      : KLM8*    removed by adjacent parking KLM601 at S1"));
  EXPECT_EQ(parkedAircraft.size(), 1u);
  EXPECT_EQ(parkedAircraft[0].state, Removing);
  ASSERT_EQ(pendingParkedCreate.size(), 1u);
  EXPECT_EQ(pendingParkedCreate[0].callsign, "KLM7*") << "the others keep their place";
}

TEST_F(ConflictTest, theReservedStandIsEmptiedEveryFiveSecondsWhateverTheUserGroundBox) {
  userOnGround = true;
  simRunning = true;
  reservedStand = "S1";
  for (const bool box : {true, false}) {
    COLLISION_USER_GND.value = box;
    resetMainLoopState();
    parkedAircraft = {parked(1, "KLM9*", Alive)};
    liveAircraft.clear();
    LiveAircraft& live = liveAircraft.emplace_back();
    live.callsign = "DLH1";
    live.objectId = 80;
    live.standId = 1;
    live.phase = Parked;
    live.state = Alive;
    pendingRemoveObjects.clear();
    std::vector<std::size_t> removedBySecond;
    for (std::int32_t s = 0; s < 5; ++s) {
      secondTick = true;
      mainLoop();
      removedBySecond.push_back(pendingRemoveObjects.size());
    }
    EXPECT_EQ(removedBySecond, (std::vector<std::size_t>{0, 0, 0, 0, 2})) << box;
  }
}

TEST_F(ConflictTest, anAircraftInTheApproachCorridorOfTheUserIsHeldBackUntilHeHasLanded) {
  UserAircraft user;
  user.lat = test::userLat;
  user.lon = test::userLon;
  user.altitude = 1500;
  user.aboveGround = 1500;
  user.groundSpeed = 140;
  writeUserAircraft(user);
  Report abeam; // 3 nautical miles east, 500 feet above the user, flying towards his track
  abeam.lat = test::userLat;
  abeam.lon = test::userLon + 3.0 / 60 / std::cos(test::userLat * degToRad);
  abeam.altitude = 2000;
  abeam.speed = 100;
  abeam.track = 270;
  std::vector<Report> flights = {abeam};
  EXPECT_TRUE(fly(flights, 15).empty()) << test::logText();
  ASSERT_NE(findLive(abeam.hexid), nullptr);
  EXPECT_TRUE(findLive(abeam.hexid)->heldBack);

  // Landed but still rolling: held back; standing: made.
  userOnGround = true;
  user.altitude = user.aboveGround = 0;
  writeUserAircraft(user);
  EXPECT_TRUE(fly(flights, 3).empty());
  user.groundSpeed = 0;
  writeUserAircraft(user);
  EXPECT_EQ(fly(flights, 3), std::set<std::string>{"KLM601"});
}

} // namespace
} // namespace ory
