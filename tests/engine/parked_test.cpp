// Static parked aircraft driven by the engine's tick: made from the creation queue one at a creation step,
// settled when the simulator answers, and held under the wanted number.
#include "engine_world.h"
#include "frame/main_loop.h"
#include "parking/airport_database.h"
#include "parking/airport_file.h"
#include "parking/park_airports.h"
#include "parking/parked_aircraft.h"
#include "parking/stands.h"
#include "parking/static_parking.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <set>

namespace ory {
namespace {

class ParkedTest : public test::EngineTest {
protected:
  void TearDown() override {
    resetStaticParking();
    resetStands();
    INITIAL_LOAD_ONLY.value = false;
    rtProfessional = false;
    lastFeedTime = 0;
    EngineTest::TearDown();
  }
  // Stands on a meridian, north metres from the user, radius 20 metres.
  static void makeStands(const std::vector<double>& north) {
    stands.clear();
    for (const double metres : north) {
      Stand& stand = stands.emplace_back();
      stand.id = "S" + std::to_string(stands.size());
      stand.standId = static_cast<std::uint32_t>(stands.size());
      stand.lat = test::userLat + metres * nmPerMetre / 60;
      stand.lon = test::userLon;
      stand.heading = pi / 2;
      stand.radius = 20 * nmPerMetre;
    }
    findOverlaps(stands);
  }
};

TEST_F(ParkedTest, theQueueBecomesParkedAircraftOneACreationStepAndAVetoOfLiveTrafficStands) {
  makeStands({0, 30, 300, 600}); // S1 and S2 overlap
  LiveAircraft& live = liveAircraft.emplace_back();
  live.hexid = 0x484001;
  live.callsign = "LIVE1";
  live.objectId = 50;
  live.standId = 1;
  live.phase = Parked;
  live.state = Alive;
  // liveHexid, fit, airline, type, standId, callsignIn, callsignOut, regcode, isRealParked, staysNextHalfHour
  creationQueue = {{0, 0, "KLM", "B738", 1, "KLM9", "", "", false, true},
                   {0, 0, "KLM", "B738", 2, "KLM7", "", "", false, true},
                   {0, 3, "DLH", "A320", 4, "", "", "", false, true},
                   {0, 0, "KLM", "B738", 3, "KLM1_", "KLM2", "", false, true}};
  staticHexid = 9998;
  rtProfessional = true;
  lastFeedTime = 6 * 86400 + 20 * 1800; // Wednesday 10:00
  updateNowSlot();

  // The freshest, at the end, first; one request is released at each creation step of 50 ticks.
  std::vector<CreateRequest> made;
  for (std::int32_t step = 0; step < 4; ++step) {
    ticks(50);
    std::lock_guard lock(batchLock);
    made.insert(made.end(), createBatch.begin(), createBatch.end());
    EXPECT_LE(createBatch.size(), 1u);
    createBatch.clear();
  }
  ASSERT_EQ(made.size(), 2u) << test::logText();
  EXPECT_TRUE(creationQueue.empty());
  EXPECT_EQ(made[0].callsign, "KLM1*") << "a trailing '_' goes";
  EXPECT_EQ(made[1].callsign, "DLH0*") << "no callsign: airline and hexid";
  EXPECT_EQ(made[0].hexid, 9999u);
  EXPECT_EQ(made[1].hexid, 0u) << "the made-up hexids wrap";
  EXPECT_TRUE(made[0].onGround && made[0].altitude == 0 && made[0].lat == stands[2].lat);
  EXPECT_DOUBLE_EQ(made[0].heading, 90);
  EXPECT_EQ(made[0].liveryTitle, "KLM 737");
  EXPECT_TRUE(test::logHas("S2      : no static parking for KLM7, live aircraft LIVE1 is adjacent at S1"));
  EXPECT_TRUE(test::logHas("S1      : no static parking for KLM9, live aircraft LIVE1 standing here"));

  // The simulator makes them; two seconds later they stand parked, engines off.
  for (const CreateRequest& r : made)
    pushSimCommand({nextObject++, r.hexid, 0, commandParkedAdded, 0, 0});
  pushSimCommand({999, 4242, 0, commandParkedAdded, 0, 0}); // its record went while the object was made
  ticks(201);
  ASSERT_EQ(parkedAircraft.size(), 2u);
  const std::vector<std::uint32_t> gone = takeRemovals();
  EXPECT_NE(std::find(gone.begin(), gone.end(), 999), gone.end())
      << "an object without its record would stand";
  EXPECT_TRUE(std::all_of(parkedAircraft.begin(), parkedAircraft.end(), [](const ParkedAircraft& p) {
    return p.state == Alive && p.objectId >= test::firstObject;
  }));
  const std::vector<ObjectEvent> events = takeEvents();
  for (const ParkedAircraft& p : parkedAircraft)
    EXPECT_TRUE(std::any_of(events.begin(), events.end(), [&](const ObjectEvent& e) {
      return e.objectId == p.objectId && e.eventId == eventIdEngineStop;
    })) << p.callsign;
  EXPECT_TRUE(test::logHas("S3      : KLM1*    parked"));

  // More parked than wanted: the live aircraft parked longest goes first, then the static that came last.
  struct Row {
    bool initialLoadOnly;
    std::int32_t wanted;
    std::vector<std::uint32_t> removed;
  };
  const std::uint32_t lastArrived = findParked(9999)->objectId; // fit 0, the other arrived 3 half hours ago
  for (const Row& row :
       {Row{false, 1, {50, lastArrived}}, Row{true, 1, {lastArrived}}, Row{false, 0, {lastArrived}}}) {
    pendingRemoveObjects.clear();
    for (ParkedAircraft& p : parkedAircraft)
      p.state = Alive;
    live.state = Alive;
    INITIAL_LOAD_ONLY.value = row.initialLoadOnly;
    wantedStands = row.wanted;
    limitParked(1);
    EXPECT_EQ(std::vector<std::uint32_t>(pendingRemoveObjects.begin(), pendingRemoveObjects.end()),
              row.removed)
        << row.initialLoadOnly << " " << row.wanted;
  }
}

TEST_F(ParkedTest, aNewLiveAircraftTakesThePlaceOfItsStaticTwin) {
  makeStands({0, 300, 600});
  const auto parked = [](std::uint32_t objectId, std::string in, std::string out, std::string regcode) {
    ParkedAircraft p;
    p.objectId = objectId;
    p.standId = objectId - 60;
    p.callsign = in + "*";
    p.callsignIn = std::move(in);
    p.callsignOut = std::move(out);
    p.regcode = std::move(regcode);
    p.type = "A320";
    return p;
  };
  struct Row {
    const char* probe;
    std::string callsign, regcode, callsignOut;
    std::uint32_t hexid;
    std::vector<std::uint32_t> removed;
  };
  const std::vector<Row> rows = {
      {"the real aircraft it stood for", "XXX1", "", "", 0x484999, {62}},
      {"its registration", "XXX2", "G-EZYA", "", 0x484001, {63}},
      {"its arrival callsign", "KLM1", "", "", 0x484001, {61}},
      {"its departure callsign", "KLM2", "", "", 0x484001, {61}},
      {"the live aircraft's own couple", "KLM7", "", "KLM1", 0x484001, {61}},
      {"a ghost of its flight", "EZY3_", "", "", 0x484001, {63}},
      {"nothing in common", "BAW9", "G-BAWA", "", 0x484001, {}},
  };
  for (const Row& row : rows) {
    parkedAircraft = {parked(61, "KLM1", "KLM2", "PH-AAA"), parked(62, "DLH5", "", ""),
                      parked(63, "EZY3", "", "G-EZYA")};
    parkedAircraft[1].isRealParked = true;
    parkedAircraft[1].liveHexid = 0x484999;
    for (ParkedAircraft& p : parkedAircraft)
      p.state = Alive;
    LiveAircraft& live = liveAircraft.emplace_back();
    live.hexid = row.hexid;
    live.callsign = row.callsign;
    live.regcode = row.regcode;
    live.callsignOut = row.callsignOut;
    live.type = "A320";
    newLiveHexids = {row.hexid};
    pendingRemoveObjects.clear();
    serveNewLiveHexid();
    EXPECT_EQ(std::vector<std::uint32_t>(pendingRemoveObjects.begin(), pendingRemoveObjects.end()),
              row.removed)
        << row.probe;
    EXPECT_TRUE(newLiveHexids.empty()) << row.probe;
    liveAircraft.clear();
  }
  EXPECT_TRUE(test::logHas("S3      : EZY3*    A320 removed, new XXX2 A320 has same regcode G-EZYA"));
  EXPECT_TRUE(test::logHas(
      "S1      : KLM1*    \"KLM1 KLM2\" removed, new KLM7 A320 \" KLM1\" has coupled callsign KLM7"));
}

// Ten stands of Amsterdam 100 metres apart, S1 under the user. Each has a KLM 737 from 10:00 to 11:00 and a
// Lufthansa A320 from 11:00 to 12:00 on Wednesdays; S3's KLM registration is S2's as well.
void lf_writeAmsterdam() {
  std::string archived = R"(<parameters><parameter name="airport_name" value="Schiphol"/>
<parameter name="publisher" value="stock"/><parameter name="altitude" value="-11"/></parameters><parkpositions>)";
  std::string learned = R"(<parameters><parameter name="airport_name" value="Schiphol"/>
<parameter name="parking_percentage" value="50"/><parameter name="MAX_FIT" value="1"/></parameters><parkpositions>)";
  for (int i = 1; i <= 10; ++i) {
    archived +=
        fmt::format(R"(<parkpos id="S{}" latitude="{:.6f}" longitude="4.760000" heading="90" radius="20"/>)",
                    i, 52.3090 + (i - 1) * 0.0009);
    learned += fmt::format(
        R"(<parkpos id="S{0}"><opt reg="PH-K{1}" airl="KLM" type="B738" day="3" hh="20,21" cs="KLM{0}"/>
<opt reg="D-D{0}" airl="DLH" type="A320" day="3" hh="22,23" cs="DLH{0}"/></parkpos>)",
        i, i == 3 ? 2 : i);
  }
  test::writeBytes("airports/archive/stock/EHAM.xml", archived + "</parkpositions>");
  test::writeBytes("airports/learned/stock/EHAM.xml", learned + "</parkpositions>");
}

// The program's main loop in this process, with the simulator's side played by the test: the user sits on a
// stand, the apron fills, is renewed 20 minutes later, and empties when the user flies out of sight.
TEST_F(ParkedTest, theApronAroundTheUserFillsIsRenewedAndEmptiesWhenLeft) {
  test::installPreparedData(".");
  ASSERT_TRUE(readAirports());
  lf_writeAmsterdam();
  AUTO_RANGE.value = false;
  rtProfessional = true;
  lastFeedTime = 6 * 86400 + 20 * 1800; // Wednesday 10:00
  UserAircraft user;
  user.lat = 52.3090;
  user.lon = 4.7600;
  writeUserAircraft(user);
  userOnGround = userOnGroundKnown = true;
  resetMainLoopState();
  simRunning = true;

  std::map<std::int32_t, int> createdPerSecond;
  std::size_t mostOnOneStand = 0;
  std::set<std::string> shown; // stand and callsign of every parked aircraft that stood
  const auto seconds = [&](std::int32_t count) {
    for (std::int32_t s = 0; s < count; ++s)
      for (std::int32_t t = 0; t < 100; ++t) {
        secondTick = t == 0;
        mainLoop();
        std::vector<CreateRequest> created;
        std::vector<std::uint32_t> removed;
        {
          std::lock_guard lock(batchLock);
          created.swap(createBatch);
          removed.swap(removeBatch);
          eventBatch.clear();
        }
        for (const CreateRequest& r : created) {
          ++createdPerSecond[simTick / 100];
          pushSimCommand(
              {nextObject++, r.hexid, 0, r.hexid <= 10000 ? commandParkedAdded : commandLiveAdded, 0, 0});
        }
        for (const std::uint32_t object : removed)
          pushSimCommand({object, 0, 0, commandRemoved, 0, 0});
        std::map<std::uint32_t, std::size_t> onStand;
        for (const ParkedAircraft& p : parkedAircraft)
          if (p.state == Alive) {
            mostOnOneStand = std::max(mostOnOneStand, ++onStand[p.standId]);
            shown.insert(standName(p.standId) + " " + p.callsign);
          }
      }
  };
  const auto standing = [] {
    std::vector<std::string> aircraft;
    for (const ParkedAircraft& p : parkedAircraft)
      if (p.state == Alive) aircraft.push_back(standName(p.standId) + " " + p.callsign + " " + p.regcode);
    std::sort(aircraft.begin(), aircraft.end());
    return aircraft;
  };

  seconds(60); // chosen at 16 s, opened at 32 s
  EXPECT_EQ(parkAirportCode, "EHAM") << test::logText();
  EXPECT_EQ(wantedStands, 5);
  // In stand order; S1 is the user's, S3 would show S2's registration a second time.
  EXPECT_EQ(standing(), (std::vector<std::string>{"S2 KLM2* PH-K2", "S4 KLM4* PH-K4", "S5 KLM5* PH-K5",
                                                  "S6 KLM6* PH-K6", "S7 KLM7* PH-K7"}));
  EXPECT_FALSE(calculating) << "the queue ran empty and the next step said so";

  lastFeedTime = lastFeedTime + 3 * 1800; // 11:30: the Lufthansa aircraft stand there now
  seconds(1260 - 60);
  EXPECT_TRUE(test::logHas("Parking adjustments: 5 to be removed, 5 to be added"));
  EXPECT_EQ(standing(), (std::vector<std::string>{"S2 DLH2* D-D2", "S3 DLH3* D-D3", "S4 DLH4* D-D4",
                                                  "S5 DLH5* D-D5", "S6 DLH6* D-D6"}));

  // Up and away: out of sight at the next step, everything parked goes.
  userOnGround = false;
  user.lat = 52.7;
  user.aboveGround = 3000;
  writeUserAircraft(user);
  seconds(20);
  EXPECT_TRUE(parkedAircraft.empty());
  EXPECT_EQ(parkAirportCode, "");

  EXPECT_EQ(mostOnOneStand, 1u) << "never two aircraft on one stand";
  EXPECT_LE(std::max_element(createdPerSecond.begin(), createdPerSecond.end(),
                             [](const auto& a, const auto& b) { return a.second < b.second; })
                ->second,
            2);
  EXPECT_EQ(
      std::count_if(shown.begin(), shown.end(), [](const std::string& s) { return s.starts_with("S1 "); }),
      0);
  simRunning = false;
  clearAirports();
  forgetParkAirports();
  resetMainLoopState();
}

} // namespace
} // namespace ory
