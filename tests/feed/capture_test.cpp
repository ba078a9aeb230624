// feedplay's capture files and converter, which the feed's end-to-end tests stand on.
#include "busy.h"
#include "capture.h"
#include "convert.h"
#include "engine/geometry.h"
#include "feed/traffic_reader.h"
#include "support/scratch.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <charconv>
#include <map>
#include <set>

namespace ory {
namespace {

std::vector<std::string_view> fieldsOf(std::string_view line) {
  std::vector<std::string_view> fields;
  splitFields(line, fields);
  return fields;
}

TEST(CaptureTest, retimingKeepsTheUnitAndRenewsTheChecksum) {
  TrackPoint point;
  point.hexid = 0x4b43ac;
  point.time = 1558732719;
  point.milliseconds = true;
  const std::string line = retimedLine(trafficLine(point), 1700000000.5);
  auto fields = fieldsOf(line);
  ASSERT_EQ(fields.size(), 30u);
  EXPECT_EQ(fields[14], "1700000000500");
  EXPECT_EQ(fields[29], std::to_string(lineChecksum(line.substr(0, line.rfind(',')))));
  point.milliseconds = false;
  const std::string inSeconds = retimedLine(trafficLine(point), 1700000000.5);
  fields = fieldsOf(inSeconds);
  EXPECT_EQ(fields[14], "1700000000.50");
  EXPECT_EQ(retimedLine("RTTFC,1,2,3", 1), "RTTFC,1,2,3") << "a short line goes out as it is";
}

class CaptureFileTest : public test::InScratchFolder {};

TEST_F(CaptureFileTest, theReadsbTraceAndItsFlatCsvGiveTheSameLines) {
  ConvertOptions trace{{test::realData("adsb/trace_full_ac671b.json").string()}, "trace.cap", "", ""};
  ConvertOptions flat{{test::realData("adsb/trace_full_ac671b_flat.csv").string()}, "flat.cap", "", ""};
  ASSERT_GT(convertTracks(trace), 2000u);
  ASSERT_GT(convertTracks(flat), 2000u);
  // The CSV leaves out the points without a ground speed, which the trace carries forward.
  std::map<std::string, std::string> flatByTime;
  for (const CaptureEntry& entry : readCapture("flat.cap"))
    flatByTime[std::string(fieldsOf(entry.payload)[14])] = entry.payload;
  int compared = 0;
  int onGround = 0;
  for (const CaptureEntry& entry : readCapture("trace.cap")) {
    if (entry.kind != CaptureKind::traffic) continue;
    const auto a = fieldsOf(entry.payload);
    const auto found = flatByTime.find(std::string(a[14]));
    if (found == flatByTime.end()) continue;
    const auto b = fieldsOf(found->second);
    for (std::size_t field : {1, 2, 3, 4, 6, 8, 11})
      EXPECT_EQ(a[field], b[field]) << a[14] << " field " << field;
    ++compared;
    onGround += a[6] == "1" && a[4] == "0" ? 1 : 0;
  }
  EXPECT_GT(compared, 2000);
  EXPECT_GT(onGround, 100) << "the day holds taxiing and parking at MSP";
}

TEST_F(CaptureFileTest, registryAndTypesFillWhatOpenSkyLacks) {
  ConvertOptions options{
      {test::realData("adsb/rega_zh.json.gz").string(), test::realData("adsb/elal747.json.gz").string()},
      "both.cap",
      test::realData("adsb/sample_hex_registry_subset.csv").string(),
      test::realData("reference/tar1090-db/icao_aircraft_types2.json").string()};
  convertTracks(options);
  bool helicopter = false;
  bool jumbo = false;
  double lastOffset = 0;
  for (const CaptureEntry& entry : readCapture("both.cap")) {
    EXPECT_GE(entry.offset, lastOffset) << "both fly at once, in time order";
    lastOffset = entry.offset;
    const auto f = fieldsOf(entry.payload);
    if (f[1] == "4932524") helicopter = f[11] == "HB-ZQI" && f[10] == "EC45" && f[28] == "A7";
    if (f[1] == "7569475") jumbo = f[11] == "4X-ELC" && f[28] == "A5" && f[12] == "LIRF" && f[13] == "LLBG";
  }
  EXPECT_TRUE(helicopter);
  EXPECT_TRUE(jumbo);
}

TEST_F(CaptureFileTest, brokenInputIsNamedByFileAndLine) {
  const auto failure = [](const auto& call) {
    try {
      call();
    } catch (const std::runtime_error& e) {
      return std::string(e.what());
    }
    return std::string("no failure");
  };
  test::writeBytes("track.csv", "hex,unix_time,lat,lon,alt_baro_ft,on_ground,gs_kt,track_deg,baro_rate_fpm,"
                                "callsign,type,reg,category,true_heading,roll_deg,tas_kt,alt_geom_ft,squawk,"
                                "source\n"
                                "ac671b,1700000000,44.9,-93.2,1000,0,100,,,,,,,,,,,,\n"
                                "ac671b,1700000001,44.9,-93.2x,1000,0,100,,,,,,,,,,,,\n");
  EXPECT_EQ(failure([] {
              convertTracks({{"track.csv"}, "out.cap", "", ""});
            }),
            "track.csv:3: not a number: -93.2x");
  test::writeBytes("play.cap", "0.0 T RTTFC,1\n# a remark\n1.0 DROP soon\n");
  EXPECT_EQ(failure([] { readCapture("play.cap"); }), "play.cap:3: not a capture entry");
}

double numberOf(std::string_view text) {
  double value = 0;
  std::from_chars(text.data(), text.data() + text.size(), value);
  return value;
}

// Copies of the Delta 737's track: each its own aircraft, started on its own second within the radius, its
// track the real one's shape (the distance between consecutive reports kept), never a real identity.
TEST_F(CaptureFileTest, aBusySkyIsCopiesOfRealTracksUnderIdentitiesOfTheirOwn) {
  ASSERT_GT(convertTracks({{test::realData("adsb/trace_full_ac671b_flat.csv").string()}, "real.cap", "", ""}),
            0u);
  BusyOptions options{"real.cap", "busy.cap", 44.88, -93.22, 10, 30, 2, 60, 7};
  const std::size_t lines = makeBusyCapture(options);
  std::map<std::string, std::vector<std::vector<std::string_view>>> byHexid;
  const std::vector<CaptureEntry> busy = readCapture("busy.cap");
  std::map<std::string, double> firstOffset;
  for (const CaptureEntry& entry : busy) {
    if (entry.kind != CaptureKind::traffic) continue;
    const auto fields = fieldsOf(entry.payload);
    byHexid[std::string(fields[1])].push_back(fields);
    firstOffset.emplace(std::string(fields[1]), entry.offset);
  }
  EXPECT_EQ(byHexid.size(), 30u);
  std::set<std::string> callsigns, registrations, starts;
  std::size_t counted = 0;
  for (const auto& [hexid, reports] : byHexid) {
    EXPECT_NE(hexid, std::to_string(0xac671b));
    callsigns.insert(std::string(reports.front()[9]));
    registrations.insert(std::string(reports.front()[11]));
    starts.insert(fmt::format("{:.0f}", firstOffset[hexid]));
    EXPECT_LE(distanceNm(44.88, -93.22, numberOf(reports.front()[2]), numberOf(reports.front()[3])), 10.01);
    counted += reports.size();
  }
  EXPECT_EQ(callsigns.size(), 30u);
  EXPECT_EQ(registrations.size(), 30u);
  EXPECT_EQ(starts.size(), 30u) << "one copy starts every 2 seconds";
  EXPECT_EQ(counted, lines);

  // The shape: the legs of one copy against the same legs of the real track.
  std::map<std::string, std::vector<std::string_view>> realByTime;
  const std::vector<CaptureEntry> real = readCapture("real.cap");
  for (const CaptureEntry& entry : real)
    if (entry.kind == CaptureKind::traffic)
      realByTime[std::string(fieldsOf(entry.payload)[14])] = fieldsOf(entry.payload);
  const auto& copy = byHexid.begin()->second;
  for (std::size_t i = 1; i < copy.size(); ++i) {
    const auto& a = realByTime.at(std::string(copy[i - 1][14]));
    const auto& b = realByTime.at(std::string(copy[i][14]));
    const double real = distanceNm(numberOf(a[2]), numberOf(a[3]), numberOf(b[2]), numberOf(b[3]));
    const double copied = distanceNm(numberOf(copy[i - 1][2]), numberOf(copy[i - 1][3]), numberOf(copy[i][2]),
                                     numberOf(copy[i][3]));
    EXPECT_NEAR(copied * metresPerNm, real * metresPerNm, 1.0) << "leg " << i;
  }
}

} // namespace
} // namespace ory
