// The Linux program between the simulator stand-in and feedplay, with a real flight of the feed: a Transavia
// 737 climbing out of Amsterdam in a wide right turn. What the simulator was told is judged from the trace.
#include "capture.h"
#include "judge.h"
#include "os/sockets.h"
#include "stand_in.h"
#include "support/scratch.h"

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <fstream>

namespace ory {
namespace {

using namespace std::chrono_literals;
using nlohmann::json;
using test::ChildProcess;
using test::eventually;
using test::readFile;
using testing::HasSubstr;

constexpr std::uint32_t hexid = 0x484506;
constexpr std::string_view callsign = "TRA051";
constexpr std::string_view title = "Transavia Boeing 737-800";
constexpr double windowStart =
    120; // seconds into the real flight: 4600 ft, turning right from 44 to 150 degrees

std::string lf_scenario(std::string_view timeline) {
  return fmt::format(R"({{
    "simulator": {{"name": "Lockheed Martin\u00ae Prepar3D\u00ae v5"}},
    "frames": {{"rate": 30, "frameRate": 60}},
    "zulu": "2018-05-30T15:23:38Z",
    "user": {{"track": [{{"t": 0, "lat": 52.3086, "lon": 4.7639, "heading": 90}}]}},
    "terrain": {{"elevation": -11}},
    "titles": [{{"title": "{}", "staticCg": 9.5, "staticPitch": 0.0}}],
    "timeline": [{}]
  }})",
                     title, timeline);
}

std::uint16_t lf_freeTcpPort() {
  const SocketHandle probe = openTcpServer(0);
  const std::uint16_t port = localPort(probe);
  closeSocket(probe);
  return port;
}

bool lf_isCall(const json& line, std::string_view call) {
  return line.value("kind", "") == "call" && line.value("call", "") == call;
}

class EngineProgramTest : public test::InScratchFolder {
protected:
  void SetUp() override {
    test::presetEarlierRun(folder, "/opt/Prepar3D v5");
    test::installPreparedData(folder);
    test::writeBytes(folder / "AppData/Roaming/InsideSystems/RealTraffic.jar", "PK");
    test::writeBytes(
        folder / "output/LiveriesScanned.xml",
        fmt::format(R"(<liveries><liv airl="TRA" type="B738" title="{}" atcid="" /></liveries>)", title));
    port = lf_freeTcpPort();
    std::string parameters = readFile(parametersFile);
    parameters.insert(parameters.find("</parameters>"),
                      fmt::format("  <parameter name=\"PORT_NUMBER\" value=\"{}\" />\n"
                                  "  <parameter name=\"AUTO_RANGE\" value=\"false\" />\n"
                                  "  <parameter name=\"LOG\" value=\"true\" />\n",
                                  port));
    test::writeBytes(parametersFile, parameters);
  }

  // seconds of the real flight from windowStart, one report a second, as offsets from 0; dropAt cuts the
  // link.
  void writeCapture(double seconds, double dropAt = -1) const {
    ChildProcess convert(FEEDPLAY_PATH,
                         {"convert", test::realData("adsb/belevingsvlucht.json.gz").string(), "flight.cap",
                          "--registry", test::realData("adsb/sample_hex_registry_subset.csv").string()},
                         folder, folder, folder / "convert.out");
    ASSERT_EQ(convert.waitExit(60s), 0) << readFile(folder / "convert.out");
    std::ofstream out(folder / "window.cap");
    bool dropped = false;
    for (CaptureEntry& entry : readCapture((folder / "flight.cap").string())) {
      if (entry.kind != CaptureKind::traffic || entry.offset < windowStart) continue;
      entry.offset -= windowStart;
      if (entry.offset >= seconds) break;
      if (dropAt >= 0 && !dropped && entry.offset >= dropAt) {
        out << captureText({entry.offset, CaptureKind::drop, "5", 5}) << '\n';
        dropped = true;
      }
      out << captureText(entry) << '\n';
    }
  }

  std::unique_ptr<ChildProcess> startPlayer() const {
    return std::make_unique<ChildProcess>(FEEDPLAY_PATH,
                                          std::vector<std::string>{"play", "--capture", "window.cap",
                                                                   "--port", std::to_string(port), "--record",
                                                                   "link.txt"},
                                          folder, folder, folder / "player.out");
  }
  std::unique_ptr<ChildProcess> startProgram() const {
    return std::make_unique<ChildProcess>(ORY_PROGRAM, std::vector<std::string>{}, folder, folder,
                                          folder / "program.out");
  }
  static std::optional<std::int64_t> createdObject(const std::vector<json>& trace) {
    for (const json& line : trace)
      if (line.value("kind", "") == "created" && line.value("tail", "") == callsign)
        return line.value("object", std::int64_t{0});
    return std::nullopt;
  }
  static bool removed(const std::vector<json>& trace, std::int64_t object) {
    return std::any_of(trace.begin(), trace.end(), [object](const json& line) {
      return lf_isCall(line, "SimConnect_AIRemoveObject") && line.value("object", std::int64_t{-1}) == object;
    });
  }
  std::string log() const { return readFile(folder / "Log.txt"); }

  std::filesystem::path folder = scratch.path();
  std::filesystem::path parametersFile = folder / "AppData/Roaming/Trovalyn_P3D/parameters.xml";
  std::uint16_t port = 0;
};

// The calls that concern one object, in trace order, as "call:event" texts.
std::vector<std::string> lf_callsOf(const std::vector<json>& trace, std::int64_t object) {
  std::vector<std::string> calls;
  for (const json& line : trace) {
    if (line.value("kind", "") != "call" || line.value("object", std::int64_t{-1}) != object) continue;
    const std::string call = line.value("call", "").substr(std::string_view("SimConnect_").size());
    calls.push_back(fmt::format("{}:{}", call, line.value("event", std::int64_t{0})));
  }
  return calls;
}

TEST_F(EngineProgramTest, aRealFlightIsFlownOnItsTrackThirtySecondsLateAndLeavesWhenTheFeedEnds) {
  writeCapture(60);
  test::StandIn stand(lf_scenario(""));
  stand.writeSimConnectCfg();
  const auto player = startPlayer();
  const auto program = startProgram();
  std::optional<std::int64_t> object;
  const bool gone = eventually(
      [&] {
        const std::vector<json> trace = stand.trace();
        object = createdObject(trace);
        return object && removed(trace, *object);
      },
      240s);
  program->signal(SIGTERM);
  EXPECT_EQ(program->waitExit(20s), 0);
  EXPECT_EQ(player->waitExit(10s), 0);
  stand.stop(SIGTERM);
  const std::vector<json> trace = stand.trace();
  ASSERT_TRUE(object) << readFile(folder / "program.out") << log();
  EXPECT_TRUE(gone) << "dead reckoning ran out and the object was removed\n" << log();

  const auto create = std::find_if(trace.begin(), trace.end(), [](const json& l) {
    return lf_isCall(l, "SimConnect_AICreateNonATCAircraft") && l.value("tail", "") == callsign;
  });
  ASSERT_NE(create, trace.end());
  EXPECT_EQ(create->value("title", ""), title) << "the livery of its airline and type";

  // Released and frozen before anything moves it; removed last.
  const std::vector<std::string> calls = lf_callsOf(trace, *object);
  const auto firstPosition = std::find(calls.begin(), calls.end(), "SetDataOnSimObject:0");
  ASSERT_NE(firstPosition, calls.end());
  const std::vector<std::string> before(calls.begin(), firstPosition);
  EXPECT_THAT(before, testing::IsSupersetOf({"AIReleaseControl:0", "TransmitClientEvent:215",
                                             "TransmitClientEvent:216", "TransmitClientEvent:217"}));
  EXPECT_EQ(calls.back(), "AIRemoveObject:0");

  const TrackFigures figures =
      judgeTrack(flownPath(trace, callsign), realTrack((folder / "window.cap").string(), hexid));
  RecordProperty("track", figuresText(figures));
  std::cout << figuresText(figures) << '\n';
  EXPECT_GT(figures.onTrack, 30u * 50) << "about a minute of flight at 30 frames a second";
  EXPECT_LT(figures.medianMetres, 150);
  EXPECT_LT(figures.p95Metres, 300);
  EXPECT_EQ(figures.jumps, 0u);

  const std::string text = readFile(folder / "link.txt");
  const auto positions = static_cast<std::size_t>(std::count(text.begin(), text.end(), 'Q'));
  EXPECT_GE(positions, 100u) << "RealTraffic hears of the user once a second";
}

TEST_F(EngineProgramTest, aLostRealTrafficTakesTheAircraftAwayAndATeleportRestarts) {
  writeCapture(50, 40);
  test::StandIn stand(
      lf_scenario(R"({"t": 75, "do": "teleport", "lat": 51.4706, "lon": -0.4619, "heading": 270})"));
  stand.writeSimConnectCfg();
  const auto player = startPlayer();
  const auto program = startProgram();
  const bool restarted =
      eventually([&] { return log().find("Exiting: RESTART") != std::string::npos; }, 150s);
  program->signal(SIGTERM);
  program->waitExit(30s);
  player->waitExit(10s);
  stand.stop(SIGTERM);
  const std::vector<json> trace = stand.trace();
  const std::string text = log();
  ASSERT_TRUE(restarted) << text;
  const std::optional<std::int64_t> object = createdObject(trace);
  ASSERT_TRUE(object) << text;
  EXPECT_TRUE(removed(trace, *object)) << text;
  const std::size_t gone = text.find("RealTraffic gone?");
  const std::size_t teleport = text.find("Teleport\n");
  ASSERT_NE(gone, std::string::npos) << text;
  EXPECT_LT(gone, teleport) << text;
  EXPECT_THAT(text.substr(teleport), HasSubstr("Exiting: RESTART"));
}

} // namespace
} // namespace ory
