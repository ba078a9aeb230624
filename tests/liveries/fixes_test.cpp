#include "base/exceptions.h"
#include "base/log.h"
#include "liveries/fixes.h"
#include "support/scratch.h"

#include <gtest/gtest.h>

namespace ory {
namespace {

class FixesTest : public test::InScratchFolder {
protected:
  void SetUp() override {
    openLog();
    aircraftTypes = {"B738", "A20N", "DH8D"};
    icaoAirlines = {"KLM", "GOV"};
  }
  void TearDown() override {
    closeLog();
    clearFixes();
    clearDbase();
  }
};

TEST_F(FixesTest, entriesAreCheckedAgainstTheDatabase) {
  test::writeBytes("input/fixes.xml", R"(<?xml version="1.0"?>
<fixes>
  <fix wrong="B737-800" correct="B738"/>
  <fix wrong="A320NEO" correct="A20N"/>
  <fix wrong="A320NEO" correct="B738"/>
  <fix wrong="Q400" correct="DHC8"/>
</fixes>
<PVT_fixes><fix wrong="PRIV"/><fix wrong="KLM"/><fix wrong="PRIV"/></PVT_fixes>
<GOV_fixes><fix wrong="GOV"/><fix wrong="MIL"/></GOV_fixes>)");
  EXPECT_TRUE(readFixes());
  EXPECT_EQ(modelFixes, (TextMap<std::string>{{"B737-800", "B738"}, {"A320NEO", "A20N"}})); // first one stays
  EXPECT_EQ(pvtFixes, TextOrderedSet{"PRIV"});
  EXPECT_EQ(govFixes, TextOrderedSet{"MIL"});
  EXPECT_TRUE(isValidAirline("KLM")); // a refused operator fix leaves the airline usable
  closeLog();
  const std::string log = test::readFile("Log.txt");
  for (const char* line :
       {"===> wrong part of fix: A320NEO, already exists, skipped\n",
        "===> wrong fix Q400->DHC8, the latter is not a valid model\n",
        "===> PVT fix KLM is an ICAO airline code? \n", "===> wrong: PRIV, already exists, skipped\n",
        "===> GOV fix GOV is an ICAO airline code? \n"})
    EXPECT_NE(log.find(line), std::string::npos) << line;
  EXPECT_NE(log.find("\"input/fixes.xml\" read"), std::string::npos);
}

TEST_F(FixesTest, missingSectionsLeaveTablesEmptyAndAMissingFileStopsTheStart) {
  test::writeBytes("input/fixes.xml", R"(<PVT_fixes><fix wrong="PRIV"/></PVT_fixes>)");
  EXPECT_FALSE(readFixes());
  EXPECT_TRUE(modelFixes.empty());
  EXPECT_EQ(pvtFixes.size(), 1u);

  std::filesystem::remove("input/fixes.xml");
  try {
    readFixes();
    ADD_FAILURE() << "no exception";
  } catch (const UserErrorException& e) {
    EXPECT_STREQ(e.what(), "3: input/fixes.xml (or sections of it) not found?");
  }
}

} // namespace
} // namespace ory
