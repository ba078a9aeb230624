#include "base/display.h"
#include "base/exceptions.h"
#include "base/log.h"
#include "base/parameters.h"
#include "base/run.h"
#include "engine/geometry.h"
#include "frame/main_loop.h"
#include "frame/startup.h"
#include "simlink/batches.h"
#include "simlink/session.h"
#include "support/scratch.h"

#include <gtest/gtest.h>

namespace ory {
namespace {

std::string lf_due(const DueJobs& jobs) {
  std::string due;
  for (const auto& [flag, name] : {std::pair{jobs.every5, "5 "},
                                   {jobs.every15, "15 "},
                                   {jobs.every16, "16 "},
                                   {jobs.every30, "30 "},
                                   {jobs.every59, "59 "},
                                   {jobs.every60, "60 "},
                                   {jobs.every61, "61 "},
                                   {jobs.every1200, "1200 "},
                                   {jobs.daily, "daily"}})
    due += flag ? name : "";
  return due;
}

// The first second is 1 and runs nothing periodic; at the end of the day the late jobs run on 0.
TEST(SecondBeat, eachJobComesDueOnItsSeconds) {
  const struct {
    std::int32_t before, s;
    const char* due;
  } rows[] = {{0, 1, ""},
              {1199, 1200, "5 15 16 30 60 1200 "}, // 1200 = 16 x 75
              {86399, 0, "5 15 16 30 59 60 61 1200 daily"},
              {0, 1, ""}};
  std::atomic<std::int32_t> count{0};
  for (const auto& row : rows) {
    count = row.before;
    const DueJobs jobs = advanceSecond(count);
    EXPECT_EQ(jobs.s, row.s) << row.before;
    EXPECT_EQ(count, row.s) << row.before;
    EXPECT_EQ(lf_due(jobs), row.due) << row.before;
  }
}

class MessageAgeTest : public test::InScratchFolder {};

TEST_F(MessageAgeTest, aMessageVanishesAfterTwentyFiveSecondsButAnErrorStaysAndHidesMessages) {
  openLog();
  messageClock = 0;
  showError("err");
  showMessage("hidden", true);
  clearError();
  showMessage("shown", true);
  EXPECT_EQ(messageStamp, 1) << "the stamp is at least 1";

  messageClock = 100;
  showMessage("hello", false);
  EXPECT_EQ(messageStamp, 100);
  for (messageClock = 101; messageClock < 125; ++messageClock) {
    ageMessage();
    std::lock_guard lock(windowTextLock);
    ASSERT_EQ(display.messageText, "hello") << "still there at " << messageClock;
  }
  ageMessage();
  {
    std::lock_guard lock(windowTextLock);
    EXPECT_TRUE(display.messageText.empty());
  }
  EXPECT_EQ(messageStamp, 0);

  showError("151: No P3D install path detected");
  showMessage("a message", true);
  messageClock = 1000;
  ageMessage();
  {
    std::lock_guard lock(windowTextLock);
    EXPECT_EQ(display.errorText, "151: No P3D install path detected");
    EXPECT_TRUE(display.messageText.empty()) << "a message during an error neither appears";
  }
  closeLog();
  const std::string log = test::readFile("Log.txt");
  EXPECT_EQ(log.find("hidden"), std::string::npos) << "nor reaches the log";
  EXPECT_NE(log.find("Error err\nshown\n"), std::string::npos);
}

TEST(AutoRange, rangeFollowsGroundHeightAndDistance) {
  AIRPORT_HEIGHT.set(18000);
  EXPECT_EQ(autoRangeFor(true, 0, 3), 8);
  EXPECT_EQ(autoRangeFor(false, 20000, 3), 40);
  EXPECT_EQ(autoRangeFor(false, 5000, 10000), 40) << "no park airport";
  EXPECT_EQ(autoRangeFor(false, 5000, 5.0), 8);
  EXPECT_EQ(autoRangeFor(false, 5000, 5.1), 8);
  EXPECT_EQ(autoRangeFor(false, 5000, 20.4), 23);
  EXPECT_EQ(autoRangeFor(false, 5000, 36.6), 40);
  EXPECT_EQ(autoRangeFor(false, 5000, 37.0), 40);
  applyRange(8);
  EXPECT_EQ(LATERAL_RANGE.value, 8);
  EXPECT_DOUBLE_EQ(rangeMetres, 8 * 1852.0);
  applyRange(1);
  EXPECT_EQ(LATERAL_RANGE.value, 2) << "the parameter is clamped";
  EXPECT_DOUBLE_EQ(rangeNm, 1.0) << "the reader's range is not";
}

TEST(Slots, dayAndHalfHourFromTheClockOrTheFeed) {
  EXPECT_EQ(slotOfTime(1'795'000'000), (Slot{3, 22})) << "Wed 11:06";
  EXPECT_EQ(slotOfTime(1'795'000'000 + 24 * 60), (Slot{3, 23})) << "11:30";
  EXPECT_EQ(slotOfTime(1'795'000'000 + 4 * 86400 + 12 * 3600 + 53 * 60), (Slot{7, 47})) << "Sun 23:59";
  EXPECT_EQ(slotText(Slot{7, 47}), "day=7 hh=47");

  lastFeedTime = 1'795'000'000.7;
  rtProfessional = true;
  EXPECT_EQ(currentSlot(), (Slot{3, 22})) << "a professional feed sets the clock";
  rtProfessional = false;
  EXPECT_EQ(currentSlot(), slotOfTime(std::time(nullptr))) << "else the system clock";
  updateNowSlot();
  EXPECT_EQ(nowSlot(), currentSlot());
}

TEST(StartUpRules, nullPositionsAndTheTimeSinceTheLastRun) {
  EXPECT_TRUE(isNullPosition(0, 0));
  EXPECT_TRUE(isNullPosition(0.0009, 0.05));
  EXPECT_FALSE(isNullPosition(0.001, 0.0));
  EXPECT_FALSE(isNullPosition(-0.0001, 0.0));
  EXPECT_EQ(sinceLastRunText(1), "1 second since last run");
  EXPECT_EQ(sinceLastRunText(-5), "-5 second since last run");
  EXPECT_EQ(sinceLastRunText(59), "59 seconds since last run");
  EXPECT_EQ(sinceLastRunText(61), "1 minute and 1 second since last run");
  EXPECT_EQ(sinceLastRunText(125), "2 minutes and 5 seconds since last run");
  EXPECT_EQ(sinceLastRunText(524160LL * 60), "");
}

TEST(StartUpRules, theSimulatorVersionComesFromThePath) {
  EXPECT_EQ(simulatorVersion("C:\\Program Files\\Lockheed Martin\\Prepar3D v5"), 5);
  EXPECT_EQ(simulatorVersion("D:\\P3D V6"), 6);
  P3D_VERSION.set(6);
  EXPECT_EQ(simulatorVersion("D:\\Sim"), 6);
  P3D_VERSION.set(5);
}

class DetectTest : public test::InScratchFolder {};

TEST_F(DetectTest, theRegistryDecidesWhichSimulatorIsMeant) {
  EXPECT_THROW(detectSimulator(false, true, true), UserErrorException);
  try {
    detectSimulator(true, false, false);
    FAIL() << "v4 alone counts as not detected";
  } catch (const UserErrorException& e) {
    EXPECT_EQ(e.number, 151);
  }
  lfolder[2].value = "D:\\AI";
  EXPECT_NO_THROW(detectSimulator(false, false, false)) << "manual folders let the scans work without a path";
  lfolder[2].value.clear();
}

class MainLoopTest : public test::InScratchFolder {
protected:
  void SetUp() override { openLog(); }
  void TearDown() override {
    closeLog();
    resetMainLoopState();
    simRunning = false;
  }
};

TEST_F(MainLoopTest, aPauseIsLoggedOnceAndTheNextSecondResumes) {
  simRunning = false;
  positionBatch.engineHalf.resize(3);
  positionBatch.simulatorHalf.resize(2);
  for (int pass = 0; pass < 150; ++pass)
    mainLoop();
  EXPECT_TRUE(flightPaused);
  EXPECT_TRUE(positionBatch.engineHalf.empty() && positionBatch.simulatorHalf.empty())
      << "no position of before the pause is sent";
  EXPECT_EQ(pauseCountdown, 50) << "a beat of one second without the simulator";

  simRunning = true;
  mainLoop();
  EXPECT_TRUE(flightPaused) << "no second has come yet";
  const std::int32_t clockBefore = messageClock;
  secondTick = true;
  mainLoop();
  EXPECT_FALSE(flightPaused);
  EXPECT_FALSE(secondTick) << "the second is consumed";
  EXPECT_EQ(secondCount, 1);
  EXPECT_EQ(messageClock, clockBefore + 1);
  mainLoop();
  EXPECT_EQ(secondCount, 1) << "seconds come only from the simulator";

  closeLog();
  const std::string log = test::readFile("Log.txt");
  const auto paused = log.find(" Flight not running\n");
  ASSERT_NE(paused, std::string::npos);
  EXPECT_EQ(log.find(" Flight not running\n", paused + 1), std::string::npos) << "logged once";
  EXPECT_NE(log.find(" Flight resumed\n"), std::string::npos);
}

} // namespace
} // namespace ory
