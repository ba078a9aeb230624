// The Linux program between the simulator stand-in and feedplay, RealTraffic's stand-in: what RealTraffic is
// told over the link, from the version request to the goodbye, across a loss of RealTraffic.
#include "capture.h"
#include "engine/geometry.h"
#include "os/sockets.h"
#include "stand_in.h"
#include "support/scratch.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <charconv>
#include <csignal>
#include <fstream>

namespace ory {
namespace {

using namespace std::chrono_literals;
using test::ChildProcess;
using test::eventually;
using test::readFile;

constexpr double userLat = 47.4581; // parked at Zurich
constexpr double userLon = 8.5481;
constexpr double userHeading = 158;
constexpr std::int64_t zuluStart = 1558732719; // 2019-05-24T21:18:39Z

std::string lf_scenario() {
  return fmt::format(R"({{
    "simulator": {{"name": "Lockheed Martin\u00ae Prepar3D\u00ae v5"}},
    "zulu": "2019-05-24T21:18:39Z",
    "user": {{"track": [{{"t": 0, "lat": {}, "lon": {}, "heading": {}}}]}},
    "terrain": {{"areas": [{{"lat": 47.4581, "lon": 8.5481, "radiusNm": 12, "elevation": 1416}}]}}
  }})",
                     userLat, userLon, userHeading);
}

double lf_number(std::string_view text) {
  double value = 0;
  std::from_chars(text.data(), text.data() + text.size(), value);
  return value;
}

// One line that the program sent, as feedplay recorded it.
struct Received {
  double at = 0; // seconds since feedplay started
  std::string text;
};

std::vector<Received> lf_received(const std::filesystem::path& record) {
  std::vector<Received> lines;
  for (const std::string& entry : test::fileLines(record)) {
    const std::size_t blank = entry.find(' ');
    if (blank != std::string::npos)
      lines.push_back({lf_number(entry.substr(0, blank)), entry.substr(blank + 1)});
  }
  return lines;
}

class ProgramFeedTest : public test::InScratchFolder {
protected:
  void SetUp() override { port = test::presetRealTrafficRun(folder); }
  // A real helicopter flight over Zurich, one report a second, with the link dropped for away seconds after
  // the fourth report.
  void writeCapture(double away) const {
    ChildProcess convert(FEEDPLAY_PATH,
                         {"convert", test::realData("adsb/rega_zh.json.gz").string(), "rega.cap",
                          "--registry", test::realData("adsb/sample_hex_registry_subset.csv").string()},
                         folder, folder, folder / "convert.out");
    ASSERT_EQ(convert.waitExit(30s), 0) << readFile(folder / "convert.out");
    std::ofstream out(folder / "link.cap");
    double offset = 0;
    for (CaptureEntry& entry : readCapture((folder / "rega.cap").string())) {
      if (entry.kind != CaptureKind::traffic || offset > 20) continue;
      entry.offset = offset;
      out << captureText(entry) << '\n';
      if (offset == 3) out << captureText({3.5, CaptureKind::drop, fmt::format("{}", away), away}) << '\n';
      offset += 1;
    }
  }
  bool shown(std::string_view text) const {
    return readFile(folder / "program.out").find(text) != std::string::npos;
  }

  std::filesystem::path folder = scratch.path();
  std::uint16_t port = 0;
};

TEST_F(ProgramFeedTest, realTrafficIsToldTheUsersPositionEverySecondAndIsWaitedForAfterALoss) {
  writeCapture(4);
  test::StandIn stand(lf_scenario());
  stand.writeSimConnectCfg();
  ChildProcess player(
      FEEDPLAY_PATH,
      {"play", "--capture", "link.cap", "--port", std::to_string(port), "--record", "link.txt"}, folder,
      folder, folder / "player.out");
  ChildProcess program(ORY_PROGRAM, {}, folder, folder, folder / "program.out");
  const bool back = eventually([&] { return shown("RealTraffic re-connected"); }, 60s);
  if (back) std::this_thread::sleep_for(5s); // positions after the re-connection
  program.signal(SIGTERM);
  EXPECT_EQ(program.waitExit(20s), 0);
  EXPECT_EQ(player.waitExit(10s), 0) << "feedplay ends when the program has said goodbye";
  const std::string log = readFile(folder / "Log.txt");
  ASSERT_TRUE(back) << readFile(folder / "program.out") << log;

  const std::size_t connected = log.find("RealTraffic connected\n");
  const std::size_t gone = log.find("RealTraffic gone? Wait for RealTraffic to re-connect ...\n");
  const std::size_t again = log.find("RealTraffic re-connected\n");
  EXPECT_LT(connected, gone) << log;
  EXPECT_LT(gone, again) << log;
  EXPECT_NE(log.find("RT prof edition: feedplay, archive: week"), std::string::npos) << log;
  EXPECT_EQ(log.find("No traffic in this region?"), std::string::npos) << "the played reports arrived";
  EXPECT_NE(readFile(folder / "player.out").find("re-connected"), std::string::npos);

  const std::vector<Received> received = lf_received(folder / "link.txt");
  ASSERT_GE(received.size(), 2u);
  EXPECT_EQ(received.front().text, "Qs999=version");
  EXPECT_EQ(received.back().text, "exit") << "the program says goodbye as it ends";
  const std::string place = fmt::format(";{:.6f};{:.6f}", userLat * degToRad, userLon * degToRad);
  const std::string heading = fmt::format(";{:.6f};", userHeading * degToRad);
  std::vector<double> positionTimes;
  int times = 0;
  for (const Received& line : received) {
    if (line.text.starts_with("Qs121=")) {
      EXPECT_TRUE(line.text.ends_with(place)) << line.text << " is the stand-in's user at" << place;
      EXPECT_NE(line.text.find(heading), std::string::npos) << line.text;
      positionTimes.push_back(line.at);
    } else if (line.text.starts_with("Qs123=")) {
      const double milliseconds = lf_number(line.text.substr(6));
      EXPECT_GE(milliseconds, zuluStart * 1000.0) << line.text;
      EXPECT_LE(milliseconds, (zuluStart + 300) * 1000.0) << line.text;
      ++times;
    }
  }
  EXPECT_GE(times, 2) << "the simulator's time at the start and every 5 seconds for a professional licence";
  ASSERT_GE(positionTimes.size(), 8u);
  std::vector<double> gaps;
  for (std::size_t i = 1; i < positionTimes.size(); ++i)
    if (positionTimes[i] - positionTimes[i - 1] > 1.3)
      gaps.push_back(positionTimes[i] - positionTimes[i - 1]);
  ASSERT_EQ(gaps.size(), 1u) << "a position every second but across the loss:\n"
                             << readFile(folder / "link.txt");
  EXPECT_GT(gaps.front(), 3.5) << "feedplay stayed away 4 seconds";
}

} // namespace
} // namespace ory
