#include "base/log.h"
#include "liveries/scramble.h"
#include "support/scratch.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <fstream>
#include <set>
#include <stdexcept>

namespace ory {
namespace {

class ScrambleTest : public test::InScratchFolder {};

bool lf_allInRange(std::string_view text) {
  return isScrambleSafe(text, false);
}

TEST_F(ScrambleTest, regcodesComeBackAndLeaveNoPlainTextBehind) {
  for (const std::string_view plain : {"PH-BXA", "N899DN", "HB-JBH", "4X-ELC", "D-AIRN", "9H-VJG", "JA+801A",
                                       "A6-EUA", "N12345678901", "NOV222026", "-", "ZZZZZZZZZZZZ"}) {
    const std::string stored = scrambleRegcode(plain);
    EXPECT_EQ(stored.size(), plain.size());
    EXPECT_NE(stored, plain);
    EXPECT_EQ(unscrambleRegcode(stored), plain);
    for (std::size_t i = 0; i < plain.size(); ++i)
      EXPECT_EQ(stored[i] == '+', plain[i] == '+') << plain; // '+' alone stays
    EXPECT_TRUE(isScrambleSafe(stored, true)) << plain;
  }
  EXPECT_EQ(scrambleRegcode(""), "");
  EXPECT_EQ(unscrambleRegcode(""), "");
  // Beyond the shift table the positions start over rather than read past it.
  const std::string longText(40, 'K');
  EXPECT_EQ(unscrambleRegcode(scrambleRegcode(longText)), longText);
}

TEST_F(ScrambleTest, aLowerCaseRegcodeIsRefusedWithAWarningAndOddLengthsAreOnlyWarned) {
  openLog();
  EXPECT_THROW(
      {
        try {
          scrambleRegcode("PH-bxa");
        } catch (const std::runtime_error& e) {
          EXPECT_STREQ(e.what(), "regcode encrypt error");
          throw;
        }
      },
      std::runtime_error);
  EXPECT_EQ(unscrambleRegcode(scrambleRegcode("X")), "X");
  closeLog();
  const std::string log = test::readFile("Log.txt");
  EXPECT_NE(log.find("===> lower case in regcode encryp PH-bxa"), std::string::npos);
  EXPECT_NE(log.find("===> X\n"), std::string::npos);
}

TEST_F(ScrambleTest, everyAirlineCodeComesBackFromItsSixCharacters) {
  std::set<std::string> seen;
  for (char a = 'A'; a <= 'Z'; ++a)
    for (char b = 'A'; b <= 'Z'; ++b)
      for (char c = '0'; c <= 'Z'; ++c) {
        const std::string plain{a, b, c};
        const std::string stored = scrambleAirline(plain);
        ASSERT_EQ(stored.size(), 6u);
        ASSERT_TRUE(lf_allInRange(stored)) << plain;
        ASSERT_EQ(unscrambleAirline(stored), plain);
        seen.insert(stored);
      }
  EXPECT_EQ(seen.size(), 26u * 26u * 43u);
  EXPECT_EQ(scrambleAirline("KLM"), scrambleAirline("KLM")); // the same file twice is the same file
  EXPECT_THROW(scrambleAirline("KL"), std::invalid_argument);
  EXPECT_THROW(scrambleAirline("kLM"), std::invalid_argument);
}

TEST_F(ScrambleTest, airlineTokensOfOtherLengthsAreWarnedOrRefused) {
  openLog();
  EXPECT_EQ(unscrambleAirline(""), "");
  EXPECT_EQ(unscrambleAirline("KLM"), "KLM");
  try {
    unscrambleAirline("ABCDE");
    ADD_FAILURE() << "no exception";
  } catch (const std::runtime_error& e) {
    EXPECT_STREQ(e.what(), "decrypt airl \"ABCDE\" error");
  }
  EXPECT_EQ(unscrambleAirline("\x01\x7f\xff !~").size(), 3u); // outside the range: no failure
  closeLog();
  EXPECT_NE(test::readFile("Log.txt").find("===> Unencrypted airline KLM in decrypt airl?"),
            std::string::npos);
}

TEST_F(ScrambleTest, everyRealTypeCodeComesBack) {
  std::ifstream in(test::realData("reference/tar1090-db/icao_aircraft_types2.json"));
  const auto types = nlohmann::json::parse(in);
  ASSERT_GT(types.size(), 2000u);
  std::size_t changed = 0;
  for (const auto& [code, description] : types.items()) {
    const std::string stored = scrambleModel(code);
    ASSERT_EQ(stored.size(), code.size());
    ASSERT_TRUE(lf_allInRange(stored)) << code;
    ASSERT_EQ(unscrambleModel(stored), code);
    changed += stored != code;
  }
  EXPECT_EQ(changed, types.size());
}

TEST_F(ScrambleTest, oddModelTokensGiveShortCodesWithoutFailing) {
  EXPECT_EQ(unscrambleModel(""), "");
  EXPECT_EQ(unscrambleModel("X").size(), 1u);
  const std::string stored = scrambleModel("B7");
  EXPECT_EQ(unscrambleModel(stored + "QQQ"), "B7"); // five and more: the first two only
  EXPECT_EQ(unscrambleModel("\x01\xff~a").size(), 4u);
  EXPECT_THROW(scrambleModel("B7879"), std::invalid_argument);
  EXPECT_THROW(scrambleModel("b738"), std::invalid_argument);
}

} // namespace
} // namespace ory
