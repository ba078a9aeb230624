// The judge on made traces of one aircraft, each showing one fault a pilot would see, and its picture.
#include "drawing.h"
#include "engine/geometry.h"
#include "inputs.h"
#include "judge.h"
#include "support/scratch.h"

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cairo.h>
#include <cmath>
#include <functional>

namespace ory {
namespace {

using nlohmann::json;

constexpr double originLat = 52.0,
                 originLon = 4.0; // degrees: the runway's first threshold, the track's start
constexpr double staticCg = 9.5;  // feet
constexpr double frameRate = 30;  // frames a second
constexpr std::string_view title = "Made Boeing 737-800";

// Part of a made flight, at the aircraft's heading, one frame at a time.
struct Leg {
  double seconds = 0;
  double knots = 0;       // set and flown
  double turnRate = 0;    // degrees per second
  double heightFeet = 0;  // over the ground plus static CG
  bool onGround = true;   // as the stand-in tells it
  double jumpMetres = 0;  // eastwards, at the leg's first frame
  double flownKnots = -1; // when the flown speed is not the set one
};

struct Row {
  std::string_view fault;
  double startEastMetres;
  std::vector<Leg> legs;
  std::function<double(const ObjectFigures&)> measure;
  double expected;
  double tolerance;
};

LatLon lf_moved(double lat, double lon, double bearingDegrees, double metres) {
  return destination(lat, lon, bearingDegrees * degToRad, metres * feetPerMetre);
}

// The stand-in's trace of one AI object flying legs from the origin, heading north.
std::vector<json> lf_trace(const Row& row) {
  std::vector<json> trace{
      {{"kind", "call"}, {"call", "SimConnect_AICreateNonATCAircraft"}, {"title", title}, {"tail", "ROW"}}};
  LatLon at = lf_moved(originLat, originLon, 90, row.startEastMetres);
  double heading = 0, t = 0; // degrees, seconds
  for (const Leg& leg : row.legs) {
    at = lf_moved(at.lat, at.lon, 90, leg.jumpMetres);
    for (int frame = 0; frame < std::lround(leg.seconds * frameRate); ++frame) {
      t += 1 / frameRate;
      heading += leg.turnRate / frameRate;
      const double flown = leg.flownKnots >= 0 ? leg.flownKnots : leg.knots;
      at = lf_moved(at.lat, at.lon, heading, flown * metresPerNm / 3600 / frameRate);
      const json object = {{"id", 100},
                           {"user", false},
                           {"atcId", "ROW"},
                           {"lat", at.lat},
                           {"lon", at.lon},
                           {"alt", leg.heightFeet + staticCg},
                           {"agl", leg.heightFeet + staticCg},
                           {"onGround", leg.onGround},
                           {"heading", wrapHeading(heading * degToRad)},
                           {"tas", leg.knots},
                           {"released", true},
                           {"frozen", {true, true, true}}};
      trace.push_back({{"kind", "state"}, {"t", t}, {"wall", t * 1000}, {"objects", {object}}});
    }
  }
  return trace;
}

class JudgeTest : public test::InScratchFolder {
protected:
  void SetUp() override {
    // Stand B12 lies 5 m south of the origin, its heading 2 degrees.
    const LatLon stand = lf_moved(originLat, originLon, 180, 5);
    test::writeBytes("airport.xml", fmt::format(R"(<?xml version="1.0"?>
<parameters><parameter name="altitude" value="0"/></parameters>
<parkpositions><parkpos id="B12" latitude="{:.7f}" longitude="{:.7f}" heading="2.0" radius="20.0"/></parkpositions>
)",
                                                stand.lat, stand.lon));
    context.stands = readStands("airport.xml");
    const LatLon far = lf_moved(originLat, originLon, 0, 3000);
    context.runways.push_back(
        parseRunway(fmt::format("36:{},{},{},{}", originLat, originLon, far.lat, far.lon)));
    context.staticCg[titleKey("MADE Boeing 737-800")] = staticCg; // as the scenario may spell it
    const LatLon end = lf_moved(originLat, originLon, 0, 5000);
    context.real.push_back({0x484506,
                            "ROW",
                            "PH-ROW",
                            2,
                            {{0, originLat, originLon, 0, true}, {100, end.lat, end.lon, 0, true}}});
  }
  JudgeContext context;
};

double lf_parkedMetres(const ObjectFigures& f) {
  return f.parked.size() == 1 ? f.parked[0].metres : -1;
}

TEST_F(JudgeTest, eachFaultShowsInItsFigure) {
  const Leg taxi{30, 10};
  const std::vector<Row> rows = {
      // A steady taxi: each step a third of twice the speed plus 10 knots, on the real track.
      {"steady taxi", 0, {taxi}, [](const ObjectFigures& f) { return f.worstStepRatio; }, 10.0 / 30, 0.01},
      {"steady taxi", 0, {taxi}, [](const ObjectFigures& f) { return spreadOf(f.groundMetres).p95; }, 0, 0.1},
      {"taxi 20 m beside the real track",
       20,
       {taxi},
       [](const ObjectFigures& f) { return spreadOf(f.groundMetres).median; },
       20,
       0.5},
      {"a jump of 201 m",
       0,
       {{5, 10}, {5, 10, 0, 0, true, 201}},
       [](const ObjectFigures& f) { return static_cast<double>(f.jumps); },
       1,
       0},
      // The machine holds the program up for four frames at 250 knots: one step, then the 17.1 m it owes.
      {"the catch-up after a stall",
       0,
       {{1, 250, 0, 500, false},
        {4 / frameRate, 250, 0, 500, false, 0, 0},
        {1 / frameRate, 250, 0, 500, false},
        {1, 250, 0, 500, false, 17.1}},
       [](const ObjectFigures& f) { return static_cast<double>(f.jumps); },
       0,
       0},
      {"a jump of 201 m after a stall",
       0,
       {{1, 250, 0, 500, false},
        {4 / frameRate, 250, 0, 500, false, 0, 0},
        {1 / frameRate, 250, 0, 500, false},
        {1, 250, 0, 500, false, 201}},
       [](const ObjectFigures& f) { return static_cast<double>(f.jumps); },
       1,
       0},
      // A 737 (emitter category A3) may turn 7 degrees a second on the ground.
      {"a turn at the category's rate",
       0,
       {{10, 10, 7}},
       [](const ObjectFigures& f) { return f.groundTurnRate / f.turnLimit; },
       1,
       0.01},
      {"a spin on the spot",
       0,
       {{10, 0, 30}},
       [](const ObjectFigures& f) { return f.groundTurnRate; },
       30,
       0.5},
      {"a spin in the air is no ground turn",
       0,
       {{10, 140, 30, 500, false}},
       [](const ObjectFigures& f) { return f.groundTurnRate; },
       0,
       0},
      // 20 s at 3 knots tail first: 30.9 m.
      {"a push back",
       0,
       {{20, -3}, {10, 5, 7}},
       [](const ObjectFigures& f) { return f.backwardsMetres; },
       30.9,
       0.2},
      {"a spin on the spot is no push back",
       0,
       {{10, 0, 30}},
       [](const ObjectFigures& f) { return f.backwardsMetres; },
       0,
       0},
      {"hovering 5 ft over the apron",
       0,
       {{30, 0, 0, 5, false}},
       [](const ObjectFigures& f) { return f.worstGroundHeightFeet; },
       5,
       0.01},
      {"parked 5 m off its stand", 0, {{30, 0}}, lf_parkedMetres, 5, 0.1},
      {"parked 2 degrees off its stand",
       0,
       {{30, 0}},
       [](const ObjectFigures& f) { return f.parked.empty() ? 99 : f.parked[0].headingErrorDegrees; },
       -2,
       0.01},
      {"taxiing is not parking", 0, {taxi}, lf_parkedMetres, -1, 0},
      {"standing still 60 m from the stand is a hold, not parking",
       0,
       {{6, 20}, {30, 0}},
       [](const ObjectFigures& f) { return f.parked.empty() ? static_cast<double>(f.holds.size()) : -1.0; },
       1,
       0},
      // 3 s at 140 kt over the threshold and one frame before the wheels touch: 218.5 m.
      {"a touch-down 218 m past the threshold",
       0,
       {{3, 140, 0, 20, false}, {20, 140}},
       [](const ObjectFigures& f) { return f.touchDowns.size() == 1 ? f.touchDowns[0].alongMetres : -1; },
       216,
       3},
      {"a touch-down 100 m beside the runway",
       100,
       {{3, 140, 0, 20, false}, {20, 140}},
       [](const ObjectFigures& f) { return f.touchDowns.size() == 1 && !f.touchDowns[0].onRunway ? 1 : 0; },
       1,
       0},
  };
  for (const Row& row : rows) {
    const std::vector<FlownObject> objects = flownObjects(lf_trace(row));
    ASSERT_EQ(objects.size(), 1u) << row.fault;
    EXPECT_EQ(objects[0].title, title) << row.fault;
    const ObjectFigures figures = judgeObject(objects[0], context);
    EXPECT_NEAR(row.measure(figures), row.expected, row.tolerance) << row.fault;
  }
}

// Away from the park airport the reader refuses what it takes for ground traffic, by height and speed, and
// the engine dead-reckons from the last report it took.
TEST(JudgeRealTrack, groundReportsAwayFromTheParkAirportLeaveIt) {
  const ParkAirport park{originLat, originLon, 100};
  const LatLon near = lf_moved(originLat, originLon, 90, 9000);
  const LatLon away = lf_moved(originLat, originLon, 90, 9400);
  std::vector<RealAircraft> real{{0x4b43ac,
                                  "REGA1",
                                  "HB-ZQI",
                                  5,
                                  {{0, away.lat, away.lon, 300, false, 60},    // flying
                                   {1, away.lat, away.lon, 200, false, 40},    // 100 ft up, 40 kt: ground
                                   {2, away.lat, away.lon, 0, true, 0},        // on the ground
                                   {3, near.lat, near.lon, 200, false, 40}}}}; // the same inside 5 nm
  dropGroundReportsAway(real, park);
  std::vector<double> offsets;
  for (const RealPoint& p : real[0].track)
    offsets.push_back(p.offset);
  EXPECT_THAT(offsets, testing::ElementsAre(0, 3));
}

// The real aircraft turns back and its reports end halfway; the engine flies on by dead reckoning over the
// track's first half, where every frame would lie on it.
TEST_F(JudgeTest, framesAfterTheLastReportAreNotJudged) {
  const LatLon top = lf_moved(originLat, originLon, 0, 200);
  const LatLon half = lf_moved(originLat, originLon, 0, 100);
  context.real[0].track = {{0, originLat, originLon, 0, true, 10},
                           {40, top.lat, top.lon, 0, true, 10},
                           {60, half.lat, half.lon, 0, true, 10}};
  const double northSeconds = 200 / (10 * metresPerNm / 3600);
  const Row row{"", 0, {{northSeconds, 10}, {6, 0, 30}, {northSeconds, 10}}, nullptr, 0, 0};
  const ObjectFigures figures = judgeObject(flownObjects(lf_trace(row)).at(0), context);
  // Up to the top, the spin, and back to the half; give or take the 2 metres of reach, 0.4 s at 10 knots.
  EXPECT_NEAR(static_cast<double>(figures.groundMetres.size()) / frameRate, 1.5 * northSeconds + 6, 0.5);
  EXPECT_LT(spreadOf(figures.groundMetres).p95, 0.5);
}

TEST_F(JudgeTest, badInputIsNamedAndABrokenTraceLineIsSkipped) {
  test::writeBytes(
      "trace.jsonl",
      "{\"kind\":\"end\"}\n{\"kind\":\"sta\n\n{\"kind\":\"state\",\"t\":0,\"wall\":0,\"objects\":[1]}\n");
  const Trace trace = readTrace("trace.jsonl");
  EXPECT_EQ(trace.lines.size(), 1u);
  EXPECT_THAT(trace.problems,
              testing::ElementsAre(testing::HasSubstr("trace.jsonl line 2: not a JSON object"),
                                   testing::HasSubstr("trace.jsonl line 4: a state line")));

  test::writeBytes("broken.xml", "<parkpositions><parkpos id=");
  const std::vector<std::pair<std::function<void()>, std::string_view>> bad = {
      {[] { readTrace("missing.jsonl"); }, "can't open the trace missing.jsonl"},
      {[] { readStaticCg("missing.json"); }, "can't open the scenario missing.json"},
      {[] { readStands("broken.xml"); }, "can't read the airport file broken.xml"},
      {[] { parseRunway("36:52.0,4.0,52.1"); }, "runway \"36:52.0,4.0,52.1\""},
      {[] { parseRunway("36:52.0,4.0,x,4.0"); }, "runway"},
  };
  for (const auto& [call, message] : bad)
    EXPECT_THAT(call, testing::ThrowsMessage<std::runtime_error>(testing::HasSubstr(message)));
}

TEST_F(JudgeTest, thePictureIsAPngOfTheAskedSize) {
  const Row row{"parked", 0, {{3, 140, 0, 20, false}, {20, 10}, {30, 0}}, {}, 0, 0};
  const std::vector<FlownObject> objects = flownObjects(lf_trace(row));
  const std::vector<ObjectFigures> figures = {judgeObject(objects[0], context)};
  drawTraffic(objects, figures, context, "traffic.png", 640, 480);
  cairo_surface_t* png = cairo_image_surface_create_from_png("traffic.png");
  EXPECT_EQ(cairo_surface_status(png), CAIRO_STATUS_SUCCESS);
  EXPECT_EQ(cairo_image_surface_get_width(png), 640);
  EXPECT_EQ(cairo_image_surface_get_height(png), 480);
  cairo_surface_destroy(png);
  EXPECT_THROW(drawTraffic(objects, figures, context, "no/such/folder/x.png", 640, 480), std::runtime_error);
}

} // namespace
} // namespace ory
