// The feed end to end on loopback: feedplay, RealTraffic's stand-in, plays a converted real track into the
// readers. The link with the whole program is tested in program_feed_test.cpp.
#include "base/display.h"
#include "base/log.h"
#include "base/parameters.h"
#include "base/run.h"
#include "capture.h"
#include "feed/feed.h"
#include "feed/inbox.h"
#include "feed/traffic_link.h"
#include "support/process.h"
#include "support/scratch.h"

#include <gtest/gtest.h>

#include <charconv>
#include <ctime>
#include <fstream>

namespace ory {
namespace {

using namespace std::chrono_literals;
using test::ChildProcess;
using test::eventually;

std::vector<std::string_view> fieldsOf(std::string_view line) {
  std::vector<std::string_view> fields;
  splitFields(line, fields);
  return fields;
}

double numberOf(std::string_view text) {
  double value = 0;
  std::from_chars(text.data(), text.data() + text.size(), value);
  return value;
}

class FeedPlayTest : public test::InScratchFolder {
protected:
  void SetUp() override {
    openLog();
    resetFeed();
    clearTrafficInbox();
    exitReason = ExitReason::notYetSet;
  }
  void TearDown() override {
    stopReaders();
    closeLink();
    EXPECT_TRUE(eventually([] { return threadCount == 0; }, 10s)) << "every thread has ended";
    rtConnected = false;
    rtDetected = false;
    clearTrafficInbox();
    closeLog();
  }

  int run(const std::vector<std::string>& arguments) {
    ChildProcess tool(FEEDPLAY_PATH, arguments, scratch.path(), scratch.path(),
                      scratch.path() / "convert.txt");
    return tool.waitExit(60s).value_or(-1);
  }
  // A converted real track: the first lines traffic entries of source.
  std::vector<CaptureEntry> realTrack(const std::string& source, std::size_t lines) {
    EXPECT_EQ(run({"convert", test::realData("adsb/" + source).string(), "full.cap", "--registry",
                   test::realData("adsb/sample_hex_registry_subset.csv").string(), "--types",
                   test::realData("reference/tar1090-db/icao_aircraft_types2.json").string()}),
              0)
        << test::readFile(scratch.path() / "convert.txt");
    std::vector<CaptureEntry> entries;
    for (CaptureEntry& entry : readCapture("full.cap"))
      if (entry.kind == CaptureKind::traffic && entries.size() < lines) entries.push_back(std::move(entry));
    return entries;
  }
  static void writeCapture(const std::string& path, const std::vector<CaptureEntry>& entries) {
    std::ofstream out(path);
    for (const CaptureEntry& entry : entries)
      out << captureText(entry) << '\n';
  }
  void startReaders() {
    startReaderThread(qnhReader, weatherPort);
    startReaderThread(trafficReader, trafficPort);
    ASSERT_TRUE(eventually([] { return display.trafficMark == FeedMark::running; }, 5s));
    ASSERT_FALSE(readerError) << "the feed ports are free";
  }
};

TEST_F(FeedPlayTest, aConvertedRealFlightArrivesOnTheInboxAsItWasFlown) {
  // TRA051 leaving Amsterdam, 400 reports at one a second, played at 80 times the pace.
  std::vector<CaptureEntry> track = realTrack("belevingsvlucht.json.gz", 400);
  ASSERT_EQ(track.size(), 400u);
  track.push_back({track.back().offset, CaptureKind::weather, R"({"ICAO":"EHAM","QNH":1002})", 0});
  writeCapture("slice.cap", track);
  track.pop_back();
  rtDetected = true; // RealTraffic on this PC: no repeat filter, which a late burst of equal lines would trip
  setRange(200);
  setReaderUserPosition(52.3086, 4.7639);
  setReaderParkAirport(52.3086, 4.7639, -11);
  setQueueOpen(true);
  startReaders();
  const double started = static_cast<double>(std::time(nullptr));
  ASSERT_EQ(run({"play", "--capture", "slice.cap", "--no-link", "--speed", "80"}), 0);
  ASSERT_TRUE(eventually([] { return qnhForEngine == 1002; }, 5s));
  ASSERT_TRUE(eventually([&] { return trafficReader.packetCount == 400; }, 5s)) << trafficReader.packetCount;

  std::lock_guard lock(feedLock);
  ASSERT_EQ(trafficInbox.size(), track.size()) << "every report of the flight is taken";
  for (std::size_t i = 0; i < track.size(); ++i) {
    const auto line = fieldsOf(track[i].payload);
    const TrafficRecord& r = trafficInbox[i];
    SCOPED_TRACE(track[i].payload);
    EXPECT_EQ(r.hexid, 0x484506u);
    EXPECT_EQ(r.regcode, "PH-HZO");
    EXPECT_EQ(r.type, "B738");
    EXPECT_EQ(r.callsign, "TRA051");
    EXPECT_DOUBLE_EQ(r.slot.lat, numberOf(line[2]));
    EXPECT_DOUBLE_EQ(r.slot.lon, numberOf(line[3]));
    EXPECT_DOUBLE_EQ(r.slot.altitude, numberOf(line[4]));
    EXPECT_TRUE(r.slot.airborne);
    EXPECT_DOUBLE_EQ(r.slot.groundSpeed, numberOf(line[8]));
    EXPECT_DOUBLE_EQ(r.slot.track, numberOf(line[7]));
    EXPECT_DOUBLE_EQ(r.slot.verticalSpeed, numberOf(line[5]));
    EXPECT_EQ(r.slot.tas, tasFromAltitude(r.slot.altitude)) << "the source has no TAS";
    EXPECT_FALSE(r.slot.hasRoll || r.slot.hasHeading);
    EXPECT_NEAR(r.timestamp, started, 30) << "moved to the present";
    if (i > 0) {
      EXPECT_GE(r.timestamp, trafficInbox[i - 1].timestamp);
    }
  }
}

} // namespace
} // namespace ory
