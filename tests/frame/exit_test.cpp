#include "base/exceptions.h"
#include "base/log.h"
#include "base/parameters.h"
#include "base/run.h"
#include "feed/inbox.h"
#include "frame/main_loop.h"
#include "frame/window.h"
#include "support/process.h"
#include "support/scratch.h"

#include <gtest/gtest.h>

#include <chrono>
#include <thread>

namespace ory {
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

class ExitTest : public test::InScratchFolder {
protected:
  void SetUp() override {
    openLog();
    loadParameters();
  }
  void TearDown() override { closeLog(); }

  // Waits for the exit thread's posted message; 0 when none came in time.
  static unsigned waitForPost(std::chrono::seconds limit) {
    return nextPostedMessage(static_cast<int>(std::chrono::milliseconds(limit).count()));
  }
};

TEST_F(ExitTest, aSecondRequestDuringAnExitKeepsTheFirstReason) {
  requestExit(ExitReason::userClosedSim, 0);
  requestExit(ExitReason::simWasClosed, 0);
  requestExit(ExitReason::restart, 30);
  EXPECT_EQ(exitReason, ExitReason::userClosedSim);
  EXPECT_EQ(waitForPost(15s), endMessage);
  closeLog();
  const std::string log = test::readFile("Log.txt");
  EXPECT_NE(log.find("Exiting: USER CLOSED SIM\n"), std::string::npos);
  EXPECT_NE(log.find("User closed Trovalyn_P3D\n"), std::string::npos);
  EXPECT_EQ(log.find("Exiting: SIM WAS CLOSED"), std::string::npos);
  EXPECT_TRUE(userClosed);
  EXPECT_FALSE(exiting) << "the exit has ended";
}

TEST_F(ExitTest, aHungThreadKeepsTheExitForAboutTenSecondsOnly) {
  threadCount += 1; // a thread that never counts itself out
  const auto start = Clock::now();
  requestExit(ExitReason::simWasClosed, 0);
  EXPECT_EQ(waitForPost(20s), endMessage);
  const auto waited = Clock::now() - start;
  EXPECT_GT(waited, 9s) << "the exit waits for running threads";
  EXPECT_LT(waited, 13s) << "but leaves a hung one behind";
  threadCount -= 1;
}

TEST_F(ExitTest, theRunThreadsAreStoppedByTheirTokens) {
  std::atomic<bool> ended{false};
  startRunThread(RunThread::mainLoop, [&ended](std::stop_token stop) {
    while (!stop.stop_requested())
      std::this_thread::sleep_for(5ms);
    ended = true;
  });
  requestExit(ExitReason::userClosedSim, 0);
  EXPECT_EQ(waitForPost(15s), endMessage);
  EXPECT_TRUE(ended);
  EXPECT_EQ(threadCount, 0);
}

TEST_F(ExitTest, aRestartResetsTheRunAndPostsTheStartAgainKeepingParameters) {
  simRunning = true;
  readerError = true;
  secondCount = 1234;
  secondTick = true;
  flushPending = true;
  BLOCK_CALLSIGN.value = "KLM123";
  storeText(BLOCK_CALLSIGN);
  showError("1001: RT error");
  SCAN_LIVERIES.value = true;
  SCAN_AIRPORTS.value = true;
  {
    std::lock_guard lock(feedLock);
    trafficInbox.emplace_back();
  }

  requestExit(ExitReason::restart, 1);
  EXPECT_EQ(waitForPost(15s), startMessage) << "a restart starts again in the same process";
  EXPECT_FALSE(simRunning);
  EXPECT_FALSE(readerError);
  EXPECT_FALSE(secondTick);
  EXPECT_FALSE(flushPending);
  EXPECT_EQ(secondCount, 0);
  EXPECT_EQ(exitReason, ExitReason::notYetSet);
  EXPECT_FALSE(exiting);
  EXPECT_EQ(BLOCK_CALLSIGN.value, "KLM123") << "a restart keeps the blocked callsign";
  EXPECT_FALSE(SCAN_LIVERIES.value);
  EXPECT_FALSE(SCAN_AIRPORTS.value);
  {
    std::lock_guard lock(feedLock);
    EXPECT_TRUE(trafficInbox.empty()) << "no record of the old run is played in the new one";
  }
  {
    std::lock_guard lock(windowTextLock);
    EXPECT_TRUE(display.errorText.empty()) << "the error line is cleared";
  }
  closeLog();
  const std::string log = test::readFile("Log.txt");
  EXPECT_NE(log.find("Exiting: RESTART\n"), std::string::npos);
  EXPECT_NE(log.find("Restarting after 1 seconds\n"), std::string::npos);
}

TEST_F(ExitTest, aRestartForTheInstallPathLeavesTheScanSwitchesAsTheyStood) {
  SCAN_LIVERIES.value = true;
  SCAN_AIRPORTS.value = true;
  requestExit(ExitReason::restartIpp, 0);
  EXPECT_EQ(waitForPost(15s), startMessage);
  EXPECT_TRUE(SCAN_LIVERIES.value);
  EXPECT_TRUE(SCAN_AIRPORTS.value);
}

TEST_F(ExitTest, anEndingExitClearsTheBlockedCallsignInTheFile) {
  BLOCK_CALLSIGN.value = "KLM123";
  storeText(BLOCK_CALLSIGN);
  requestExit(ExitReason::simWasClosed, 0);
  EXPECT_EQ(waitForPost(15s), endMessage);
  BLOCK_CALLSIGN.value = "stale";
  loadParameters();
  EXPECT_EQ(BLOCK_CALLSIGN.value, "");
}

TEST_F(ExitTest, theUserClosingDuringTheRestartCountdownEndsTheProgram) {
  requestExit(ExitReason::restart, 30);
  std::this_thread::sleep_for(1500ms);
  const auto start = Clock::now();
  requestExit(ExitReason::userClosedSim, 0);
  EXPECT_EQ(waitForPost(20s), endMessage);
  EXPECT_LT(Clock::now() - start, 5s);
  EXPECT_EQ(nextPostedMessage(1500), 0u) << "the abandoned restart posts nothing";
}

TEST_F(ExitTest, exceptionsAreSortedByType) {
  try {
    throw UserErrorException(41, "Trovalyn_P3D must be run from the Trovalyn_P3D folder!");
  } catch (...) {
    reportException("lf_startUpTrovalyn");
  }
  EXPECT_FALSE(exiting) << "a user error leaves the program alive";
  {
    std::lock_guard lock(windowTextLock);
    EXPECT_EQ(display.errorText, "41: Trovalyn_P3D must be run from the Trovalyn_P3D folder!");
  }
  try {
    throw 7;
  } catch (...) {
    reportException("mainLoop");
  }
  EXPECT_FALSE(exiting);
  {
    std::lock_guard lock(windowTextLock);
    EXPECT_EQ(display.errorText, "Unknown exception");
  }
  try {
    throw SysErrorException(40, "Failed to write file Log.txt");
  } catch (...) {
    reportException("mainLoop");
  }
  EXPECT_TRUE(exiting);
  EXPECT_EQ(exitReason, ExitReason::systemError);
  {
    std::lock_guard lock(windowTextLock);
    EXPECT_EQ(display.errorText, "mainLoop: sys error 40: Failed to write file Log.txt");
  }
  EXPECT_EQ(waitForPost(20s), endMessage);
}

// The start-up in this process, as the entry runs it on the start message, up to its wait for the simulator.
class RestartTest : public test::InScratchFolder {
protected:
  void SetUp() override {
    test::installPreparedData(scratch.path());
    test::presetEarlierRun(scratch.path(), "C:\\P3D v5");
    openLog();
  }
  void TearDown() override {
    // A failed step leaves the start-up running: it ends here rather than under the process's exit.
    if (threadCount > 0) {
      requestExit(ExitReason::userClosedSim, 0);
      test::eventually([] { return threadCount == 0; }, 30s);
    }
    closeLog();
  }

  static std::size_t count(const std::string& text, std::string_view part) {
    std::size_t found = 0;
    for (auto at = text.find(part); at != std::string::npos; at = text.find(part, at + 1))
      ++found;
    return found;
  }
  static bool logReaches(std::string_view line, std::size_t times) {
    return test::eventually(
        [&] {
          flushLog();
          return count(test::readFile("Log.txt"), line) >= times;
        },
        20s);
  }
};

TEST_F(RestartTest, aRestartStartsAgainInTheSameProcessWithoutReadingTheAircraftDataAgain) {
  onStartMessage();
  ASSERT_TRUE(logReaches("Waiting for Prepar3Dv5 ...\n", 1)) << test::readFile("Log.txt");
  requestExit(ExitReason::restart, 0);
  ASSERT_EQ(nextPostedMessage(15000), startMessage);
  onStartMessage();
  ASSERT_TRUE(logReaches("Waiting for Prepar3Dv5 ...\n", 2)) << test::readFile("Log.txt");
  requestExit(ExitReason::userClosedSim, 0);
  ASSERT_EQ(nextPostedMessage(15000), endMessage);
  EXPECT_EQ(threadCount, 0) << "the start-up and the simulator thread have ended";
  closeLog();

  const std::string log = test::readFile("Log.txt");
  const auto restart = log.find("Exiting: RESTART\n");
  ASSERT_NE(restart, std::string::npos);
  EXPECT_NE(log.find("parameters from \"", restart), std::string::npos)
      << "parameters are read at every start";
  EXPECT_EQ(count(log, " dbase records from \"input/dbase.xml\" read\n"), 1u);
  EXPECT_EQ(count(log, "\"input/fixes.xml\" read\n"), 1u);
  EXPECT_NE(log.find("Exiting: USER CLOSED SIM\n", restart), std::string::npos);
}

} // namespace
} // namespace ory
