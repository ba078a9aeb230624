// The feed end to end on loopback: feedplay, RealTraffic's stand-in, plays converted real tracks into the
// readers and talks to the link while the main loop runs.
#include "capture.h"
#include "feed/feed.h"
#include "feed/inbox.h"
#include "feed/traffic_link.h"
#include "frame/exceptions.h"
#include "frame/log.h"
#include "frame/main_loop.h"
#include "frame/parameters.h"
#include "frame/run.h"
#include "frame/window.h"
#include "simlink/user_aircraft.h"
#include "support/process.h"
#include "support/scratch.h"

#include <gtest/gtest.h>

#include <charconv>
#include <fstream>
#include <random>
#include <thread>

namespace ory {
namespace {

using namespace std::chrono_literals;
using test::ChildProcess;
using test::eventually;

std::vector<std::string_view> fieldsOf(std::string_view LINE) {
  std::vector<std::string_view> fields;
  splitFields(LINE, fields);
  return fields;
}

double numberOf(std::string_view TEXT) {
  double value = 0;
  std::from_chars(TEXT.data(), TEXT.data() + TEXT.size(), value);
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

  int run(const std::vector<std::string>& ARGUMENTS) {
    ChildProcess tool(FEEDPLAY_PATH, ARGUMENTS, scratch.path(), scratch.path(),
                      scratch.path() / "convert.txt");
    return tool.waitExit(60s).value_or(-1);
  }
  // A converted real track: the first LINES traffic entries of SOURCE.
  std::vector<CaptureEntry> realTrack(const std::string& SOURCE, std::size_t LINES) {
    EXPECT_EQ(run({"convert", test::realData("adsb/" + SOURCE).string(), "full.cap", "--registry",
                   test::realData("adsb/sample_hex_registry_subset.csv").string(), "--types",
                   test::realData("reference/tar1090-db/icao_aircraft_types2.json").string()}),
              0)
        << test::readFile(scratch.path() / "convert.txt");
    std::vector<CaptureEntry> entries;
    for (CaptureEntry& entry : readCapture("full.cap"))
      if (entry.kind == CaptureKind::traffic && entries.size() < LINES) entries.push_back(std::move(entry));
    return entries;
  }
  static void writeCapture(const std::string& PATH, const std::vector<CaptureEntry>& ENTRIES) {
    std::ofstream out(PATH);
    for (const CaptureEntry& entry : ENTRIES)
      out << captureText(entry) << '\n';
  }
  void startReaders() {
    startReaderThread(qnhReader, weatherPort);
    startReaderThread(trafficReader, trafficPort);
    ASSERT_TRUE(eventually([] { return display.trafficMark == FeedMark::running; }, 5s));
    ASSERT_FALSE(readerError) << "the feed ports are free";
  }
  std::string log() {
    flushLog();
    return test::readFile("Log.txt");
  }
};

TEST_F(FeedPlayTest, aConvertedRealFlightArrivesOnTheInboxAsItWasFlown) {
  // TRA051 leaving Amsterdam, 400 reports at one a second, played at 80 times the pace.
  std::vector<CaptureEntry> track = realTrack("belevingsvlucht.json.gz", 400);
  ASSERT_EQ(track.size(), 400u);
  track.push_back({track.back().offset, CaptureKind::weather, R"({"ICAO":"EHAM","QNH":1002})", 0});
  writeCapture("slice.cap", track);
  track.pop_back();
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

TEST_F(FeedPlayTest, theLinkTellsThePositionEverySecondAndWaitsOutALoss) {
  rtDetected = true;
  std::uint16_t port = 0;
  std::mt19937 random(std::random_device{}());
  for (int attempt = 0; attempt < 50 && port == 0; ++attempt) {
    const auto candidate = static_cast<std::uint16_t>(20000 + random() % 30000);
    try {
      openServer(std::to_string(candidate));
      port = candidate;
    } catch (const SysErrorException&) {
    }
  }
  ASSERT_NE(port, 0);
  // Two helicopter reports, the link dropped for 3 s, two more.
  std::vector<CaptureEntry> track = realTrack("rega_zh.json.gz", 4);
  track[0].offset = 0;
  track[1].offset = 1;
  track.insert(track.begin() + 2, {2.5, CaptureKind::drop, "3", 3});
  track[3].offset = 9;
  track[4].offset = 10;
  writeCapture("link.cap", track);
  ChildProcess player(
      FEEDPLAY_PATH,
      {"play", "--capture", "link.cap", "--port", std::to_string(port), "--record", "link.txt"},
      scratch.path(), scratch.path(), scratch.path() / "player.txt");
  simEpochSeconds = 1558732719;
  handshake();
  ASSERT_TRUE(rtConnected);
  EXPECT_TRUE(rtProfessional) << "feedplay answers level 2";
  sendSimTime();
  startReaders();

  UserAircraft user;
  user.lat = 47.3665;
  user.lon = 8.5007;
  user.altitude = 1950;
  user.groundSpeed = 51;
  writeUserAircraft(user);
  simRunning = true;
  startRunThread(RunThread::mainLoop, mainLoopThread);
  // The simulator's seconds.
  std::atomic<bool> ticking{true};
  std::thread seconds([&] {
    while (ticking) {
      secondTick = true;
      std::this_thread::sleep_for(1s);
    }
  });
  const bool back =
      eventually([&] { return log().find("RealTraffic re-connected") != std::string::npos; }, 20s);
  std::this_thread::sleep_for(6s);
  ticking = false;
  seconds.join();
  requestExit(ExitReason::userClosedSim, 0);
  EXPECT_EQ(nextPostedMessage(15000), endMessage);
  EXPECT_EQ(player.waitExit(10s), 0) << "feedplay ends with the program";
  simRunning = false;
  ASSERT_TRUE(back) << log();

  const std::string written = log();
  EXPECT_LT(written.find("RealTraffic gone? Wait for RealTraffic to re-connect ..."),
            written.find("RealTraffic re-connected"));
  const std::vector<std::string> received = test::fileLines(scratch.path() / "link.txt");
  const std::string position =
      positionLine(userPosition()).substr(0, positionLine(userPosition()).size() - 2);
  std::vector<double> positionTimes;
  int times = 0;
  for (const std::string& entry : received) {
    const std::size_t blank = entry.find(' ');
    const std::string text = entry.substr(blank + 1);
    if (text.starts_with("Qs121=")) {
      EXPECT_EQ(text, position);
      positionTimes.push_back(numberOf(entry.substr(0, blank)));
    }
    if (text == "Qs123=1558732719000") ++times;
  }
  EXPECT_EQ(received.front().substr(received.front().find(' ') + 1), "Qs999=version");
  EXPECT_EQ(received.back().substr(received.back().find(' ') + 1), "exit") << "the program says goodbye";
  EXPECT_GE(positionTimes.size(), 8u);
  EXPECT_GE(times, 2) << "at the start, then every 5 seconds with a professional licence";
  int oneSecondApart = 0;
  for (std::size_t i = 1; i < positionTimes.size(); ++i)
    oneSecondApart += std::abs(positionTimes[i] - positionTimes[i - 1] - 1) < 0.3 ? 1 : 0;
  EXPECT_GE(oneSecondApart, static_cast<int>(positionTimes.size()) - 3) << "once a second, but for the loss";
}

} // namespace
} // namespace ory
