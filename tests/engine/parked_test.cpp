// Static parked aircraft driven by the engine's tick: made from the creation queue one at a creation step,
// settled when the simulator answers, and held under the wanted number.
#include "engine_world.h"
#include "parking/airport_file.h"
#include "parking/parked_aircraft.h"
#include "parking/stands.h"
#include "parking/static_parking.h"

#include <gtest/gtest.h>

#include <algorithm>

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
  static StaticRequest request(std::uint32_t standId, std::string in, std::string out, std::string airline,
                               std::string type, std::int32_t fit) {
    StaticRequest r;
    r.standId = standId;
    r.callsignIn = std::move(in);
    r.callsignOut = std::move(out);
    r.airline = std::move(airline);
    r.type = std::move(type);
    r.fit = fit;
    r.staysNextHalfHour = true;
    return r;
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
  creationQueue = {request(1, "KLM9", "", "KLM", "B738", 0), request(2, "KLM7", "", "KLM", "B738", 0),
                   request(4, "", "", "DLH", "A320", 3), request(3, "KLM1_", "KLM2", "KLM", "B738", 0)};
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
  ticks(201);
  ASSERT_EQ(parkedAircraft.size(), 2u);
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

} // namespace
} // namespace ory
