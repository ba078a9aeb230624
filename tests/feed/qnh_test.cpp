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

  std::string text;
};

// Rows run in order: a value the reader does not take leaves the one of the row before.
TEST_F(QnhTest, valuesInHectopascalInchesOrTextAndWhatIsKeptOtherwise) {
  const struct {
    const char* report;
    int qnh;
    const char* logged;
  } rows[] = {
      {R"({"ICAO":"EHAM","QNH":998,"METAR":"EHAM 301455Z 24012KT"})", 998, ""},
      {R"({"QNH":2992})", 1013, ""}, // hundredths of an inch
      {R"({"QNH":1080})", 1080, ""},
      {R"({"QNH":1081})", 1080, "? Strange QNH 366 found in {\"QNH\":1081}"},
      {R"({"QNH":929.6})", 930, ""}, // rounded
      {R"({"QNH":929})", 930, ""},
      {R"({"QNH":-5})", 930, ""},
      {R"({"QNH":18446744073709551615})", 930, ""},
      {R"({"QNH":"1002.8"})", 1002, ""}, // text is cut at the first non-digit
      {R"({"QNH":"hPa"})", 1002, "QNH string invalid arg: hPa"},
      {R"({"QNH":"99999999999999999999"})", 1002, "QNH string out of range: 99999999999999999999"},
      {R"({"QNH":1020})", 1020, ""},
      {R"({"ICAO":"EHAM"})", 1020, "no QNH {\"ICAO\":\"EHAM\"}"},
      {R"({"QNH":null})", 1020, ""},
      {R"({"QNH":[1001]})", 1013, "no QNH {\"QNH\":[1001]}"}, // an odd value gives the standard
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.report);
    report(row.report);
    expectQnh(row.qnh);
    if (*row.logged) {
      EXPECT_NE(test::logText().find(row.logged), std::string::npos);
    }
  }
}

TEST_F(QnhTest, brokenReportsAreLoggedAndDropped) {
  report(R"({"QNH":1001})");
  for (const char* broken : {"", "{\"QNH\":10", "[1,2]", "\xff\xfe", "1013"})
    report(broken);
  expectQnh(1001);
  EXPECT_NE(test::logText().find("Exception [json.exception.parse_error"), std::string::npos);
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
