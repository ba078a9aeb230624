#include "base/display.h"
#include "base/exceptions.h"
#include "base/log.h"
#include "base/run.h"
#include "feed/feed.h"
#include "feed/socket_errors.h"
#include "feed/traffic_link.h"
#include "os/sockets.h"
#include "support/scratch.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <future>
#include <random>
#include <string>
#include <thread>

namespace ory {
namespace {

using namespace std::chrono_literals;

TEST(PositionLineTest, radiansAndThousandsInRealTrafficsOrder) {
  UserPosition user;
  user.lat = 52.3086;
  user.lon = -4.7639;
  user.pitch = -0.0523;
  user.bank = 0.10472;
  user.heading = 4.71239;
  user.altitude = 35000.4;
  user.groundVelocity = 451.25;
  EXPECT_EQ(positionLine(user), "Qs121=-5230;10472;4.712390;35000400;451250;0.912957;-0.083146\r\n");
  user.altitude = 12.3456;
  user.groundVelocity = 0.1;
  EXPECT_EQ(positionLine(user).substr(0, 42), "Qs121=-5230;10472;4.712390;12346;100;0.912");
}

TEST(SimEpochTest, calendarDaysOfTheSimulatorsClock) {
  EXPECT_EQ(simEpochSecondsOf(1970, 1, 0), 0);
  EXPECT_EQ(simEpochSecondsOf(1973, 1, 0), 94694400) << "after the leap year 1972";
  EXPECT_EQ(simEpochSecondsOf(2024, 60, 0), 1709164800) << "29 February 2024";
  EXPECT_EQ(simEpochSecondsOf(2025, 1, 3600), 1735693200);
  EXPECT_EQ(simEpochSecondsOf(2000, 366, 86399), 978307199) << "2000 is a leap year";
  EXPECT_EQ(simEpochSecondsOf(2100, 60, 0), 4107542400) << "1 March 2100: no leap day";
}

class DetectionTest : public test::InScratchFolder {
protected:
  std::string message() {
    std::lock_guard lock(windowTextLock);
    return display.messageText;
  }
};

TEST_F(DetectionTest, realTrafficsJarInAppDataTellsThatItRunsOnThisPc) {
  rtDetected = true;
  detectRealTraffic();
  EXPECT_FALSE(rtDetected);
  EXPECT_EQ(message(), "RealTraffic not detected at this PC");
  test::writeBytes(scratch.path() / "AppData/Roaming/InsideSystems/RealTraffic.jar", "PK");
  detectRealTraffic();
  EXPECT_TRUE(rtDetected);
  EXPECT_EQ(message(), "RealTraffic detected at this PC");
  rtDetected = false;
}

class VersionReplyTest : public test::InScratchFolder {
protected:
  void SetUp() override { display.archiveWeek = 23; }
  std::string status() {
    std::lock_guard lock(windowTextLock);
    return display.rtStatusText;
  }
};

// Level 2 or no level is the professional edition; an empty or broken reply the standard one.
TEST_F(VersionReplyTest, theLevelOfTheReplyGivesTheEdition) {
  const struct {
    const char* reply;
    bool professional;
    const char* status; // empty: the one before stays
  } rows[] = {
      {R"({"version":"10.0.243","level":2})", true, "RT prof edition: 10.0.243, archive: week 23"},
      {R"({"version":"9.1"})", true, ""},
      {R"({"version":"9.1","level":1})", false, "RT stnd edition: 9.1, archive: week 23"},
      {R"({"level":"2"})", false, "RT stnd edition: ?, archive: week 23"}, // a text is not the number 2
      {R"({"version":9,"level":2.0})", true, "RT prof edition: 9, archive: week 23"},
      {"", false, ""},
      {"{\"version\":", false, ""},
      {"[2]", false, ""},
      {"Qs999", false, ""},
  };
  for (const auto& row : rows) {
    rtProfessional = !row.professional;
    takeVersionReply(row.reply);
    EXPECT_EQ(rtProfessional, row.professional) << row.reply;
    if (*row.status) {
      EXPECT_EQ(status(), row.status);
    }
  }
  std::lock_guard lock(windowTextLock);
  EXPECT_EQ(display.messageText, "No RealTraffic version received?");
}

// RealTraffic's side of the link, on loopback.
class FakeRealTraffic {
public:
  explicit FakeRealTraffic(std::uint16_t port) : socket(connectTcp("127.0.0.1", port)) {}
  ~FakeRealTraffic() { closeSocket(socket); }
  // What arrives within wait, or until TEXT_END has arrived.
  std::string read(std::chrono::milliseconds wait, std::string_view until = {}) {
    std::string text;
    const auto end = std::chrono::steady_clock::now() + wait;
    while (std::chrono::steady_clock::now() < end) {
      if (!until.empty() && text.find(until) != std::string::npos) break;
      if (waitReadable(socket, 20) != 1) continue;
      char chunk[512];
      const long got = receiveSome(socket, chunk, sizeof(chunk));
      if (got <= 0) {
        closed = true;
        break;
      }
      text.append(chunk, static_cast<std::size_t>(got));
    }
    return text;
  }
  void send(std::string_view text) { ASSERT_TRUE(sendAll(socket, text.data(), text.size())); }
  SocketHandle socket;
  bool closed = false;
};

class TrafficLinkTest : public test::InScratchFolder {
protected:
  void SetUp() override {
    openLog();
    rtDetected = true;
    rtConnected = false;
    rtProfessional = false;
    exitReason = ExitReason::notYetSet;
    simEpochSeconds = 0;
    port = openOnFreePort();
    user.lat = 47.46;
    user.lon = 8.55;
    user.altitude = 1400;
  }
  void TearDown() override {
    closeLink();
    rtConnected = false;
    rtDetected = false;
    setTrafficLostAction({});
    closeLog();
  }
  static std::uint16_t openOnFreePort() {
    std::mt19937 random(std::random_device{}());
    for (int attempt = 0; attempt < 50; ++attempt) {
      const auto candidate = static_cast<std::uint16_t>(20000 + random() % 30000);
      try {
        openServer(std::to_string(candidate));
        return candidate;
      } catch (const SysErrorException& e) {
        if (e.number != 5) throw;
      }
    }
    throw std::runtime_error("no free port");
  }
  // Connects as RealTraffic while handshake() waits, and answers the version request with reply.
  std::unique_ptr<FakeRealTraffic> connectWithHandshake(std::string_view reply) {
    auto waiting = std::async(std::launch::async, [] { handshake(); });
    auto peer = std::make_unique<FakeRealTraffic>(port);
    EXPECT_EQ(peer->read(2s, "\r\n"), "Qs999=version\r\n");
    peer->send(reply);
    EXPECT_EQ(waiting.wait_for(5s), std::future_status::ready);
    return peer;
  }

  std::uint16_t port = 0;
  UserPosition user;
};

TEST_F(TrafficLinkTest, handshakeThenPositionTimeAndExit) {
  auto peer = connectWithHandshake(R"({"version":"10.0.243","level":2})");
  EXPECT_TRUE(rtConnected);
  EXPECT_TRUE(rtProfessional);
  EXPECT_TRUE(display.rtLinkUp);
  sendUserPosition(user);
  EXPECT_EQ(peer->read(2s, "\r\n"), positionLine(user));
  sendSimTime();
  simEpochSeconds = 1735693200;
  sendSimTime();
  EXPECT_EQ(peer->read(2s, "\r\n"), "Qs123=1735693200000\r\n") << "nothing while the time is unknown";
  closeLink();
  EXPECT_EQ(peer->read(2s), "exit\r\n");
  EXPECT_TRUE(peer->closed);
  EXPECT_TRUE(rtConnected) << "stays until a send fails";
  const std::string written = test::logText();
  EXPECT_NE(written.find("Waiting for RealTraffic to connect to Trovalyn_P3D ..."), std::string::npos);
  EXPECT_NE(written.find("RT prof edition: 10.0.243, archive: week"), std::string::npos);
  EXPECT_NE(written.find("RealTraffic connected"), std::string::npos);
}

TEST_F(TrafficLinkTest, aSecondClientWaitsInTheBacklog) {
  auto peer = connectWithHandshake("{}");
  FakeRealTraffic second(port);
  EXPECT_FALSE(waitForClient()) << "returns at once";
  sendUserPosition(user);
  EXPECT_EQ(peer->read(2s, "\r\n"), positionLine(user));
  EXPECT_EQ(second.read(200ms), "");
}

TEST_F(TrafficLinkTest, aLostRealTrafficIsNoticedAndWaitedForUntilItComesBack) {
  std::atomic<int> lost{0};
  setTrafficLostAction([&] { ++lost; });
  auto peer = connectWithHandshake(R"({"version":"10","level":1})");
  simEpochSeconds = 1735693200;
  sendSimTime();
  EXPECT_EQ(peer->read(200ms), "") << "no time for the standard licence";
  peer.reset();
  for (int second = 0; second < 20 && rtConnected; ++second) {
    sendUserPosition(user);
    std::this_thread::sleep_for(10ms);
  }
  ASSERT_FALSE(rtConnected) << "a send into the closed connection fails at the latest on the second try";
  EXPECT_FALSE(display.rtLinkUp);
  EXPECT_EQ(lost, 1);
  EXPECT_NE(test::logText().find("RealTraffic gone? Wait for RealTraffic to re-connect ..."),
            std::string::npos);

  auto waiting = std::async(std::launch::async, [&] { sendUserPosition(user); });
  EXPECT_EQ(waiting.wait_for(300ms), std::future_status::timeout) << "blocks until RealTraffic is back";
  FakeRealTraffic back(port);
  EXPECT_EQ(waiting.wait_for(5s), std::future_status::ready);
  EXPECT_TRUE(display.rtLinkUp);
  EXPECT_NE(test::logText().find("RealTraffic re-connected"), std::string::npos);
  sendUserPosition(user);
  EXPECT_EQ(back.read(2s, "\r\n"), positionLine(user)) << "no version request after a re-connection";
  EXPECT_FALSE(rtProfessional) << "stays as the first reply left it";
}

TEST_F(TrafficLinkTest, aTimeThatFindsRealTrafficGoneIsTheLossAsWell) {
  std::atomic<int> lost{0};
  setTrafficLostAction([&] { ++lost; });
  connectWithHandshake(R"({"version":"10","level":2})").reset();
  simEpochSeconds = 1735693200;
  for (int second = 0; second < 20 && rtConnected; ++second) {
    sendSimTime();
    std::this_thread::sleep_for(10ms);
  }
  ASSERT_FALSE(rtConnected);
  EXPECT_FALSE(display.rtLinkUp);
  EXPECT_EQ(lost, 1) << "the live aircraft go";
  EXPECT_NE(test::logText().find("RealTraffic gone? Wait for RealTraffic to re-connect ..."),
            std::string::npos);
}

TEST_F(TrafficLinkTest, closingTheLinkEndsAWaitForRealTraffic) {
  auto waiting = std::async(std::launch::async, [&] { sendUserPosition(user); });
  EXPECT_EQ(waiting.wait_for(200ms), std::future_status::timeout);
  closeLink();
  EXPECT_EQ(waiting.wait_for(5s), std::future_status::ready);
  EXPECT_FALSE(rtConnected);
}

TEST_F(TrafficLinkTest, nothingIsSentForTheNullPositionOrWhileLeaving) {
  auto peer = connectWithHandshake("{}");
  user.lat = 0.0005;
  user.lon = 0.01;
  peer->closed = false;
  sendUserPosition(user);
  EXPECT_EQ(peer->read(200ms), "");
  closeLink();
  rtConnected = false;
  exitReason = ExitReason::userClosedSim;
  user.lat = 47;
  auto waiting = std::async(std::launch::async, [&] { sendUserPosition(user); });
  EXPECT_EQ(waiting.wait_for(2s), std::future_status::ready) << "no wait for RealTraffic during an exit";
}

TEST_F(TrafficLinkTest, afterARestartTheFirstSendFailsAndTheLinkWaitsAgain) {
  auto peer = connectWithHandshake("{}");
  closeLink();
  port = openOnFreePort();
  sendUserPosition(user);
  EXPECT_FALSE(rtConnected);
  EXPECT_NE(test::logText().find("sendDataPacket to RealTraffic failed: "), std::string::npos);
  auto waiting = std::async(std::launch::async, [&] { sendUserPosition(user); });
  FakeRealTraffic again(port);
  EXPECT_EQ(waiting.wait_for(5s), std::future_status::ready);
  EXPECT_TRUE(rtConnected);
}

TEST_F(TrafficLinkTest, aTakenPortOrAnUnknownServiceStopsTheServer) {
  try {
    openServer(std::to_string(port));
    FAIL() << "the port is taken";
  } catch (const SysErrorException& e) {
    EXPECT_EQ(e.number, 5);
    EXPECT_EQ(std::string(e.what()), "sys error 5: Bind failed at port " + std::to_string(port) +
                                         " with error 10048 Address already in use");
  }
  closeLink();
  try {
    openServer("no-such-service");
    FAIL() << "getaddrinfo knows no such service";
  } catch (const SysErrorException& e) {
    EXPECT_EQ(e.number, 1);
  }
}

} // namespace
} // namespace ory
