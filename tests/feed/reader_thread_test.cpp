#include "base/display.h"
#include "base/log.h"
#include "base/parameters.h"
#include "base/run.h"
#include "feed/feed.h"
#include "feed/inbox.h"
#include "os/sockets.h"
#include "support/process.h"
#include "support/scratch.h"

#include <gtest/gtest.h>

#include <random>
#include <string>

namespace ory {
namespace {

using namespace std::chrono_literals;
using test::eventually;

// A free UDP port of this machine, not the feed's fixed ones.
std::uint16_t freeUdpPort() {
  std::mt19937 random(std::random_device{}());
  for (int attempt = 0; attempt < 100; ++attempt) {
    const auto port = static_cast<std::uint16_t>(20000 + random() % 20000);
    const SocketHandle probe = openUdpReceiver(port);
    if (probe == invalidSocket) continue;
    closeSocket(probe);
    return port;
  }
  throw std::runtime_error("no free UDP port");
}

class ReaderThreadTest : public test::InScratchFolder {
protected:
  void SetUp() override {
    openLog();
    resetFeed();
    readerError = false;
    rtDetected = false;
    port = freeUdpPort();
    sender = openUdpSender();
  }
  void TearDown() override {
    stopReaders();
    EXPECT_TRUE(eventually([] { return threadCount == 0; }, 5s));
    closeSocket(sender);
    readerError = false;
    closeLog();
  }
  void send(std::string_view datagram) const {
    ASSERT_TRUE(sendDatagram(sender, "127.0.0.1", port, datagram.data(), datagram.size()));
  }
  std::string log() {
    flushLog();
    return test::readFile("Log.txt");
  }

  std::uint16_t port = 0;
  SocketHandle sender = invalidSocket;
};

TEST_F(ReaderThreadTest, aReaderTakesDatagramsUntilItIsStopped) {
  startReaderThread(qnhReader, port);
  ASSERT_TRUE(eventually([] { return display.weatherMark == FeedMark::running; }, 5s));
  EXPECT_EQ(threadCount, 1);
  send(R"({"QNH":1021})");
  send(std::string(20000, 'x')); // cut by the receive buffer
  send(R"({"QNH":1022})");
  ASSERT_TRUE(eventually([] { return qnhForEngine == 1022; }, 5s));
  EXPECT_EQ(qnhReader.packetCount, 2) << "an overrun is not a packet";
  stopReader(qnhReader);
  ASSERT_TRUE(eventually([] { return threadCount == 0; }, 5s)) << "the closed socket ends the wait";
  EXPECT_EQ(display.weatherMark, FeedMark::notConnected);
  EXPECT_FALSE(readerError);
  const std::string written = log();
  EXPECT_NE(written.find("QNH Reader connected\n"), std::string::npos);
  EXPECT_NE(written.find("buffer overrun: 16384 bytes\n"), std::string::npos);
  EXPECT_NE(written.find("QNH Reader has stopped\n"), std::string::npos);
}

TEST_F(ReaderThreadTest, aTakenPortEndsTheReaderWithAnError) {
  const SocketHandle taken = openUdpReceiver(port);
  startReaderThread(trafficReader, port);
  ASSERT_TRUE(eventually([] { return readerError.load(); }, 5s));
  ASSERT_TRUE(eventually([] { return threadCount == 0; }, 5s));
  closeSocket(taken);
  const std::string written = log();
  EXPECT_NE(written.find("Traffic Reader disconnected\n"), std::string::npos);
  EXPECT_NE(
      written.find("The TrafficReader  has stopped with an error: sys error 32: bind to stream socket failed "
                   "with error: 10048 Address already in use"),
      std::string::npos);
}

TEST_F(ReaderThreadTest, aStopBeforeTheFirstDatagramStillEndsTheThread) {
  stopReader(trafficReader);
  startReaderThread(trafficReader, port);
  EXPECT_TRUE(eventually([] { return threadCount == 0; }, 5s)) << "the stop flag is seen before the wait";
  resetFeed();
  EXPECT_FALSE(trafficReader.stopFlag) << "cleared for the next run";
}

class WatchdogTest : public ::testing::Test {
protected:
  void SetUp() override {
    resetFeed();
    display.rtLinkUp = true;
    display.trafficMark = FeedMark::running;
    display.weatherMark = FeedMark::running;
  }
  void TearDown() override { display.rtLinkUp = false; }
};

TEST_F(WatchdogTest, aReaderWithoutNewPacketsIsStaleUntilPacketsComeAgain) {
  qnhReader.packetCount = 3;
  trafficReader.packetCount = 100;
  feedWatchdog();
  EXPECT_EQ(display.weatherMark, FeedMark::running);
  trafficReader.packetCount = 140;
  feedWatchdog();
  EXPECT_EQ(display.weatherMark, FeedMark::stale);
  EXPECT_EQ(display.trafficMark, FeedMark::running);
  qnhReader.packetCount = 4;
  feedWatchdog();
  EXPECT_EQ(display.weatherMark, FeedMark::running) << "back with the next report";
  EXPECT_EQ(display.trafficMark, FeedMark::stale);
}

TEST_F(WatchdogTest, aResetTakesStaleMarksBackSoThatTheyCanRecover) {
  qnhReader.packetCount = 2;
  trafficReader.packetCount = 9;
  feedWatchdog();
  feedWatchdog();
  ASSERT_EQ(display.weatherMark, FeedMark::stale);
  ASSERT_EQ(display.trafficMark, FeedMark::stale);
  resetFeed(); // RealTraffic lost, then back
  EXPECT_EQ(display.weatherMark, FeedMark::running);
  EXPECT_EQ(display.trafficMark, FeedMark::running);
  qnhReader.packetCount = 1;
  trafficReader.packetCount = 3;
  feedWatchdog();
  EXPECT_EQ(display.trafficMark, FeedMark::running);
  feedWatchdog();
  EXPECT_EQ(display.trafficMark, FeedMark::stale) << "and the watchdog goes on from the fresh counts";
}

TEST_F(WatchdogTest, nothingIsMarkedWhileTheLinkIsDown) {
  display.rtLinkUp = false;
  feedWatchdog();
  feedWatchdog();
  EXPECT_EQ(display.weatherMark, FeedMark::running);
  EXPECT_EQ(display.trafficMark, FeedMark::running);
}

} // namespace
} // namespace ory
