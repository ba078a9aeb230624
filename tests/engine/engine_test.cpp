// The engine driven tick by tick: records go into the inbox as the reader queues them, the simulator's
// answers come back as commands, and what the engine hands to the simulator is read from the batches.
#include "base/exceptions.h"
#include "engine_world.h"

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

namespace ory {
namespace {

using test::EngineTest;
using test::firstObject;
using test::Report;
using test::userLat;
using test::userLon;
using testing::Contains;
using testing::Not;

TEST_F(EngineTest, recordsTooSoonOrWithSpeedJumpsAreDropped) {
  struct Case {
    double firstSpeed, secondSpeed, seconds;
    bool taken;
  };
  const Case cases[] = {
      {100, 100, 1.0, false}, {100, 100, 1.01, true}, {5, 80, 4, false}, {5, 79, 4, true},
      {6, 60, 4, false},      {6, 59, 4, true},       {80, 5, 4, false}, {60, 6, 4, false},
  };
  std::uint32_t hexid = 0x484100;
  for (const Case& c : cases) {
    Report report;
    report.hexid = ++hexid;
    report.callsign = fmt::format("KLM{}", hexid % 1000);
    report.speed = c.firstSpeed;
    queue(report);
    ticks(1);
    report.speed = c.secondSpeed;
    report.timestamp += c.seconds;
    report.lat += 0.01;
    queue(report);
    ticks(1);
    const LiveAircraft* aircraft = findLive(hexid);
    ASSERT_NE(aircraft, nullptr);
    EXPECT_EQ(aircraft->slots.size(), c.taken ? 2u : 1u)
        << c.firstSpeed << " then " << c.secondSpeed << " knots " << c.seconds << " s later";
  }
}

TEST_F(EngineTest, anAircraftIsAdmittedCreatedFrozenInPlaceAndSettledBeforeItMoves) {
  Report report;
  queue(report);
  ticks(1);
  ASSERT_NE(findLive(report.hexid), nullptr);
  EXPECT_EQ(findLive(report.hexid)->state, Buffered);
  fly(report, 10);
  const LiveAircraft* aircraft = findLive(report.hexid);
  ASSERT_NE(aircraft, nullptr);
  EXPECT_EQ(aircraft->state, Creating);
  const std::vector<CreateRequest> created = createAll();
  ASSERT_EQ(created.size(), 1u);
  EXPECT_EQ(created.front().liveryTitle, "KLM 737");
  EXPECT_EQ(created.front().callsign, "KLM601");
  EXPECT_FALSE(created.front().onGround);
  EXPECT_NEAR(created.front().heading, 0, 0.01) << "north, from the first slot to the second";

  const std::string logBefore = test::logText();
  ticks(199);
  EXPECT_EQ(aircraft->state, Creating) << "the object settles for 200 ticks";
  const std::string settling = test::logText().substr(logBefore.size());
  std::size_t toggles = 0;
  for (std::size_t at = settling.find("gf_allLightsToggle"); at != std::string::npos;
       at = settling.find("gf_allLightsToggle", at + 1))
    ++toggles;
  EXPECT_EQ(toggles, 2u) << "the lights toggled at ticks 50 and 100";
  takeEvents();
  ticks(1);
  EXPECT_EQ(aircraft->state, Alive);
  const std::vector<ObjectEvent> events = takeEvents();
  EXPECT_THAT(events, Contains(testing::Field(&ObjectEvent::eventId, eventIdEngineStart)));
  ticks(2);
  std::lock_guard lock(batchLock);
  ASSERT_FALSE(positionBatch.simulatorHalf.empty());
  EXPECT_EQ(positionBatch.simulatorHalf.back().objectId, aircraft->objectId);
}

TEST_F(EngineTest, admissionRefusesWhatCanNeverFly) {
  struct Case {
    std::string what;
    Report report;
    bool created;
  };
  Report nineLetters;
  nineLetters.callsign = "KLM123456";
  Report noLivery;
  noLivery.callsign = "BAW12";
  noLivery.type = "B744";
  Report blocked;
  blocked.callsign = "DLH4";
  blocked.type = "A320";
  Report unknownType;
  unknownType.type = "ZZZZ";
  Report helicopter;
  helicopter.callsign = "REGA1";
  helicopter.type = "EC35";
  helicopter.speed = 100;
  const Case cases[] = {
      {"a nine-letter callsign", nineLetters, false}, {"no livery", noLivery, false},
      {"the blocked callsign", blocked, false},       {"an unknown type", unknownType, false},
      {"a helicopter, allowed", helicopter, true},
  };
  BLOCK_CALLSIGN.value = "DLH4";
  blockPending = true;
  serveBlockedCallsign();
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    resetEngine();
    resetBatches();
    fly(c.report, 10);
    EXPECT_EQ(createAll().size(), c.created ? 1u : 0u);
  }
  EXPECT_TRUE(isNoMatch("BAW", "B744")) << "later aircraft of the key are dropped without a search";
}

TEST_F(EngineTest, theLiveLimitMakesRoomByTheFurthestOnly) {
  struct Case {
    std::int32_t limit;
    std::size_t alive;
    double newcomerNm; // from the user; the alive ones stand between 1 and 2 nautical miles
    bool removed;
  };
  const Case cases[] = {{300, 400, 10, false}, {299, 300, 1.5, true}, {299, 300, 1.95, false}};
  for (const Case& c : cases) {
    resetEngine();
    resetBatches();
    MAX_LIVE.set(c.limit);
    for (std::size_t i = 0; i < c.alive; ++i) {
      LiveAircraft& alive = liveAircraft.emplace_back();
      alive.hexid = 0x500000 + static_cast<std::uint32_t>(i);
      alive.state = Alive;
      alive.objectId = firstObject + static_cast<std::uint32_t>(i);
      alive.lat = userLat + (1 + static_cast<double>(i) / static_cast<double>(c.alive)) / 60;
      alive.lon = userLon;
      alive.slots.push_back({alive.lat, alive.lon});
      alive.slots.back().time = 1 << 30;
      alive.slots.back().stopped = true;
    }
    Report newcomer;
    newcomer.lat = userLat + c.newcomerNm / 60;
    fly(newcomer, 10);
    const std::size_t removing = static_cast<std::size_t>(std::count_if(
        liveAircraft.begin(), liveAircraft.end(), [](const LiveAircraft& a) { return a.state == Removing; }));
    EXPECT_EQ(removing, c.removed ? 1u : 0u) << "limit " << c.limit << ", newcomer at " << c.newcomerNm;
    const LiveAircraft* admitted = findLive(newcomer.hexid);
    EXPECT_EQ(admitted != nullptr && admitted->state == Creating, c.limit == 300 || c.removed);
  }
  MAX_LIVE.set(MAX_LIVE.maximum);
}

TEST_F(EngineTest, aHelicopterNeverGetsFlapsSpoilersOrGear) {
  Report helicopter;
  helicopter.callsign = "REGA1";
  helicopter.type = "EC35";
  helicopter.speed = 100;
  helicopter.altitude = 1500;
  fly(helicopter, 10);
  ASSERT_NE(bringAlive(helicopter.hexid), 0u);
  std::vector<ObjectEvent> events = takeEvents();
  helicopter.timestamp += 40;
  helicopter.altitude = 12000;
  fly(helicopter, 30);
  const std::vector<ObjectEvent> later = takeEvents();
  events.insert(events.end(), later.begin(), later.end());
  ASSERT_FALSE(events.empty());
  for (const std::uint32_t refused : {eventIdFlaps, eventIdSpoilers, eventIdGear})
    EXPECT_THAT(events, Not(Contains(testing::Field(&ObjectEvent::eventId, refused))));
}

TEST_F(EngineTest, aNewCallsignRenewsTheObjectOnItsHeading) {
  GUID_CHANGES.value = true;
  Report report;
  report.altitude = 0;
  report.speed = 15;
  report.track = 90;
  fly(report, 8);
  const std::uint32_t object = bringAlive(report.hexid);
  ASSERT_NE(object, 0u);
  LiveAircraft* aircraft = findLive(report.hexid);
  aircraft->phase = Taxi;
  const double heading = aircraft->heading;
  report.callsign = "KLM602";
  report.timestamp += 100;
  report.lon += 0.01;
  queue(report);
  ticks(10);
  EXPECT_EQ(aircraft->state, Renewing);
  EXPECT_THAT(takeRemovals(), Contains(object));
  pushSimCommand({object, 0, 0, commandRemoved, 0, 0});
  ticks(200);
  const std::vector<CreateRequest> renewed = createAll();
  ASSERT_EQ(renewed.size(), 1u);
  EXPECT_EQ(renewed.front().callsign, "KLM602");
  EXPECT_NEAR(renewed.front().heading, heading * radToDeg, 1e-6);
}

TEST_F(EngineTest, theTwentiethRefusedTitleStopsTheProgram) {
  for (std::uint32_t i = 0; i < 20; ++i) {
    LiveAircraft& refused = liveAircraft.emplace_back();
    refused.hexid = 0x600000 + i;
    refused.state = Creating;
    static std::vector<std::string> titles(20);
    titles[i] = fmt::format("Refused {}", i);
    refused.liveryTitle = titles[i];
    pushSimCommand({0, refused.hexid, 0, commandNotCreated, 0, 0});
    if (i < 19) {
      ticks(1);
      EXPECT_EQ(findLive(refused.hexid), nullptr);
      continue;
    }
    try {
      ticks(1);
      FAIL() << "the twentieth refusal must stop the program";
    } catch (const UserErrorException& e) {
      EXPECT_THAT(std::string(e.what()), testing::StartsWith("81: "));
    }
  }
}

TEST_F(EngineTest, slotTimesRiseStrictlyAndNoSegmentIsShorterThan25Ticks) {
  Report report;
  report.timestamp = 1000;
  queue(report);
  report.lat += 0.2;
  report.timestamp += 10;
  queue(report); // stamped in the same tick
  ticks(1);
  const LiveAircraft* aircraft = findLive(report.hexid);
  ASSERT_EQ(aircraft->slots.size(), 2u);
  EXPECT_EQ(aircraft->slots[1].time, aircraft->slots[0].time + 1);

  Report fast;
  fast.hexid = 0x484002;
  fast.callsign = "KLM7";
  fast.speed = 100;
  fly(fast, 8, 2);
  ASSERT_NE(bringAlive(fast.hexid), 0u);
  // A report 0.05 nm on at 100 knots is 2 seconds of flight; retimed with a second nearly due it stays 25.
  LiveAircraft* alive = findLive(fast.hexid);
  for (std::int32_t i = 0; i < 3000 && alive->slots.size() >= 2; ++i) {
    const std::int32_t before = alive->slots.front().time;
    engineTick();
    if (alive->slots.size() >= 2 && alive->slots.front().time != before) {
      EXPECT_GE(alive->slots.front().time - simTick + 1, 25);
    }
  }
}

TEST_F(EngineTest, theHeadingTurnsTheShortWayThroughNorth) {
  LiveAircraft& aircraft = liveAircraft.emplace_back();
  aircraft.hexid = 0x484003;
  aircraft.state = Alive;
  aircraft.objectId = firstObject;
  aircraft.onGround = true;
  aircraft.phase = Taxi;
  aircraft.curveHeadingSlew = true;
  aircraft.heading = 359 * degToRad;
  aircraft.targetHeading = 1 * degToRad;
  aircraft.turnRate = 0.1 * degToRad;
  aircraft.lat = userLat;
  aircraft.lon = userLon;
  PositionSlot here{userLat, userLon};
  here.time = 1 << 30;
  aircraft.slots.push_back(here);
  std::vector<double> headings;
  for (int i = 0; i < 30; ++i) {
    ticks(1);
    headings.push_back(aircraft.heading * radToDeg);
  }
  EXPECT_NEAR(headings.back(), 1, 1e-9);
  for (double heading : headings)
    EXPECT_TRUE(heading >= 359 - 1e-9 || heading <= 1 + 1e-9) << heading;
}

TEST_F(EngineTest, aFlightAcrossTheDateLineStaysOnTheShortWay) {
  Report report;
  report.lat = userLat;
  report.lon = 179.98;
  report.track = 90;
  report.speed = 240;
  UserAircraft user;
  user.lat = userLat;
  user.lon = 179.9;
  writeUserAircraft(user);
  fly(report, 12);
  ASSERT_NE(bringAlive(report.hexid), 0u);
  const LiveAircraft* aircraft = findLive(report.hexid);
  for (int i = 0; i < 3000; ++i) {
    engineTick();
    ASSERT_GT(std::abs(aircraft->lon), 179.5) << "tick " << i;
  }
  EXPECT_LT(aircraft->lon, 0) << "it crossed to the east";
}

TEST_F(EngineTest, deadReckoningFliesEightSegmentsAfterTheFeedEnds) {
  Report report;
  report.speed = 200;
  fly(report, 12);
  ASSERT_NE(bringAlive(report.hexid), 0u);
  const LiveAircraft* aircraft = findLive(report.hexid);
  std::int32_t predicted = 0;
  std::int32_t ticksUntilGone = 0;
  while (aircraft->state == Alive && ticksUntilGone < 20000) {
    engineTick();
    ++ticksUntilGone;
    predicted = std::max(predicted, aircraft->predictedSlots);
  }
  EXPECT_EQ(aircraft->state, Removing);
  EXPECT_EQ(predicted, 8);
  EXPECT_GT(ticksUntilGone, 7 * 800) << "eight segments of eight seconds, after the queue ran out";
}

} // namespace
} // namespace ory
