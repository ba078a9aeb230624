// The session on its own thread against the stand-in: creation, binding, release and freeze of AI objects as
// the simulator sees them, positions at the frame, a refused title; and the restart after three failed
// requests.
#include "base/log.h"
#include "base/run.h"
#include "frame/window.h"
#include "simlink/batches.h"
#include "simlink/commands.h"
#include "simlink/session.h"
#include "simlink/user_aircraft.h"
#include "stand_in.h"
#include "support/scratch.h"
#include "wire_peer.h"

#include <gtest/gtest.h>

#include <thread>

namespace ory {
namespace {

using Json = nlohmann::json;
using namespace std::chrono_literals;

const char* lf_parked = R"({
  "frames": {"rate": 40, "frameRate": 41},
  "user": {"track": [{"t": 0, "lat": 48.35378, "lon": 11.78609, "heading": 82}]},
  "terrain": {"areas": [{"lat": 48.3538, "lon": 11.7861, "radiusNm": 12, "elevation": 1487}]},
  "titles": [{"title": "Airbus A320 Lufthansa", "staticCg": 7.3, "staticPitch": -0.012}],
  "traffic": [{"t": 1, "title": "Cessna Citation X", "atcId": "DCIXX", "lat": 48.3512, "lon": 11.7744, "speed": 12}]
})";

class SessionStandTest : public test::InScratchFolder {
protected:
  void SetUp() override {
    openLog();
    resetRunState();
    resetSimLink();
    userStateReset();
    exiting = false;
  }
  void TearDown() override {
    thread = {};
    EXPECT_TRUE(test::eventually([] { return threadCount == 0; }, 15000ms))
        << "a thread of the test still runs";
    resetSimLink();
    userStateReset();
    userObjectId = 0;
    closeLog();
  }
  std::string log() {
    flushLog();
    return test::readFile("Log.txt");
  }
  // Commands until one with code and value came, asking for the aircraft in range twice a second.
  bool awaitCommand(std::uint32_t code, std::uint32_t value, SimCommand& found) {
    return test::eventually(
        [&] {
          requestRange(20000);
          std::vector<SimCommand> taken;
          takeSimCommands(taken);
          received.insert(received.end(), taken.begin(), taken.end());
          for (const SimCommand& command : received)
            if (command.code == code && command.value == value) found = command;
          return found.code == code && found.value == value;
        },
        10000ms);
  }

  std::jthread thread;
  std::vector<SimCommand> received;
};

Json lf_lastState(const test::StandIn& stand) {
  Json last;
  for (const Json& line : stand.trace())
    if (line.value("kind", "") == "state") last = line;
  return last;
}

Json lf_object(const Json& state, std::string_view atcId) {
  for (const Json& object : state.value("objects", Json::array()))
    if (object.value("atcId", "") == atcId) return object;
  return Json::object();
}

TEST_F(SessionStandTest, NewAircraftAreBoundFrozenAndPlacedOnlyByTheProgram) {
  test::StandIn stand(lf_parked);
  stand.writeSimConnectCfg();
  thread = std::jthread(simThread);
  ASSERT_TRUE(test::eventually([] { return simRunning.load(); }, 10000ms));
  requestUserOnGround();
  ASSERT_TRUE(test::eventually(
      [] {
        requestUserPosition();
        return userObjectId != 0;
      },
      5000ms));

  CreateRequest lufthansa;
  lufthansa.lat = 48.3550;
  lufthansa.lon = 11.7850;
  lufthansa.heading = 82;
  lufthansa.onGround = true;
  lufthansa.callsign = "DLH4AB";
  lufthansa.liveryTitle = "Airbus A320 Lufthansa";
  lufthansa.hexid = 0x3C6586;
  CreateRequest unknown = lufthansa;
  unknown.callsign = "CCA931";
  unknown.liveryTitle = "Boeing 747-8 Air China";
  unknown.hexid = 0x780A3C;
  {
    std::lock_guard lock(batchLock);
    createBatch = {lufthansa, unknown};
  }
  SimCommand added, refused;
  ASSERT_TRUE(awaitCommand(commandLiveAdded, 0x3C6586, added));
  ASSERT_TRUE(awaitCommand(commandNotCreated, 0x780A3C, refused));
  EXPECT_GT(added.objectId, userObjectId.load());
  EXPECT_NEAR(added.b, 7.3, 0.01) << "the new object's height above the ground";

  // The freezes leave at the next frame; from then on the object stands where the program puts it.
  ASSERT_TRUE(stand.waitForTrace(
      [](const Json& L) {
        return L.value("kind", "") == "state" &&
               lf_object(L, "DLH4AB").value("frozen", Json()) == Json({true, true, true});
      },
      5000ms));
  const Json before = lf_object(lf_lastState(stand), "DLH4AB");
  EXPECT_TRUE(before.value("released", false));
  std::this_thread::sleep_for(std::chrono::milliseconds(500));
  const Json still = lf_object(lf_lastState(stand), "DLH4AB");
  EXPECT_EQ(still["lat"], before["lat"]) << "a released and frozen object doesn't move on its own";
  EXPECT_EQ(still["lon"], before["lon"]);

  ObjectPosition moved{48.3560, 11.7870, -0.0105, 0.0, 1.43, 1494.3, 0.0, 8.0, added.objectId};
  {
    std::lock_guard lock(batchLock);
    positionBatch.simulatorHalf.push_back(moved);
  }
  ASSERT_TRUE(stand.waitForTrace(
      [](const Json& L) { return lf_object(L, "DLH4AB").value("lat", 0.0) == 48.3560; }, 5000ms));
  const Json placed = lf_object(lf_lastState(stand), "DLH4AB");
  EXPECT_EQ(placed.value("lon", 0.0), 11.7870);
  EXPECT_NEAR(placed.value("alt", 0.0), 1494.3, 0.01);

  // A flaps event hands the object back to the simulator's AI: the release after it takes it again.
  ParkedAircraft commanded;
  commanded.objectId = added.objectId;
  sendFlaps(commanded, 2);
  sendGear(commanded, false);
  ASSERT_TRUE(stand.waitForTrace(
      [](const Json& L) { return lf_object(L, "DLH4AB").value("flaps", 0.0) > 0.6; }, 5000ms));
  const Json flown = lf_object(lf_lastState(stand), "DLH4AB");
  EXPECT_TRUE(flown.value("released", false));
  EXPECT_FALSE(flown.value("gear", true));

  // Another client's new aircraft is noted once, and no command follows it.
  ASSERT_TRUE(stand.waitForTrace([](const Json& L) { return L.value("kind", "") == "traffic"; }, 5000ms));
  EXPECT_TRUE(test::eventually(
      [&] {
        requestRange(20000);
        return log().find("just created, but not by Trovalyn, oid: ") != std::string::npos;
      },
      5000ms))
      << log();
  std::vector<SimCommand> later;
  takeSimCommands(later);
  for (const SimCommand& command : later)
    EXPECT_NE(command.code, commandLiveAdded);
  thread = {}; // the session ends before the stand-in does, so that its quit doesn't stop the program
  std::size_t releases = 0;
  for (const Json& line : stand.trace())
    if (line.value("call", "") == "SimConnect_AIReleaseControl" && line.value("object", 0u) == added.objectId)
      ++releases;
  EXPECT_EQ(releases, 3u) << "at the freeze, and before and after the flaps";
}

// The simulator knows its titles in its ANSI code page: a title with "é" and "ü" is created, and the user's
// title comes back in UTF-8.
TEST_F(SessionStandTest, TitlesWithAccentsCrossInTheSimulatorsCodePage) {
  const std::string societe = "Air France Soci\xC3\xA9t\xC3\xA9 M\xC3\xBCnchen";
  Json scenario = Json::parse(lf_parked);
  scenario["titles"] = Json::array({{{"title", societe}}});
  scenario["user"]["title"] = "Cessna Skylane R\xC3\xBC"
                              "ckenwind";
  test::StandIn stand(scenario.dump());
  stand.writeSimConnectCfg();
  thread = std::jthread(simThread);
  ASSERT_TRUE(test::eventually([] { return simRunning.load(); }, 10000ms));
  ASSERT_TRUE(test::eventually(
      [] {
        requestUserPosition();
        requestUserIdentity();
        return userObjectId != 0 && !userTitle().empty();
      },
      5000ms));
  EXPECT_EQ(userTitle(), "Cessna Skylane R\xC3\xBC"
                         "ckenwind");

  CreateRequest create;
  create.lat = 48.3550;
  create.lon = 11.7850;
  create.onGround = true;
  create.callsign = "AFR1234";
  create.liveryTitle = societe;
  create.hexid = 0x39CEAA;
  {
    std::lock_guard lock(batchLock);
    createBatch = {create};
  }
  SimCommand added;
  ASSERT_TRUE(awaitCommand(commandLiveAdded, 0x39CEAA, added));
  for (const SimCommand& command : received)
    EXPECT_NE(command.code, commandNotCreated);
  thread = {};
  EXPECT_TRUE(stand.waitForTrace([&](const Json& L) { return L.value("title", "") == societe; }, 1000ms))
      << "the trace shows the title as the simulator read it";
}

TEST_F(SessionStandTest, RefusedOpensAreTriedAgainEverySecondUnderOneWaitingLine) {
  const std::uint16_t port = [] {
    test::WirePeer gone;
    return gone.port();
  }();
  test::writeSimConnectCfg("IPv4", "127.0.0.1", port);
  thread = std::jthread(simThread);
  std::this_thread::sleep_for(3500ms); // three or four refused opens
  EXPECT_FALSE(simRunning);
  test::StandIn stand(lf_parked, "stand", port);
  ASSERT_TRUE(test::eventually([] { return simRunning.load(); }, 3000ms)) << "the next try finds it";
  thread = {};
  const std::string text = log();
  const std::string waiting = "Waiting for Prepar3Dv5 ...\n";
  EXPECT_NE(text.find(waiting), std::string::npos) << text;
  EXPECT_EQ(text.find(waiting), text.rfind(waiting)) << text;
}

TEST_F(SessionStandTest, TheThirdFailedRequestRestartsTheProgramAfterTenSeconds) {
  for (int i = 0; i < 3; ++i)
    requestUserPosition(); // no session: the requests fail
  ASSERT_TRUE(
      test::eventually([&] { return log().find("Exiting: RESTART\n") != std::string::npos; }, 5000ms));
  ASSERT_TRUE(test::eventually(
      [] {
        std::lock_guard lock(windowTextLock);
        return display.messageText == "Restarting after 10 seconds";
      },
      15000ms));
  userClosed = true; // ends the countdown early
  EXPECT_EQ(nextPostedMessage(5000), startMessage) << "the run begins again";
  ASSERT_TRUE(test::eventually([] { return threadCount == 0; }, 5000ms));
  const std::string text = log();
  const std::size_t error =
      text.find("SimConnect request user ac position fails\nSimConnect request error 3, see Log.txt");
  const std::size_t restart = text.find("Exiting: RESTART\n");
  const std::size_t countdown = text.find("Restarting after 10 seconds\n");
  EXPECT_NE(error, std::string::npos) << text;
  EXPECT_LT(error, restart);
  EXPECT_LT(restart, countdown);
  EXPECT_NE(countdown, std::string::npos) << text;
  resetRunState();
}

} // namespace
} // namespace ory
