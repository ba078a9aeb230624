// The commands to one object as they land in the event batch: the value tables, the steps that send nothing,
// the helicopter's exceptions, the light table; and the two calls that go straight to the simulator.
#include "base/log.h"
#include "base/parameters.h"
#include "base/run.h"
#include "simlink/batches.h"
#include "simlink/commands.h"
#include "simlink/session.h"
#include "support/scratch.h"
#include "wire_peer.h"

#include <gtest/gtest.h>

#include <functional>
#include <mutex>

namespace ory {
namespace {

using Events = std::vector<std::array<std::uint32_t, 2>>; // event id, data

class CommandsTest : public test::InScratchFolder {
protected:
  void SetUp() override {
    openLog();
    exiting = true; // a third failed request logs, and restarts nothing
    resetSimLink();
    NAV_LIGHTS_WHILE_PARKED.value = false;
  }
  void TearDown() override {
    {
      std::lock_guard lock(batchLock);
      SimConnect_Close(simHandle);
      simHandle = nullptr;
    }
    resetSimLink();
    RANDOM.value = RANDOM.defaultValue;
    NAV_LIGHTS_WHILE_PARKED.value = NAV_LIGHTS_WHILE_PARKED.defaultValue;
    exiting = false;
    closeLog();
  }
  // The events appended since the last call, all for objectId.
  Events taken(std::uint32_t objectId) {
    std::lock_guard lock(batchLock);
    Events events;
    for (const ObjectEvent& event : eventBatch) {
      EXPECT_EQ(event.objectId, objectId) << "event " << event.eventId;
      events.push_back({event.eventId, event.data});
    }
    eventBatch.clear();
    return events;
  }
};

ParkedAircraft lf_aircraft(std::uint32_t category) {
  ParkedAircraft aircraft;
  aircraft.callsign = "DLH4AB";
  aircraft.objectId = 40;
  aircraft.category = category;
  return aircraft;
}

TEST_F(CommandsTest, StepsBecomeEventDataOnceAndHelicoptersGetNoGearFlapsOrSpoilers) {
  struct Row {
    const char* what;
    std::uint32_t category;
    std::function<void(ParkedAircraft&)> commands;
    Events expected;
    std::uint32_t flapsState;
    std::uint32_t throttleState;
  };
  const std::vector<Row> rows = {
      // The value tables, from the states of a new record (flaps 4, throttle 5).
      {"flaps 0 to 4",
       2,
       [](ParkedAircraft& a) {
         for (std::uint32_t step : {0u, 1u, 2u, 3u, 4u})
           sendFlaps(a, step);
       },
       {{218, 0}, {218, 3072}, {218, 10240}, {218, 16383}, {218, 0}},
       4,
       5},
      {"throttle 0 to 4",
       2,
       [](ParkedAircraft& a) {
         for (std::uint32_t step : {0u, 1u, 2u, 3u, 4u})
           sendThrottle(a, step);
       },
       {{223, 0}, {223, 4914}, {223, 8191}, {223, 11468}, {223, 16383}},
       4,
       4},
      {"gear and spoilers",
       2,
       [](ParkedAircraft& a) {
         sendGear(a, true);
         sendGear(a, false);
         sendSpoilers(a, true);
         sendSpoilers(a, false);
       },
       {{220, 1}, {220, 0}, {219, 16383}, {219, 0}},
       4,
       5},
      // What sends nothing.
      {"the stored step again",
       2,
       [](ParkedAircraft& a) {
         sendFlaps(a, 4);
         sendFlaps(a, 1);
         sendFlaps(a, 1);
         sendThrottle(a, 2);
         sendThrottle(a, 2);
       },
       {{218, 3072}, {223, 8191}},
       1,
       2},
      {"throttle 5 only stores, and the next step sends",
       2,
       [](ParkedAircraft& a) {
         sendThrottle(a, 0);
         sendThrottle(a, 5);
         sendThrottle(a, 0);
       },
       {{223, 0}, {223, 0}},
       4,
       0},
      {"steps beyond the tables",
       2,
       [](ParkedAircraft& a) {
         sendFlaps(a, 5);
         sendThrottle(a, 6);
       },
       {},
       4,
       5},
      {"no object yet: nothing goes to the user's aircraft, nothing is stored",
       2,
       [](ParkedAircraft& a) {
         a.objectId = 0;
         sendFlaps(a, 1);
         sendThrottle(a, 1);
         sendGear(a, true);
         a.objectId = 40;
       },
       {},
       4,
       5},
      // The helicopter: throttle, engines and lights only.
      {"helicopter",
       5,
       [](ParkedAircraft& a) {
         sendGear(a, true);
         sendSpoilers(a, true);
         sendFlaps(a, 1);
         sendThrottle(a, 4);
         setParkedSystems(a);
       },
       {{223, 16383},
        {223, 0},
        {222, 0},
        {208, 0},
        {207, 0},
        {211, 0},
        {209, 0},
        {210, 0},
        {213, 1},
        {212, 1}},
       4,
       0},
  };
  RANDOM.value = false;
  for (const Row& row : rows) {
    ParkedAircraft aircraft = lf_aircraft(row.category);
    row.commands(aircraft);
    EXPECT_EQ(taken(40), row.expected) << row.what;
    EXPECT_EQ(aircraft.flapsState, row.flapsState) << row.what;
    EXPECT_EQ(aircraft.throttleState, row.throttleState) << row.what;
  }
  EXPECT_TRUE(test::logHas("! DLH4AB flaps step 5 out of range\n! DLH4AB throttle step 6 out of range\n"));
}

TEST_F(CommandsTest, TheLightTableByMomentHeightAndStand) {
  using M = LightMoment;
  struct Row {
    const char* what;
    LightMoment moment;
    double altitude;
    double aboveGround;
    bool navWhileParked;
    LightSet expected; // nav, beacon, landing, taxi, strobes, logo, cabin
  };
  const std::vector<Row> rows = {
      {"parked", M::settledParked, 0, 0, false, {0, 0, 0, 0, 0, 1, 1}},
      {"parked, nav lights wanted", M::settledParked, 0, 0, true, {1, 0, 0, 0, 0, 1, 1}},
      {"taxi", M::settledTaxi, 0, 0, false, {1, 1, 0, 1, 0, 1, 1}},
      {"ground", M::settledGround, 0, 0, false, {1, 1, 0, 0, 0, 1, 1}},
      // Airborne: landing and logo at or below 10000 feet, cabin from 2000 feet above the ground.
      {"airborne low", M::settledAirborne, 10000, 1999, false, {1, 1, 1, 0, 1, 1, 0}},
      {"airborne high", M::settledAirborne, 10001, 2000, false, {1, 1, 0, 0, 1, 0, 1}},
      {"on stand", M::arrivedOnStand, 0, 0, true, {1, 0, 0, 0, 0, 1, 1}},
      {"push back", M::pullOutPushBack, 0, 0, false, {1, 1, 0, 1, 0, 1, 0}},
      {"departure", M::departureStart, 0, 0, false, {1, 1, 1, 1, 1, 1, 0}},
      {"below 10000", M::below10000, 9000, 9000, false, {1, 1, 1, 1, 1, 1, 1}},
      {"above 10000", M::above10000, 11000, 11000, false, {1, 1, 0, 0, 0, 0, 1}},
  };
  RANDOM.value = false;
  for (const Row& row : rows) {
    NAV_LIGHTS_WHILE_PARKED.value = row.navWhileParked;
    EXPECT_EQ(lightSet(row.moment, row.altitude, row.aboveGround, false), row.expected) << row.what;
  }

  // The cabin on a stand: dark on a cargo stand; with RANDOM lit nine times in ten, without it always.
  const auto litCabins = [](bool cargo) {
    int lit = 0;
    for (int i = 0; i < 2000; ++i)
      lit += static_cast<int>(lightSet(LightMoment::arrivedOnStand, 0, 0, cargo)[6]);
    return lit;
  };
  EXPECT_EQ(litCabins(false), 2000);
  EXPECT_EQ(litCabins(true), 0);
  RANDOM.value = true;
  EXPECT_EQ(litCabins(true), 0);
  const int lit = litCabins(false);
  EXPECT_GT(lit, 1700) << "nine in ten of 2000, far beyond chance";
  EXPECT_LT(lit, 1900);
}

TEST_F(CommandsTest, LightsEnginesAndParkedSystemsInTheirEventOrder) {
  RANDOM.value = false;
  NAV_LIGHTS_WHILE_PARKED.value = true;
  ParkedAircraft aircraft = lf_aircraft(3);
  aircraft.flapsState = 2;
  aircraft.throttleState = 3;
  aircraft.onCargoStand = true;
  setParkedSystems(aircraft);
  EXPECT_EQ(taken(40), (Events{{223, 0},
                               {218, 0},
                               {222, 0},
                               {208, 1},
                               {207, 0},
                               {211, 0},
                               {209, 0},
                               {210, 0},
                               {213, 1},
                               {212, 0}}));
  sendEngineStart(40);
  sendNavLights(40, false);
  sendCabinLights(40, true);
  sendLights(0, lightSet(LightMoment::below10000, 0, 0, false));
  EXPECT_EQ(taken(40), (Events{{221, 0}, {208, 0}, {212, 1}}));
}

TEST_F(CommandsTest, ToggleAndGeometryGoStraightToTheSimulatorAndFailuresAreCounted) {
  allLightsToggle(40);
  requestModelGeometry(40);
  EXPECT_TRUE(test::logHas("SimConnect gf_allLightsToggle fails\nSimConnect request StaticCG fails\n"));
  EXPECT_EQ(requestErrors, 1) << "a failed toggle is no failed request";

  test::WirePeer peer;
  {
    std::lock_guard lock(batchLock);
    simHandle = test::openAgainst(peer, test::openRecord("Lockheed Martin Prepar3D v5"));
  }
  ASSERT_NE(simHandle, nullptr);
  allLightsToggle(41);
  requestModelGeometry(41);
  const test::Bytes toggle = peer.readPacket();
  EXPECT_EQ(test::u32At(toggle, 8), 0xF0000005u);
  EXPECT_EQ(test::u32At(toggle, 16), 41u);
  EXPECT_EQ(test::u32At(toggle, 20), 214u);
  EXPECT_EQ(test::u32At(toggle, 28), 301u);
  const test::Bytes request = peer.readPacket();
  EXPECT_EQ(test::u32At(request, 8), 0xF000000Eu);
  EXPECT_EQ((std::array{test::u32At(request, 16), test::u32At(request, 20), test::u32At(request, 24),
                        test::u32At(request, 28)}),
            (std::array{102u, 405u, 41u, 1u}));
  std::lock_guard lock(batchLock);
  EXPECT_TRUE(eventBatch.empty()) << "neither waits for the frame";
}

} // namespace
} // namespace ory
