// Aircraft on the ground and at the ends of their flights, tick by tick, at a park airport of three stands in
// a row: parking, drift, push back, towing, touch down.
#include "engine/motion.h"
#include "engine_world.h"
#include "parking/stand_learning.h"
#include "parking/stands.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>

namespace ory {
namespace {

using test::Report;
using testing::Contains;
using testing::Not;

constexpr double airportLat = 52.3086;
constexpr double airportLon = 4.7639;
constexpr double metresEast = 1 / (metresPerDegree * 0.6156615); // degrees of longitude per metre here
constexpr double halfSpan = 0.0097;                              // nautical miles, a 737
constexpr double standRadius = 0.011;                            // nautical miles, 20 metres

class GroundTest : public test::EngineTest {
protected:
  void SetUp() override {
    EngineTest::SetUp();
    parkAirportCode = "EHAM";
    parkAirportLat = airportLat;
    parkAirportLon = airportLon;
    parkAltitude = -11;
    for (std::uint32_t i = 0; i < 3; ++i) {
      Stand& stand = stands.emplace_back();
      stand.id = fmt::format("D{}", i + 1);
      stand.standId = i + 1;
      stand.lat = airportLat;
      stand.lon = airportLon + i * 61 * metresEast;
      stand.heading = pi; // nose south
      stand.radius = standRadius;
      if (i > 0) stand.neighbours.push_back(i);
      if (i < 2) stand.neighbours.push_back(i + 2);
    }
  }
  void TearDown() override {
    resetStands();
    parkAirportCode.clear();
    EngineTest::TearDown();
  }

  // A report of the aircraft standing metresEastOfStand east and metresNorth north of stand 1.
  static Report atStand(double metresEastOfStand, double metresNorth, double timestamp) {
    Report report;
    report.lat = airportLat + metresNorth / metresPerDegree;
    report.lon = airportLon + metresEastOfStand * metresEast;
    report.altitude = 0;
    report.speed = 0;
    report.timestamp = timestamp;
    return report;
  }
  // A 737 created on stand 1 and alive there; its feed has been quiet since.
  LiveAircraft& parkedOnStand() {
    for (int i = 0; i < 3; ++i) {
      queue(atStand(2, 0, 1000 + 20.0 * i));
      ticks(10);
    }
    LiveAircraft* aircraft = nullptr;
    for (int i = 0; i < 6000 && (aircraft == nullptr || aircraft->state != Alive); ++i) {
      engineTick();
      createAll();
      aircraft = findLive(Report{}.hexid);
    }
    EXPECT_TRUE(aircraft != nullptr && aircraft->state == Alive && aircraft->phase == Parked);
    aircraft->halfWingSpan = halfSpan;
    ticks(100);
    timestamp = 1100;
    return *aircraft;
  }
  // The next report of the parked aircraft, 20 seconds after the last.
  void report(double metresEastOfStand, double metresNorth) {
    timestamp += 20;
    queue(atStand(metresEastOfStand, metresNorth, timestamp));
    ticks(5);
  }
  double timestamp = 0;
};

TEST_F(GroundTest, aNewAircraftOnAStandIsCreatedOnItFacingItsHeadingAndTheBoxSwitchesItsNavLights) {
  const LiveAircraft& aircraft = parkedOnStand();
  EXPECT_EQ(aircraft.standId, 1u);
  EXPECT_DOUBLE_EQ(aircraft.lat, airportLat);
  EXPECT_DOUBLE_EQ(aircraft.lon, airportLon);
  EXPECT_DOUBLE_EQ(aircraft.heading, pi);

  takeEvents();
  for (const bool on : {false, true}) {
    NAV_LIGHTS_WHILE_PARKED.value = on;
    navLightsPending = true;
    serveNavLights();
    serveNavLights();
    const std::vector<ObjectEvent> events = takeEvents();
    ASSERT_EQ(events.size(), 1u) << "once per change";
    EXPECT_EQ(events[0].objectId, aircraft.objectId);
    EXPECT_EQ(events[0].eventId, eventIdNavLights);
    EXPECT_EQ(events[0].data, on ? 1u : 0u);
  }
}

TEST_F(GroundTest, aNewCallsignOnTheStandRenewsTheObjectOnItsStandAndHeading) {
  GUID_CHANGES.value = true;
  LiveAircraft& aircraft = parkedOnStand();
  const std::uint32_t object = aircraft.objectId;
  Report next = atStand(2, 0, timestamp + 20);
  next.callsign = "KLM602";
  queue(next);
  ticks(10);
  EXPECT_EQ(aircraft.state, Renewing);
  EXPECT_THAT(takeRemovals(), Contains(object));
  pushSimCommand({object, 0, 0, commandRemoved, 0, 0});
  ticks(200);
  const std::vector<CreateRequest> renewed = createAll();
  ASSERT_EQ(renewed.size(), 1u);
  EXPECT_EQ(renewed.front().callsign, "KLM602");
  EXPECT_DOUBLE_EQ(renewed.front().heading, 180);
  EXPECT_DOUBLE_EQ(renewed.front().lat, airportLat);
  EXPECT_DOUBLE_EQ(renewed.front().lon, airportLon);
  EXPECT_EQ(aircraft.standId, 1u);
  EXPECT_EQ(aircraft.phase, Parked);
}

TEST_F(GroundTest, driftOnTheStandLetsTheAircraftGoOnlyWhenItReallyMoves) {
  struct Case {
    std::string what;
    std::vector<double> metresEast;
    bool leaves;
  };
  const Case cases[] = {
      {"2.9 metres for ever", std::vector<double>(12, 2.9), false},
      {"steps of 2.9 metres", {2.9, 5.8, 8.7, 11.6, 14.5}, false},
      {"three steps of 3.1 metres, more than half a span", {3.1, 6.2, 9.3, 12.4}, true},
      {"back and forth", {3.1, 6.2, 3.0, 6.1, 3.0}, false},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    resetEngine();
    for (Stand& stand : stands)
      stand.takenByLive = false;
    LiveAircraft& aircraft = parkedOnStand();
    for (const double east : c.metresEast)
      report(east, 0);
    ticks(10);
    EXPECT_EQ(aircraft.phase != Parked, c.leaves) << "phase " << aircraft.phase;
    EXPECT_EQ(aircraft.state, Alive);
  }
}

TEST_F(GroundTest, aFeedThatJumpsFromTheStandRemovesTheAircraftAndSilenceKeepsIt) {
  LiveAircraft& aircraft = parkedOnStand();
  ticks(10000); // 100 seconds without a report
  EXPECT_EQ(aircraft.state, Alive);
  EXPECT_EQ(aircraft.phase, Parked);
  report(0, 201);
  EXPECT_EQ(aircraft.state, Removing);
}

TEST_F(GroundTest, aPushBackWithoutFeedMovesStraightBackAndWaits) {
  LiveAircraft& aircraft = parkedOnStand();
  report(0, 100); // behind the tail: the feed has it leaving backwards
  std::vector<std::uint32_t> phases;
  double worstHeading = 0;
  for (int i = 0; i < 20000 && aircraft.phase != Waiting; ++i) {
    engineTick();
    if (phases.empty() || phases.back() != aircraft.phase) phases.push_back(aircraft.phase);
    worstHeading = std::max(worstHeading, std::abs(headingDiff(aircraft.heading, pi)));
  }
  EXPECT_THAT(phases, Contains(static_cast<std::uint32_t>(PushBack)));
  EXPECT_EQ(aircraft.phase, Waiting);
  EXPECT_LT(worstHeading, 0.5 * degToRad) << "it never turned on the spot";
  const double back = distanceNm(airportLat, airportLon, aircraft.lat, aircraft.lon);
  EXPECT_NEAR(back, 2.5 * standRadius, 0.002) << "the straight leg only";
  EXPECT_GT(aircraft.lat, airportLat) << "backwards, to the north";
}

TEST_F(GroundTest, aShortStayAfterLandingIsATow) {
  struct Case {
    std::uint32_t category;
    std::int32_t stayTicks;
    bool towed;
  };
  const Case cases[] = {{2, 60000, true}, {2, 200000, false}, {3, 300000, true}, {0, 12000, false}};
  for (const Case& c : cases) {
    resetEngine();
    for (Stand& stand : stands)
      stand.takenByLive = false;
    LiveAircraft& aircraft = parkedOnStand();
    aircraft.category = c.category;
    aircraft.justLanded = true;
    ASSERT_GT(aircraft.predictedSlots, 0);
    aircraft.slots.front().time = simTick + 60480000 - c.stayTicks;
    report(0, 150);
    EXPECT_EQ(aircraft.towed, c.towed) << "category " << c.category << " after " << c.stayTicks << " ticks";
  }
}

// An aircraft a few feet over the runway, as the flare leaves it, meets the simulator's ground.
TEST_F(GroundTest, touchDownTellsTheModelByItsKind) {
  struct Case {
    std::string what;
    std::uint32_t category;
    bool approaching;
    bool fsltl;
    bool spoilers;                       // the spoilers event
    std::vector<ModelControls> controls; // definition 401
  };
  const std::uint32_t object = test::firstObject;
  const Case cases[] = {
      {"an airliner at the park airport", 2, true, false, true, {{object, 100, 100}}},
      {"an FSLTL model reverses", 2, true, true, true, {{object, 100, -100}}},
      {"a light aircraft", 0, true, false, true, {}},
      {"an airliner landing elsewhere", 2, false, false, false, {}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    resetEngine();
    resetBatches();
    LiveAircraft& aircraft = liveAircraft.emplace_back();
    aircraft.hexid = 0x484010;
    aircraft.callsign = "KLM9";
    aircraft.category = c.category;
    aircraft.fsltlLivery = c.fsltl;
    aircraft.state = Alive;
    aircraft.objectId = object;
    aircraft.phase = Airborne;
    aircraft.approaching = c.approaching;
    aircraft.flareStage = c.approaching ? 4 : 0;
    aircraft.altitude = 20;
    aircraft.onGroundSlots = 300;
    aircraft.slots.push_back({airportLat, airportLon});
    aircraft.slots.back().time = simTick + 10000;
    pushSimCommand({object, 1, 0, commandInRange, -11, 9});
    ticks(1);
    EXPECT_TRUE(aircraft.onGround);
    EXPECT_EQ(aircraft.rollOut, c.approaching);
    const std::vector<ObjectEvent> events = takeEvents();
    const ObjectEvent spoilersOn{object, eventIdSpoilers, 16383};
    const auto isSpoilersOn = [&](const ObjectEvent& e) {
      return e.eventId == spoilersOn.eventId && e.data == spoilersOn.data;
    };
    EXPECT_EQ(std::any_of(events.begin(), events.end(), isSpoilersOn), c.spoilers);
    std::lock_guard lock(batchLock);
    ASSERT_EQ(controlsBatch.size(), c.controls.size());
    for (std::size_t i = 0; i < c.controls.size(); ++i) {
      EXPECT_EQ(controlsBatch[i].spoilers, c.controls[i].spoilers);
      EXPECT_EQ(controlsBatch[i].throttle, c.controls[i].throttle);
    }
  }
}

TEST_F(GroundTest, aTouchAndGoTakesOffAgainWithSpoilersCommanded) {
  LiveAircraft& aircraft = liveAircraft.emplace_back();
  aircraft.hexid = Report{}.hexid;
  aircraft.callsign = Report{}.callsign;
  aircraft.type = "B738";
  aircraft.category = 2;
  aircraft.state = Alive;
  aircraft.objectId = test::firstObject;
  aircraft.phase = Taxi;
  aircraft.onGround = true;
  aircraft.rollOut = true;
  aircraft.climbRate = 0.6;
  aircraft.rotateSlots = 200;
  aircraft.rotatePitch = -6 * degToRad;
  aircraft.lat = airportLat;
  aircraft.lon = airportLon;
  aircraft.heading = 0;
  aircraft.landingHeading = 0;
  PositionSlot rolling{airportLat, airportLon};
  rolling.groundSpeed = 130;
  rolling.tas = 130;
  rolling.time = simTick + 100;
  aircraft.slots.push_back(rolling);
  aircraft.lastTimestamp = 1000;
  Report up;
  up.lon = airportLon;
  up.speed = 150;
  up.altitude = 300;
  up.verticalSpeed = 1500;
  for (int i = 0; i < 3; ++i) {
    up.lat = airportLat + (i + 1) * 0.006;
    up.timestamp = 1008 + 8.0 * i;
    queue(up);
    ticks(2);
  }
  std::vector<ObjectEvent> events = takeEvents();
  for (int i = 0; i < 6000 && aircraft.phase != TakeOff; ++i)
    engineTick();
  const std::vector<ObjectEvent> later = takeEvents();
  events.insert(events.end(), later.begin(), later.end());
  EXPECT_EQ(aircraft.phase, TakeOff);
  EXPECT_FALSE(aircraft.rollOut);
  EXPECT_TRUE(std::any_of(events.begin(), events.end(), [](const ObjectEvent& e) {
    return e.eventId == eventIdSpoilers && e.data == 16383;
  }));
}

// The taxi-in of a real 737-900 at Minneapolis, from the end of its landing roll to its stop, fed record by
// record at the pace of the feed, to a stand where it really stopped; its transponder then stays on at the
// gate for half a minute, as many do (this one went silent).
TEST_F(GroundTest, aTaxiingAircraftThatStopsAtAStandRollsOntoItAndParks) {
  updateNowSlot();
  stands[1].lat = 44.880384;
  stands[1].lon = -93.2099;
  stands[1].heading = 31 * degToRad;
  parkAirportLat = 44.8820;
  parkAirportLon = -93.2210;
  std::vector<Report> reports;
  for (const std::string& line : test::fileLines(test::realData("adsb/trace_full_ac671b_flat.csv"))) {
    std::vector<std::string> cells;
    std::size_t from = 0;
    for (std::size_t comma = line.find(','); comma != std::string::npos;
         comma = line.find(',', from = comma + 1))
      cells.push_back(line.substr(from, comma - from));
    if (cells.size() < 8 || cells[5] != "1" || cells[1] < "1738717970" || cells[1] > "1738718130") continue;
    Report r;
    r.hexid = 0xac671b;
    r.callsign = "DAL1812";
    r.type = "B739";
    r.timestamp = std::stod(cells[1]);
    r.lat = std::stod(cells[2]);
    r.lon = std::stod(cells[3]);
    r.altitude = 0;
    r.speed = std::stod(cells[6]);
    r.track = std::stod(cells[7]);
    r.regcode = cells[11];
    reports.push_back(r);
  }
  ASSERT_GT(reports.size(), 20u);
  for (int i = 0; i < 3; ++i) {
    Report still = reports.back();
    still.timestamp += 10;
    still.speed = 0;
    reports.push_back(still);
  }
  installLiveries({{"DAL", "B739", "Delta 737-900"}});
  for (std::size_t i = 0; i < reports.size(); ++i) {
    queue(reports[i]);
    const double gap = i + 1 < reports.size() ? reports[i + 1].timestamp - reports[i].timestamp : 1;
    for (std::int32_t t = 0; t < static_cast<std::int32_t>(gap * 100); ++t) {
      engineTick();
      createAll();
    }
  }
  for (int i = 0; i < 12000; ++i) {
    engineTick();
    createAll();
  }
  const LiveAircraft* aircraft = findLive(0xac671b);
  ASSERT_NE(aircraft, nullptr);
  EXPECT_EQ(aircraft->phase, Parked) << "phase " << aircraft->phase << " stand " << aircraft->standId;
  EXPECT_EQ(aircraft->standId, 2u);
  EXPECT_LT(distanceNm(aircraft->lat, aircraft->lon, stands[1].lat, stands[1].lon) * metresPerNm, 2.0);
  EXPECT_LT(std::abs(headingDiff(aircraft->heading, stands[1].heading)) * radToDeg, 3.0);
  // Its arrival is the stand's first statistic, in the half hour it parked.
  const Slot parked = unpackSlot(aircraft->arrivalTime);
  ASSERT_EQ(stands[1].options.size(), 1u);
  const StandOption& learned = stands[1].options[0];
  EXPECT_EQ(fmt::format("{} {} {} {} {}", learned.day, slotsToText(learned.halfHours), learned.airline,
                        learned.callsignIn, learned.regcode),
            fmt::format("{} {} DAL DAL1812 N899DN", parked.day, parked.halfHour));
  EXPECT_GE(parked.day, 1);
}

} // namespace
} // namespace ory
