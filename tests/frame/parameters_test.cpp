#include "base/log.h"
#include "base/parameters.h"
#include "base/version.h"
#include "frame/window.h"
#include "support/scratch.h"

#include <gtest/gtest.h>
#include <pugixml.hpp>

#include <set>
#include <sstream>

namespace ory {
namespace {

using test::readFile;
using test::writeBytes;

std::set<std::string> lf_namesInFile() {
  pugi::xml_document document;
  EXPECT_TRUE(document.load_file(parametersPath().c_str()));
  std::set<std::string> names;
  for (pugi::xml_node node : document.child("parameters").children("parameter"))
    names.insert(node.attribute("name").as_string());
  return names;
}

void lf_writeParameters(std::string_view entries) {
  writeBytes(parametersPath(),
             "<?xml version=\"1.0\"?>\n<parameters>" + std::string(entries) + "</parameters>\n");
}

std::string lf_entry(std::string_view name, std::string_view value) {
  return "<parameter name=\"" + std::string(name) + "\" value=\"" + std::string(value) + "\" />";
}

class ParametersTest : public test::InScratchFolder {
protected:
  void SetUp() override { openLog(); }
  void TearDown() override {
    closeLog();
    for (auto* folders : {&lfolder, &afolder})
      for (TextParameter& folder : *folders)
        folder.value.clear();
  }
};

TEST_F(ParametersTest, aFirstStartWritesEveryParameterButFoldersAndDerivedOnes) {
  loadParameters();
  std::set<std::string> expected;
  std::istringstream names(
      "RANDOM AEROWINX COLLISION_USER_AIR COLLISION_USER_GND COLLISION_LIVE_PARKED_GND SUPPRESS_STUB LOG "
      "ALWAYS_ON_TOP SCAN_LIVERIES LIG_AUTOMATIC LIG_PRIORITIZE SCAN_AIRPORTS AFG_AUTOMATIC LIGHT_AIRCRAFT "
      "HELICOPTERS HIGH_PERF_AIRCRAFT NAV_LIGHTS_WHILE_PARKED AUTO_RANGE LEARN_SOFT PARK_SOFT PARK_FAKE "
      "WEEK INITIAL_LOAD_ONLY GUID_CHANGES CUSTOM_PARKING_PERCENTAGE MAIN_WINDOW_X MAIN_WINDOW_Y "
      "LAST_EPOCH_TIME P3D_VERSION MATCHING_DEPTH LATERAL_RANGE MAX_FIT MAX_LIVE AIRPORT_RANGE "
      "AIRPORT_HEIGHT PROGRAM_VERSION PORT_NUMBER PROGRAM_INSTALL_PATH ARCHIVE_VERSION DBASE_VERSION "
      "AIG_VERSION DATA_CHECKED_AT_DATE BLOCK_CALLSIGN SIM_INSTALL_PATH");
  for (std::string name; names >> name;)
    expected.insert(name);
  EXPECT_EQ(lf_namesInFile(), expected);
  EXPECT_EQ(test::parameterInFile("PROGRAM_VERSION"), "8.8.0");
  EXPECT_EQ(test::parameterInFile("PORT_NUMBER"), "10747");
  EXPECT_EQ(test::parameterInFile("SCAN_LIVERIES"), "true");
  EXPECT_EQ(test::parameterInFile("LOG"), "true");
  EXPECT_EQ(test::parameterInFile("CUSTOM_PARKING_PERCENTAGE"), "-1");
  closeLog();
  EXPECT_NE(readFile("Log.txt").find("parameters.xml not found, default values taken:\nRANDOM=true\n"),
            std::string::npos);
}

TEST_F(ParametersTest, booleansReadByTheirFirstCharacter) {
  lf_writeParameters(lf_entry("PROGRAM_VERSION", "8.8.0") + lf_entry("RANDOM", "True") +
                     lf_entry("LOG", "yes") + lf_entry("WEEK", "1") + lf_entry("AEROWINX", "on") +
                     lf_entry("SCAN_LIVERIES", "false"));
  loadParameters();
  EXPECT_TRUE(RANDOM.value);
  EXPECT_TRUE(LOG.value);
  EXPECT_TRUE(WEEK.value);
  EXPECT_FALSE(AEROWINX.value);
  EXPECT_FALSE(SCAN_LIVERIES.value);
  EXPECT_TRUE(SCAN_AIRPORTS.value) << "a missing parameter takes its default";
  EXPECT_EQ(test::parameterInFile("SCAN_AIRPORTS"), "true") << "and is added to the file";
}

TEST_F(ParametersTest, integersAreClampedInMemoryWhileTheFileKeepsItsValue) {
  lf_writeParameters(lf_entry("PROGRAM_VERSION", "8.8.0") + lf_entry("MAIN_WINDOW_X", "40000") +
                     lf_entry("MAX_LIVE", "2") + lf_entry("LATERAL_RANGE", "500") +
                     lf_entry("MATCHING_DEPTH", "deep"));
  loadParameters();
  EXPECT_EQ(MAIN_WINDOW_X.value, 30000);
  EXPECT_EQ(MAX_LIVE.value, 6);
  EXPECT_EQ(LATERAL_RANGE.value, 100);
  EXPECT_DOUBLE_EQ(rangeNm, 100.0);
  EXPECT_DOUBLE_EQ(rangeMetres, 185200.0);
  EXPECT_EQ(MATCHING_DEPTH.value, 1) << "not a number reads as 0, then clamped";
  EXPECT_EQ(test::parameterInFile("MAIN_WINDOW_X"), "40000");
  storeInt(MAIN_WINDOW_X);
  EXPECT_EQ(test::parameterInFile("MAIN_WINDOW_X"), "30000");
}

TEST_F(ParametersTest, unknownParametersStayAndEmptyFoldersAreRemoved) {
  lf_writeParameters(lf_entry("PROGRAM_VERSION", "8.8.0") + lf_entry("FUTURE_OPTION", "42") +
                     lf_entry("lfolder3", "D:\\AI\\SimObjects") + lf_entry("afolder0", ""));
  loadParameters();
  storeBool(LOG);
  const auto names = lf_namesInFile();
  EXPECT_TRUE(names.contains("FUTURE_OPTION"));
  EXPECT_EQ(lfolder[3].value, "D:\\AI\\SimObjects");
  EXPECT_FALSE(names.contains("afolder0"));
  EXPECT_FALSE(names.contains("lfolder0")) << "a missing folder is not added";
  closeLog();
  EXPECT_NE(readFile("Log.txt").find("Parameter afolder0 removed"), std::string::npos);
}

TEST_F(ParametersTest, anUpgradeRemovesTheNamesOfOlderVersions) {
  lf_writeParameters(lf_entry("PROGRAM_VERSION", "8.7.12") + lf_entry("SECONDS_DELAY", "30") +
                     lf_entry("MAX_FIT_WEEK", "3") + lf_entry("LAST_EPOCH_TIME", "1700000000") +
                     lf_entry("DATA_CHECKED_AT_DATE", "abc") + lf_entry("FUTURE_OPTION", "1"));
  writeBytes("install_new_version.exe", "old installer");
  loadParameters();
  const auto names = lf_namesInFile();
  EXPECT_FALSE(names.contains("SECONDS_DELAY"));
  EXPECT_FALSE(names.contains("MAX_FIT_WEEK"));
  EXPECT_TRUE(names.contains("FUTURE_OPTION"));
  EXPECT_FALSE(std::filesystem::exists("install_new_version.exe"));
  EXPECT_EQ(test::parameterInFile("PROGRAM_VERSION"), "8.8.0");
  EXPECT_EQ(test::parameterInFile("LAST_EPOCH_TIME"), "0");
  EXPECT_TRUE(DATA_CHECKED_AT_DATE.value.empty());
  EXPECT_EQ(test::parameterInFile("DATA_CHECKED_AT_DATE"), "abc") << "emptied in memory only";
  closeLog();
  EXPECT_NE(readFile("Log.txt").find("This is a version update from 8.7.12 -> 8.8.0"), std::string::npos);
}

TEST_F(ParametersTest, onlyAnOlderVersionIsUpgraded) {
  lf_writeParameters(lf_entry("PROGRAM_VERSION", "9.0.0") + lf_entry("SECONDS_DELAY", "30"));
  loadParameters();
  EXPECT_EQ(test::parameterInFile("PROGRAM_VERSION"), "8.8.0") << "a newer file takes this version";
  EXPECT_TRUE(lf_namesInFile().contains("SECONDS_DELAY")) << "no upgrade steps from a newer version";

  lf_writeParameters(lf_entry("PROGRAM_VERSION", "8.8.0") + lf_entry("SECONDS_DELAY", "30") +
                     lf_entry("DATA_CHECKED_AT_DATE", "abc"));
  loadParameters();
  EXPECT_TRUE(lf_namesInFile().contains("SECONDS_DELAY")) << "nor from this version";
  EXPECT_EQ(DATA_CHECKED_AT_DATE.value, "abc");
}

TEST_F(ParametersTest, aCorruptFileIsKeptAsideAndReplacedByDefaults) {
  const std::string broken = "<parameters><parameter name=\"LOG\" value=\"false\"";
  writeBytes(parametersPath(), broken);
  loadParameters();
  EXPECT_TRUE(LOG.value);
  EXPECT_EQ(test::parameterInFile("LOG"), "true");
  std::filesystem::path kept = parametersPath();
  kept += ".unreadable";
  EXPECT_EQ(readFile(kept), broken) << "the user's file is not lost";
  closeLog();
  const std::string log = readFile("Log.txt");
  EXPECT_NE(log.find("===> " + parametersPath().string() + " can't be read ("), std::string::npos) << log;
  EXPECT_NE(log.find("not found, default values taken:"), std::string::npos);
}

TEST_F(ParametersTest, theWindowPositionIsReadWithoutMakingTheFileAndNeverKeptAtALimit) {
  readWindowPosition();
  EXPECT_FALSE(std::filesystem::exists(parametersPath()));
  EXPECT_EQ(MAIN_WINDOW_X.value, 400);

  lf_writeParameters(lf_entry("MAIN_WINDOW_X", "40000") + lf_entry("MAIN_WINDOW_Y", "-50"));
  readWindowPosition();
  EXPECT_EQ(MAIN_WINDOW_X.value, 400) << "40000 reads as 30000, a limit, and goes back to the default";
  EXPECT_EQ(test::parameterInFile("MAIN_WINDOW_X"), "400");
  EXPECT_EQ(MAIN_WINDOW_Y.value, -50);

  keepWindowPosition(-32000, 120); // a minimised window
  EXPECT_EQ(test::parameterInFile("MAIN_WINDOW_X"), "400");
  EXPECT_EQ(test::parameterInFile("MAIN_WINDOW_Y"), "120");
}

TEST_F(ParametersTest, storesAndRemovalsWorkOnTheFileAlone) {
  removeParameter("NOTHING_THERE");
  EXPECT_FALSE(std::filesystem::exists(parametersPath())) << "removing from no file creates none";
  MAIN_WINDOW_Y.set(55);
  storeInt(MAIN_WINDOW_Y);
  EXPECT_EQ(lf_namesInFile(), std::set<std::string>{"MAIN_WINDOW_Y"});
  MAIN_WINDOW_Y.set(0);
  EXPECT_TRUE(readIntParameter(MAIN_WINDOW_Y));
  EXPECT_EQ(MAIN_WINDOW_Y.value, 55);
  EXPECT_FALSE(readIntParameter(MAIN_WINDOW_X));
  removeParameter("MAIN_WINDOW_Y");
  EXPECT_TRUE(lf_namesInFile().empty());
}

} // namespace
} // namespace ory
