#include "base/log.h"
#include "support/scratch.h"

#include <gtest/gtest.h>

#include <regex>

namespace ory {
namespace {

using test::fileLines;
using test::readFile;

class LogTest : public test::InScratchFolder {
protected:
  void TearDown() override { closeLog(); }
};

TEST_F(LogTest, threeRunsKeepThreeGenerationsWithTheOldestInLog00) {
  for (const char* run : {"first", "second", "third"}) {
    openLog();
    logLine(run);
    closeLog();
  }
  EXPECT_EQ(fileLines("Log.txt").at(1), "third");
  EXPECT_EQ(fileLines("Log0.txt").at(1), "second");
  EXPECT_EQ(fileLines("Log00.txt").at(1), "first");

  openLog();
  closeLog();
  EXPECT_EQ(fileLines("Log00.txt").at(1), "second") << "the oldest generation is dropped";
}

TEST_F(LogTest, firstLineNamesTimeProgramVersionAndSimulator) {
  openLog();
  closeLog();
  const std::string first = fileLines("Log.txt").at(0);
  const std::regex form(
      R"(^\w{3} \w{3} [ \d]\d \d\d:\d\d:\d\d \d{4} \(utc\) Trovalyn_P3D version 8\.8\.0 for )"
      R"(Prepar3D v5/v6$)");
  EXPECT_TRUE(std::regex_match(first, form)) << first;
}

TEST_F(LogTest, linesReachTheDiskAtFlushAndWarningsAtOnceAndNothingAfterClose) {
  openLog();
  logLine("buffered");
  EXPECT_EQ(readFile("Log.txt").find("buffered"), std::string::npos);
  logWarning("careful");
  EXPECT_NE(readFile("Log.txt").find("buffered\n===> careful\n"), std::string::npos);
  logLine("later");
  flushLog();
  EXPECT_NE(readFile("Log.txt").find("later\n"), std::string::npos);
  closeLog();
  logLineFlushed("after close");
  EXPECT_EQ(readFile("Log.txt").find("after close"), std::string::npos);
}

TEST(TimeText, utcTextHasAsctimeFormAndTimeOfDayItsClock) {
  EXPECT_EQ(utcText(0), "Thu Jan  1 00:00:00 1970");
  EXPECT_EQ(utcText(1'795'000'000), "Wed Nov 18 11:06:40 2026");
  EXPECT_TRUE(std::regex_match(timeOfDay(), std::regex(R"(\d\d:\d\d:\d\d)"))) << timeOfDay();
}

} // namespace
} // namespace ory
