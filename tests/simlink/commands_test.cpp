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

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <map>
#include <mutex>
#include <sstream>

namespace ory {
namespace {

class CommandsTest : public test::InScratchFolder {
protected:
  void SetUp() override {
    openLog();
    exiting = true; // a third failed request logs, and restarts nothing
    resetSimLink();
    RANDOM.value = false;
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
};

using Command = void (*)(ParkedAircraft&, std::uint32_t);
const std::map<char, Command> commandLetters = {
    {'F', [](ParkedAircraft& a, std::uint32_t n) { sendFlaps(a, n); }},
    {'T', [](ParkedAircraft& a, std::uint32_t n) { sendThrottle(a, n); }},
    {'G', [](ParkedAircraft& a, std::uint32_t n) { sendGear(a, n != 0); }},
    {'S', [](ParkedAircraft& a, std::uint32_t n) { sendSpoilers(a, n != 0); }},
    {'P', [](ParkedAircraft& a, std::uint32_t) { setParkedSystems(a); }},
    {'E', [](ParkedAircraft& a, std::uint32_t) { sendEngineStart(a.objectId); }},
    {'N', [](ParkedAircraft& a, std::uint32_t n) { sendNavLights(a.objectId, n != 0); }},
    {'C', [](ParkedAircraft& a, std::uint32_t n) { sendCabinLights(a.objectId, n != 0); }},
};

// Plays commands such as "F1 T5 G1 P" (flaps, throttle, gear, spoilers, parked systems, engine start, nav and
// cabin lights) on aircraft; what reached the event batch as "event:data" words.
std::string lf_play(ParkedAircraft& aircraft, const std::string& commands) {
  std::istringstream words(commands);
  for (std::string word; words >> word;)
    commandLetters.at(word[0])(aircraft,
                               word.size() > 1 ? static_cast<std::uint32_t>(std::stoul(word.substr(1))) : 0);
  std::lock_guard lock(batchLock);
  std::string events;
  for (const ObjectEvent& event : eventBatch) {
    EXPECT_EQ(event.objectId, aircraft.objectId) << commands;
    events += fmt::format("{}{}:{}", events.empty() ? "" : " ", event.eventId, event.data);
  }
  eventBatch.clear();
  return events;
}

TEST_F(CommandsTest, StepsBecomeEventDataOnceAndHelicoptersGetNoGearFlapsOrSpoilers) {
  const struct {
    std::uint32_t category;
    std::uint32_t objectId;
    const char* commands; // from the states of a new record: flaps 4, throttle 5
    const char* events;
    std::array<std::uint32_t, 2> states; // flaps, throttle
  } rows[] = {
      // The value tables.
      {2, 40, "F0 F1 F2 F3 F4", "218:0 218:3072 218:10240 218:16383 218:0", {4, 5}},
      {2, 40, "T0 T1 T2 T3 T4", "223:0 223:4914 223:8191 223:11468 223:16383", {4, 4}},
      {2, 40, "G1 G0 S1 S0", "220:1 220:0 219:16383 219:0", {4, 5}},
      // The stored step sends nothing; throttle 5 is only stored; steps beyond the tables are refused.
      {2, 40, "F4 F1 F1 T2 T2", "218:3072 223:8191", {1, 2}},
      {2, 40, "T0 T5 T0", "223:0 223:0", {4, 0}},
      {2, 40, "F5 T6", "", {4, 5}},
      // Without an object nothing goes to object 0, the user's aircraft, and nothing is stored.
      {2, 0, "F1 T1 G1 P E", "", {4, 5}},
      // On the stand: throttle, flaps, engines off, the stand's lights; nav and cabin alone.
      {2,
       40,
       "T3 P E N0 C1",
       "223:11468 223:0 218:0 222:0 208:0 207:0 211:0 209:0 210:0 213:1 212:1 221:0 208:0 212:1",
       {0, 0}},
      // The helicopter: throttle, engines and lights only.
      {5, 40, "G1 S1 F1 T4 P", "223:16383 223:0 222:0 208:0 207:0 211:0 209:0 210:0 213:1 212:1", {4, 0}},
  };
  for (const auto& row : rows) {
    ParkedAircraft aircraft;
    aircraft.callsign = "DLH4AB";
    aircraft.category = row.category;
    aircraft.objectId = row.objectId;
    EXPECT_EQ(lf_play(aircraft, row.commands), row.events) << row.commands;
    EXPECT_EQ((std::array{aircraft.flapsState, aircraft.throttleState}), row.states) << row.commands;
  }
  EXPECT_TRUE(test::logHas("! DLH4AB flaps step 5 out of range\n! DLH4AB throttle step 6 out of range\n"));
}

TEST_F(CommandsTest, TheLightTableByMomentHeightAndStand) {
  using M = LightMoment;
  const struct {
    LightMoment moment;
    double altitude;    // feet
    double aboveGround; // feet
    bool navWhileParked;
    bool cargoStand;
    LightSet expected; // nav, beacon, landing, taxi, strobes, logo, cabin
  } rows[] = {
      {M::settledParked, 0, 0, false, false, {0, 0, 0, 0, 0, 1, 1}},
      {M::settledParked, 0, 0, true, false, {1, 0, 0, 0, 0, 1, 1}},
      // Airborne: landing and logo up to 10000 feet, cabin from 2000 feet above the ground.
      {M::settledAirborne, 10000, 1999, false, false, {1, 1, 1, 0, 1, 1, 0}},
      {M::settledAirborne, 10001, 2000, false, false, {1, 1, 0, 0, 1, 0, 1}},
      {M::arrivedOnStand, 0, 0, true, false, {1, 0, 0, 0, 0, 1, 1}},
      {M::arrivedOnStand, 0, 0, false, true, {0, 0, 0, 0, 0, 1, 0}},
      {M::departureStart, 0, 0, false, false, {1, 1, 1, 1, 1, 1, 0}},
      {M::above10000, 11000, 11000, false, false, {1, 1, 0, 0, 0, 0, 1}},
  };
  for (const auto& row : rows) {
    NAV_LIGHTS_WHILE_PARKED.value = row.navWhileParked;
    EXPECT_EQ(lightSet(row.moment, row.altitude, row.aboveGround, row.cargoStand), row.expected)
        << static_cast<int>(row.moment) << " at " << row.altitude;
  }
  // The cabin on a passenger stand: with RANDOM lit nine times in ten, without it always.
  const auto litCabins = [] {
    int lit = 0;
    for (int i = 0; i < 2000; ++i)
      lit += static_cast<int>(lightSet(LightMoment::arrivedOnStand, 0, 0, false)[6]);
    return lit;
  };
  EXPECT_EQ(litCabins(), 2000);
  RANDOM.value = true;
  const int lit = litCabins();
  EXPECT_GT(lit, 1700) << "nine in ten of 2000, far beyond chance";
  EXPECT_LT(lit, 1900);
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
  const auto fields = [](const test::Bytes& packet) {
    return std::array{test::u32At(packet, 8), test::u32At(packet, 16), test::u32At(packet, 20),
                      test::u32At(packet, 24), test::u32At(packet, 28)};
  };
  EXPECT_EQ(fields(peer.readPacket()), (std::array{0xF0000005u, 41u, 214u, 0u, 301u}))
      << "object, event, group";
  EXPECT_EQ(fields(peer.readPacket()), (std::array{0xF000000Eu, 102u, 405u, 41u, 1u}))
      << "request, definition, object, once";
  std::lock_guard lock(batchLock);
  EXPECT_TRUE(eventBatch.empty()) << "neither waits for the frame";
}

} // namespace
} // namespace ory
