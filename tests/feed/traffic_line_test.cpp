#include "base/parameters.h"
#include "base/run.h"
#include "engine/geometry.h"
#include "feed/feed.h"
#include "feed/inbox.h"
#include "frame/main_loop.h"

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <cstring>
#include <string>

namespace ory {
namespace {

// A real report of N899DN climbing out of MSP, in RealTraffic's field order; field 29 is the checksum.
std::array<std::string, 30> flyingLine() {
  return {"RTTFC",  "11298587", "44.900",    "-93.200", "12000",
          "1800",   "0",        "327.8",     "290.5",   "DAL1812",
          "B739",   "N899DN",   "MSP",       "DEN",     "1738703622.62",
          "X",      "DL1812",   "adsb_icao", "12500",   "280",
          "310",    "0.45",     "-0.03",     "-5",      "338.03",
          "336.63", "32",       "none",      "A3",      "3021077312"};
}

class TrafficLineTest : public ::testing::Test {
protected:
  void SetUp() override {
    setRange(40);
    setReaderUserPosition(44.88, -93.22); // MSP
    clearReaderParkAirport();
    reader.collectingCallsigns = false;
    reader.feedCallsigns.clear();
    rtDetected = false;
    simTick = 500;
    clearTrafficInbox();
    setQueueOpen(true);
  }
  void TearDown() override {
    clearTrafficInbox();
    setQueueOpen(false);
  }

  LineResult take(const std::array<std::string, 30>& fields) {
    std::string text;
    for (const std::string& field : fields)
      text += field + ",";
    text.pop_back();
    return takeText(text);
  }
  LineResult takeText(const std::string& rawText) {
    text = rawText;
    reader.line = text;
    splitFields(reader.line, reader.fields);
    return reader.processLine();
  }
  // The line with one field changed.
  LineResult takeWith(std::size_t index, const std::string& value) {
    auto fields = flyingLine();
    fields[index] = value;
    return take(fields);
  }
  TrafficRecord queued() {
    EXPECT_EQ(trafficInbox.size(), 1u);
    TrafficRecord record = trafficInbox.empty() ? TrafficRecord() : trafficInbox.back();
    clearTrafficInbox();
    return record;
  }

  TrafficReader& reader = trafficReader;
  std::string text;
};

bool isRefused(LineResult result) {
  return result.outcome == LineOutcome::refused;
}
int failure(LineResult result) {
  return result.outcome == LineOutcome::failed ? result.failure : -1;
}

TEST_F(TrafficLineTest, aFlyingReportBecomesAFullRecordPlayedThirtySecondsLater) {
  ASSERT_EQ(take(flyingLine()).outcome, LineOutcome::queued);
  const TrafficRecord r = queued();
  EXPECT_EQ(r.hexid, 11298587u);
  EXPECT_EQ(r.type, "B739");
  EXPECT_EQ(r.regcode, "N899DN");
  EXPECT_EQ(r.callsign, "DAL1812");
  EXPECT_EQ(r.origin, "MSP");
  EXPECT_EQ(r.destination, "DEN");
  EXPECT_TRUE(r.airline.empty() && r.callsignIn.empty() && r.callsignOut.empty());
  EXPECT_DOUBLE_EQ(r.timestamp, 1738703622.62);
  EXPECT_EQ(r.checksum, 3021077312u);
  EXPECT_DOUBLE_EQ(r.slot.lat, 44.9);
  EXPECT_DOUBLE_EQ(r.slot.lon, -93.2);
  EXPECT_DOUBLE_EQ(r.slot.altitude, 12000);
  EXPECT_TRUE(r.slot.airborne);
  EXPECT_DOUBLE_EQ(r.slot.groundSpeed, 290.5);
  EXPECT_DOUBLE_EQ(r.slot.track, 327.8);
  EXPECT_DOUBLE_EQ(r.slot.verticalSpeed, 1800);
  EXPECT_DOUBLE_EQ(r.slot.tas, 310);
  EXPECT_TRUE(r.slot.hasRoll);
  EXPECT_DOUBLE_EQ(r.slot.roll, 5 * degToRad) << "the simulator banks the other way round";
  EXPECT_TRUE(r.slot.hasHeading && r.slot.hasTrueHeading);
  EXPECT_DOUBLE_EQ(r.slot.trueHeading, 336.63 * degToRad);
  EXPECT_FALSE(r.slot.stopped);
  EXPECT_EQ(r.slot.time, 3500);
  EXPECT_DOUBLE_EQ(lastFeedTime, 1738703622.62);
}

TEST_F(TrafficLineTest, timestampsAboveTheBoundaryCountMilliseconds) {
  takeWith(14, "1700000000000");
  EXPECT_DOUBLE_EQ(queued().timestamp, 1700000000);
  takeWith(14, "171644617100");
  EXPECT_DOUBLE_EQ(queued().timestamp, 171644617100) << "below the boundary: seconds";
  takeWith(14, "171644617100.80");
  EXPECT_DOUBLE_EQ(queued().timestamp, 171644617.1008);
}

TEST_F(TrafficLineTest, theTimestampMovesTheFeedClockAlsoForARefusedLine) {
  EXPECT_TRUE(isRefused(takeWith(1, "10000")));
  EXPECT_DOUBLE_EQ(lastFeedTime, 1738703622.62);
  EXPECT_EQ(failure(takeWith(14, "soon")), 741);
  EXPECT_EQ(lastFeedTime, 0) << "each line starts the clock afresh";
}

TEST_F(TrafficLineTest, hexidsUpToTenThousandBelongToStaticAircraft) {
  EXPECT_TRUE(isRefused(takeWith(1, "10000")));
  EXPECT_EQ(takeWith(1, "10001").outcome, LineOutcome::queued);
  EXPECT_EQ(queued().hexid, 10001u);
  EXPECT_EQ(takeWith(1, "4294967295").outcome, LineOutcome::queued);
  clearTrafficInbox();
  EXPECT_EQ(takeWith(1, "11298587x").outcome, LineOutcome::queued) << "digits up to the first non-digit";
}

TEST_F(TrafficLineTest, typeAndCategoryFilter) {
  EXPECT_TRUE(isRefused(takeWith(10, "B7399"))) << "five characters with a category";
  auto noCategory = flyingLine();
  noCategory[28] = "";
  noCategory[10] = "B7399";
  EXPECT_EQ(take(noCategory).outcome, LineOutcome::queued) << "the type list needs a category";
  clearTrafficInbox();
  noCategory[10] = "GLID";
  EXPECT_EQ(take(noCategory).outcome, LineOutcome::queued);
  EXPECT_EQ(queued().type, "GLID");
  EXPECT_TRUE(isRefused(takeWith(10, "GLID")));
  for (const char* refused : {"GRND", "SERV", "BALL", "PARA", "SHIP"})
    EXPECT_TRUE(isRefused(takeWith(10, refused)));
  for (const char* category : {"B1", "B2", "B4", "C1", "C2"}) {
    auto line = flyingLine();
    line[28] = category;
    EXPECT_TRUE(isRefused(take(line))) << category << " whatever the type";
  }
  for (const char* none : {"ZZZZ", "null", "0"}) {
    EXPECT_EQ(takeWith(10, none).outcome, LineOutcome::queued) << none;
    EXPECT_EQ(queued().type, "") << none;
  }
}

TEST_F(TrafficLineTest, isOnGroundByHeightAboveTheAirportAndSpeed) {
  EXPECT_TRUE(isOnGround(13900, 30, -1000)) << "slow enough at any altitude";
  EXPECT_TRUE(isOnGround(0, 250, -1000));
  EXPECT_TRUE(isOnGround(800, 200, 850)) << "below the airport";
  EXPECT_TRUE(isOnGround(895, 120, 850));
  EXPECT_FALSE(isOnGround(895, 121, 850));
  EXPECT_TRUE(isOnGround(940, 80, 850));
  EXPECT_FALSE(isOnGround(941, 80, 850));
  EXPECT_TRUE(isOnGround(970, 43, 850));
  EXPECT_FALSE(isOnGround(970, 44, 850));
  EXPECT_TRUE(isOnGround(14000, 35, 13990));
  EXPECT_FALSE(isOnGround(14000, 36, 13990)) << "the height rules stop below 14,000 ft";
  EXPECT_FALSE(isOnGround(44, 100, -1000)) << "without a park airport the elevation is -1000 ft";
}

TEST_F(TrafficLineTest, anAircraftOnTheGroundCountsOnlyNearThePark) {
  auto slow = flyingLine();
  slow[4] = "13900";
  slow[8] = "30";
  slow[23] = ""; // not read on the ground
  slow[20] = "x";
  EXPECT_TRUE(isRefused(take(slow))) << "no park airport";
  setReaderParkAirport(44.90, -93.08, 841); // 5.1 nm east of the aircraft
  EXPECT_TRUE(isRefused(take(slow)));
  setReaderParkAirport(44.90, -93.15, 841);
  ASSERT_EQ(take(slow).outcome, LineOutcome::queued);
  const TrafficRecord r = queued();
  EXPECT_EQ(r.slot.altitude, 0);
  EXPECT_FALSE(r.slot.airborne);
  EXPECT_FALSE(r.slot.hasRoll);
  EXPECT_EQ(r.slot.tas, 0);
}

TEST_F(TrafficLineTest, fieldsAreCountedFromTheLinesCommas) {
  std::vector<std::string_view> fields;
  splitFields("a,,b,", fields);
  EXPECT_EQ(fields, (std::vector<std::string_view>{"a", "", "b"}));
  splitFields(",", fields);
  EXPECT_EQ(fields, (std::vector<std::string_view>{""}));
  splitFields("", fields);
  EXPECT_TRUE(fields.empty());

  auto line = flyingLine();
  std::string text;
  for (const std::string& field : line)
    text += field + ",";
  ASSERT_EQ(takeText(text).outcome, LineOutcome::queued) << "a trailing comma adds no empty field";
  EXPECT_EQ(queued().checksum, 3021077312u);
  text += ",";
  EXPECT_EQ(failure(takeText(text)), 749) << "two commas: the checksum is empty";
  text = "RTTFC";
  for (std::size_t i = 1; i < 28; ++i)
    text += "," + line[i];
  EXPECT_TRUE(isRefused(takeText(text))) << "28 fields";
  EXPECT_EQ(failure(takeText(text + ",A3")), 749) << "29 fields: the category is the last field";
}

TEST_F(TrafficLineTest, trueHeadingOfAdsbReports) {
  takeWith(25, "0");
  TrafficRecord r = queued();
  EXPECT_DOUBLE_EQ(r.slot.trueHeading, 6.283185307179586) << "north comes as 2 pi";
  EXPECT_TRUE(r.slot.hasHeading && r.slot.hasTrueHeading);
  takeWith(25, "360");
  EXPECT_DOUBLE_EQ(queued().slot.trueHeading, 6.283185307179586);
  takeWith(25, "-1");
  r = queued();
  EXPECT_FALSE(r.slot.hasHeading || r.slot.hasTrueHeading);
  auto mlat = flyingLine();
  mlat[17] = "mlat";
  mlat[25] = "";
  EXPECT_EQ(take(mlat).outcome, LineOutcome::queued) << "only ADS-B reports are read for it";
  EXPECT_FALSE(queued().slot.hasHeading);
}

TEST_F(TrafficLineTest, aMissingTrackComesFromTheTrueHeading) {
  takeWith(7, "");
  EXPECT_NEAR(queued().slot.track, 336.63, 1e-9);
  takeWith(7, "0");
  EXPECT_NEAR(queued().slot.track, 336.63, 1e-9);
  auto line = flyingLine();
  line[7] = "";
  line[25] = "-1";
  take(line);
  EXPECT_EQ(queued().slot.track, 0);
}

TEST_F(TrafficLineTest, rollAndTrueAirSpeedOfAFlyingAircraft) {
  for (const char* none : {"-1", "0"}) {
    takeWith(23, none);
    EXPECT_FALSE(queued().slot.hasRoll) << none;
  }
  takeWith(23, "-12.5");
  EXPECT_DOUBLE_EQ(queued().slot.roll, 12.5 * degToRad);
  takeWith(20, "-1");
  EXPECT_EQ(queued().slot.tas, 350) << "12,000 ft without a TAS";
  EXPECT_EQ(tasFromAltitude(2000), 180);
  EXPECT_EQ(tasFromAltitude(2001), 220);
  EXPECT_EQ(tasFromAltitude(5000), 220);
  EXPECT_EQ(tasFromAltitude(10000), 250);
  EXPECT_EQ(tasFromAltitude(20000), 350);
  EXPECT_EQ(tasFromAltitude(20001), 430);
}

TEST_F(TrafficLineTest, refusalsOfIdentityAndPlace) {
  auto flarm = flyingLine();
  flarm[11] = "null";
  EXPECT_TRUE(isRefused(take(flarm))) << "no registration, whatever the callsign";
  flarm[15] = "F";
  EXPECT_TRUE(isRefused(take(flarm)));
  EXPECT_TRUE(isRefused(takeWith(11, "ABCDEFGHIJKLM"))) << "13 characters are no registration";
  EXPECT_EQ(takeWith(11, "ABCDEFGHIJKL").outcome, LineOutcome::queued);
  clearTrafficInbox();
  EXPECT_TRUE(isRefused(takeWith(9, "TOW 12")));
  EXPECT_TRUE(isRefused(takeWith(9, "ERARMTR0")));
  takeWith(9, "LH@123");
  EXPECT_EQ(queued().callsign, "") << "emptied, and the line goes on";
  takeWith(9, "null");
  EXPECT_EQ(queued().callsign, "");
  EXPECT_TRUE(isRefused(takeWith(2, "45.6"))) << "out of range";
  setReaderUserPosition(0, 0);
  setRange(100);
  auto nowhere = flyingLine();
  nowhere[2] = "0.0009";
  nowhere[3] = "0.05";
  EXPECT_EQ(failure(take(nowhere)), 744) << "the null position";
  nowhere[3] = "0.0501";
  EXPECT_EQ(take(nowhere).outcome, LineOutcome::queued);
}

// Each field that cannot be read fails the line with its own number; infinities and nans never reach the
// engine.
TEST_F(TrafficLineTest, anUnreadableFieldFailsTheLineWithItsNumber) {
  const struct {
    std::size_t field;
    const char* value;
    int failure;
  } rows[] = {
      {1, "4294967296", 640}, // overflow
      {1, "ac671b", 640},     // hexadecimal text has no digit at the start
      {1, "-11298587", 640},  {2, "91", 744},    {3, "-180.5", 744}, {2, "nan", 744},  {2, "", 742},
      {3, "x", 743},          {4, "", 641},      {4, "nan", 641},    {4, "-inf", 641}, {5, "", 748},
      {5, "nan", 748},        {7, "north", 648}, {7, "nan", 648},    {8, "", 747},     {8, "inf", 747},
      {14, "inf", 741},       {20, "", 691},     {20, "inf", 691},   {23, "", 750},    {23, "nan", 750},
      {25, "360.01", 746},    {25, "", 745},     {25, "inf", 746},
  };
  for (const auto& row : rows)
    EXPECT_EQ(failure(takeWith(row.field, row.value)), row.failure) << row.field << " = " << row.value;
  takeWith(25, "nan");
  EXPECT_FALSE(queued().slot.hasHeading) << "a nan heading is no heading, as a negative one";
}

TEST_F(TrafficLineTest, groundVehiclesAreIgnoredBeforeSplitting) {
  for (const char* callsign : {"SNOW VEH", "VEH"}) {
    auto line = flyingLine();
    line[9] = callsign;
    text.clear();
    for (const std::string& field : line)
      text += field + ",";
    reader.line = text;
    lastFeedTime = 5;
    reader.processData();
  }
  ASSERT_EQ(trafficInbox.size(), 1u) << "only \" VEH\" marks a vehicle";
  EXPECT_EQ(queued().callsign, "VEH");
}

TEST_F(TrafficLineTest, aClosedQueueProcessesTheWholeLineButKeepsNothing) {
  setQueueOpen(false);
  reader.collectingCallsigns = true;
  EXPECT_EQ(take(flyingLine()).outcome, LineOutcome::dropped);
  EXPECT_TRUE(trafficInbox.empty());
  EXPECT_DOUBLE_EQ(lastFeedTime, 1738703622.62);
  EXPECT_EQ(reader.feedCallsigns.count("DAL1812"), 1u);
}

TEST_F(TrafficLineTest, callsignsAreCollectedOnlyWhileAsked) {
  take(flyingLine());
  EXPECT_TRUE(reader.feedCallsigns.empty());
  reader.collectingCallsigns = true;
  for (const char* callsign : {"SWR12", "null", "", "A@B", "TOW 1"})
    takeWith(9, callsign);
  auto glider = flyingLine();
  glider[9] = "HBGLD";
  glider[28] = "B1";
  take(glider);
  EXPECT_EQ(reader.feedCallsigns, (std::set<std::string>{"SWR12", "TOW 1", "HBGLD"}))
      << "heard before the type rules";
}

TEST_F(TrafficLineTest, repeatedDatagramsAreDroppedOnlyFromAnotherPc) {
  const std::string datagram = "RTTFC,11298587,44.9,-93.2";
  for (bool local : {false, true}) {
    rtDetected = local;
    reader.packetCount = 0;
    reader.lastLine.clear();
    int processed = 0;
    for (int i = 0; i < 2; ++i) {
      std::memcpy(reader.buffer.data(), datagram.data(), datagram.size());
      lastFeedTime = 1;
      takeDatagram(reader, datagram.size());
      processed += lastFeedTime == 0 ? 1 : 0;
    }
    EXPECT_EQ(reader.packetCount, 2);
    EXPECT_EQ(processed, local ? 2 : 1) << (local ? "RealTraffic on this PC" : "another PC");
  }
}

TEST_F(TrafficLineTest, aDatagramEndsAtItsFirstZeroByte) {
  const std::string datagram("AB\0CD", 5);
  std::memcpy(reader.buffer.data(), datagram.data(), datagram.size());
  takeDatagram(reader, datagram.size());
  EXPECT_EQ(reader.line, "AB");
}

} // namespace
} // namespace ory
