// The Linux program, run from a scratch program folder with a SimConnect.cfg that points at the stand-in:
// what the user sees of the simulator link, from the first connection to the end of the program.
#include "stand_in.h"
#include "support/scratch.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <filesystem>
#include <memory>
#include <regex>
#include <thread>

namespace ory {
namespace {

using Json = nlohmann::json;

// A user parked at Munich; name is the simulator's, EXTRA more keys of the scenario.
std::string lf_scenario(std::string_view timeline,
                        std::string_view name = "Lockheed Martin\\u00ae Prepar3D\\u00ae v5",
                        std::string_view simulatorExtra = "") {
  return fmt::format(R"({{
    "simulator": {{"name": "{}" {}}},
    "frames": {{"rate": 30, "frameRate": 41}},
    "user": {{"track": [{{"t": 0, "lat": 48.35378, "lon": 11.78609, "heading": 82}}]}},
    "terrain": {{"areas": [{{"lat": 48.3538, "lon": 11.7861, "radiusNm": 12, "elevation": 1487}}]}},
    "timeline": [{}]
  }})",
                     name, simulatorExtra, timeline);
}

class ProgramTest : public test::InScratchFolder {
protected:
  void start(const std::string& scenario, std::string_view installPath = "/opt/Prepar3D v5") {
    test::presetEarlierRun(scratch.path(), installPath);
    program.reset();
    stand.reset();
    std::filesystem::remove("Log.txt"); // a run's log is its own, not the one before it
    test::installPreparedData(scratch.path());
    stand = std::make_unique<test::StandIn>(scenario);
    stand->writeSimConnectCfg();
    program = std::make_unique<test::ChildProcess>(ORY_PROGRAM, std::vector<std::string>{}, scratch.path(),
                                                   scratch.path(), scratch.path() / "program.out");
  }
  // Log.txt as far as it reached the disk: lines are flushed every 30 seconds and at the end.
  std::string log() const { return test::readFile("Log.txt"); }
  bool logHas(std::string_view text) const { return log().find(text) != std::string::npos; }
  bool waitForLog(std::string_view text) const {
    return test::eventually([&] { return logHas(text); }, std::chrono::seconds(30));
  }
  // The program ends by itself, and well.
  void expectEnd(std::string_view reason) {
    EXPECT_EQ(program->waitExit(std::chrono::seconds(25)), 0) << log() << test::readFile("program.out");
    EXPECT_TRUE(logHas(fmt::format("Exiting: {}\n", reason))) << log();
  }
  std::size_t calls(std::string_view name) const {
    std::size_t count = 0;
    for (const Json& line : stand->trace())
      if (line.value("call", "") == name) ++count;
    return count;
  }

  std::unique_ptr<test::StandIn> stand;
  std::unique_ptr<test::ChildProcess> program;
};

TEST_F(ProgramTest, TheSessionDeclaresEverythingAndTheSimulatorsQuitEndsTheProgram) {
  start(lf_scenario(R"({"t": 4, "do": "quit"})"));
  expectEnd("SIM WAS CLOSED");
  EXPECT_TRUE(logHas("Waiting for Prepar3Dv5 ...\n"));
  EXPECT_TRUE(logHas("Lockheed Martin Prepar3D v5 (5.3.17.28160) connected \n"));
  EXPECT_TRUE(std::regex_search(log(), std::regex(R"(\d\d:\d\d:\d\d Flight Simulator no longer connected, )"
                                                  R"(Trovalyn_P3D will stop \.\.\.\n)")))
      << log();
  EXPECT_EQ(calls("SimConnect_SubscribeToSystemEvent"), 6u);
  EXPECT_EQ(calls("SimConnect_AddToDataDefinition"), 33u);
  EXPECT_EQ(calls("SimConnect_MapClientEventToSimEvent"), 17u);
  EXPECT_EQ(calls("SimConnect_AddClientEventToNotificationGroup"), 16u);
  EXPECT_EQ(calls("SimConnect_SetNotificationGroupPriority"), 1u);
  bool secondly = false;
  for (const Json& line : stand->trace())
    secondly = secondly || (line.value("call", "") == "SimConnect_RequestDataOnSimObject" &&
                            line.value("request", 0) == 108 && line.value("period", 0) == 4);
  EXPECT_TRUE(secondly) << "the user's on-ground state every second paces the program";
  for (const Json& line : stand->trace())
    EXPECT_NE(line.value("kind", ""), "exception") << line.dump();
}

TEST_F(ProgramTest, APauseStopsTheFlightAndResumesIt) {
  // Longer records in pieces, to make the client reassemble them all the way.
  start(lf_scenario(R"({"t": 24, "do": "pause"}, {"t": 27, "do": "resume"})", "Lockheed Martin Prepar3D v5",
                    R"(, "p3dShapes": true, "writes": "split")"));
  ASSERT_TRUE(waitForLog("No traffic in this region?")) << log(); // the main loop runs from here
  ASSERT_TRUE(stand->waitForTrace([](const Json& L) { return L.value("do", "") == "resume"; },
                                  std::chrono::seconds(30)));
  std::this_thread::sleep_for(std::chrono::milliseconds(2500)); // the first second after the resume
  program->signal(SIGTERM);
  expectEnd("USER CLOSED SIM");
  const std::regex order(R"(\d\d:\d\d:\d\d Flight not running\n(.*\n)*\d\d:\d\d:\d\d Flight resumed\n)");
  EXPECT_TRUE(std::regex_search(log(), order)) << log();
}

TEST_F(ProgramTest, AnotherSimulatorOrAnotherVersionIsRefusedWithError78) {
  start(lf_scenario(R"({"t": 60, "do": "quit"})", "KittyHawk"));
  expectEnd("SIM WAS CLOSED");
  EXPECT_TRUE(logHas("Error 78: KittyHawk, (MSFS 2020?) not being P3D connects ... ?\n")) << log();
  // The session is taken down before the link closes, and only what it declared is taken back. The stand-in
  // may still be reading the last calls when the program has ended.
  stand->waitForTrace(
      [](const Json& line) {
        return line.value("call", "") == "SimConnect_UnsubscribeFromSystemEvent" &&
               line.value("event", 0u) == 206u;
      },
      std::chrono::seconds(10));
  std::vector<std::uint32_t> cleared, unsubscribed;
  for (const Json& line : stand->trace()) {
    EXPECT_NE(line.value("kind", ""), "exception") << line.dump();
    if (line.value("call", "") == "SimConnect_ClearDataDefinition")
      cleared.push_back(line.value("define", 0u));
    if (line.value("call", "") == "SimConnect_UnsubscribeFromSystemEvent")
      unsubscribed.push_back(line.value("event", 0u));
  }
  EXPECT_EQ(cleared, (std::vector<std::uint32_t>{407, 408, 409, 402, 403, 401, 404, 405, 406}));
  EXPECT_EQ(unsubscribed, (std::vector<std::uint32_t>{201, 202, 203, 204, 205, 206}));

  start(lf_scenario(R"({"t": 60, "do": "quit"})", "Lockheed Martin\\u00ae Prepar3D\\u00ae v6"));
  expectEnd("SIM WAS CLOSED");
  EXPECT_TRUE(logHas("Error 78: wrong P3D version \"Lockheed Martin Prepar3D v6\" connects ... ?\n"))
      << log();
}

TEST_F(ProgramTest, ALoadedFlightOrAMovedUserRestartsTheRunAfter30Seconds) {
  for (const auto& [event, line] : {std::pair{"flightLoaded", "New file loaded\n"},
                                    std::pair{"positionChanged", "User ac position changed\n"}}) {
    SCOPED_TRACE(event);
    start(lf_scenario(fmt::format(R"({{"t": 3, "do": "{}", "file": "EDDM.fxml"}})", event)));
    ASSERT_TRUE(waitForLog("Exiting: RESTART\n")) << log();
    std::this_thread::sleep_for(std::chrono::seconds(2)); // into the countdown, where a close ends it
    program->signal(SIGTERM);
    expectEnd("USER CLOSED SIM");
    EXPECT_TRUE(std::regex_search(
        log(),
        std::regex(std::string(line) + "(.*\n)*Exiting: RESTART\n(.*\n)*Restarting after 30 seconds\n")))
        << log();
  }
}

TEST_F(ProgramTest, GarbageOrARecordCutShortEndsTheLinkButNotTheProgram) {
  start(lf_scenario(R"({"t": 3, "do": "garbage", "hex": "0800000004000000"})"));
  expectEnd("SIM WAS CLOSED");
  EXPECT_TRUE(
      logHas("SimConnect: record size 8 out of bounds, connection dropped: 08 00 00 00 04 00 00 00\n"))
      << log();

  start(lf_scenario(R"({"t": 3, "do": "cutRecord"})"));
  expectEnd("SIM WAS CLOSED");
  EXPECT_TRUE(logHas("Flight Simulator no longer connected")) << log();
}

} // namespace
} // namespace ory
