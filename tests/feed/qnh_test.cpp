#include "base/display.h"
#include "base/log.h"
#include "feed/feed.h"
#include "support/scratch.h"

#include <gtest/gtest.h>

#include <string>

namespace ory {
namespace {

class QnhTest : public test::InScratchFolder {
protected:
  void SetUp() override {
    openLog();
    resetFeed();
    display.weatherMark = FeedMark::running;
  }
  void TearDown() override { closeLog(); }

  void report(const std::string& rawText) {
    text = rawText;
    qnhReader.line = text;
    qnhReader.processData();
  }
  // Every place the value goes to.
  void expectQnh(std::int32_t hpa) {
    EXPECT_EQ(qnhReader.lastQnh, hpa);
    EXPECT_EQ(qnhForEngine, hpa);
    EXPECT_EQ(display.qnh, hpa);
    EXPECT_EQ(trafficReader.qnhShadow, hpa);
  }
  std::string log() {
    flushLog();
    return test::readFile("Log.txt");
  }

  std::string text;
};

TEST_F(QnhTest, numbersInHectopascalOrHundredthsOfAnInch) {
  report(R"({"ICAO":"EHAM","QNH":998,"METAR":"EHAM 301455Z 24012KT"})");
  expectQnh(998);
  report(R"({"QNH":2992})");
  expectQnh(1013);
  report(R"({"QNH":1080})");
  expectQnh(1080);
  report(R"({"QNH":1081})");
  expectQnh(1080);
  EXPECT_NE(log().find("? Strange QNH 366 found in {\"QNH\":1081}"), std::string::npos);
  report(R"({"QNH":929.6})");
  expectQnh(930); // rounded
  report(R"({"QNH":929})");
  expectQnh(930);
  report(R"({"QNH":-5})");
  expectQnh(930);
  report(R"({"QNH":18446744073709551615})");
  expectQnh(930);
}

TEST_F(QnhTest, textValuesAreCutAtTheFirstNonDigit) {
  report(R"({"QNH":"1002.8"})");
  expectQnh(1002);
  report(R"({"QNH":"hPa"})");
  expectQnh(1002);
  report(R"({"QNH":"99999999999999999999"})");
  expectQnh(1002);
  const std::string written = log();
  EXPECT_NE(written.find("QNH string invalid arg: hPa"), std::string::npos);
  EXPECT_NE(written.find("QNH string out of range: 99999999999999999999"), std::string::npos);
}

TEST_F(QnhTest, aMissingValueKeepsTheOldOneButAnOddOneGivesTheStandard) {
  report(R"({"QNH":1020})");
  report(R"({"ICAO":"EHAM"})");
  expectQnh(1020);
  report(R"({"QNH":null})");
  expectQnh(1020);
  report(R"({"QNH":[1001]})");
  expectQnh(1013);
  const std::string written = log();
  EXPECT_NE(written.find("no QNH {\"ICAO\":\"EHAM\"}"), std::string::npos);
  EXPECT_NE(written.find("no QNH {\"QNH\":[1001]}"), std::string::npos);
}

TEST_F(QnhTest, brokenReportsAreLoggedAndDropped) {
  report(R"({"QNH":1001})");
  for (const char* broken : {"", "{\"QNH\":10", "[1,2]", "\xff\xfe", "1013"})
    report(broken);
  expectQnh(1001);
  EXPECT_NE(log().find("Exception [json.exception.parse_error"), std::string::npos);
}

TEST_F(QnhTest, aChangeRefreshesAStaleWeatherMark) {
  report(R"({"QNH":1001})");
  display.weatherMark = FeedMark::stale;
  report(R"({"QNH":1001})");
  EXPECT_EQ(display.weatherMark, FeedMark::stale) << "the same value is no news";
  report(R"({"QNH":1013})");
  EXPECT_EQ(display.weatherMark, FeedMark::running);
  display.weatherMark = FeedMark::stale;
  report(R"({"QNH":1013})");
  EXPECT_EQ(display.weatherMark, FeedMark::running) << "1013 always refreshes";
}

} // namespace
} // namespace ory
