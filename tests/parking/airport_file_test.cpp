#include "base/exceptions.h"
#include "base/log.h"
#include "base/parameters.h"
#include "liveries_world.h"
#include "parking/airport_file.h"
#include "support/scratch.h"

#include <fmt/format.h>
#include <gtest/gtest.h>
#include <pugixml.hpp>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <iostream>
#include <signal.h>
#include <sys/wait.h>
#include <thread>

namespace ory {
namespace {

namespace fs = std::filesystem;
using test::readFile;
using test::writeBytes;

const fs::path archivedPath = "airports/archive/stock/EHAM.xml";
const fs::path learnedPath = "airports/learned/stock/EHAM.xml";

constexpr const char* archivedText = R"(<?xml version="1.0"?>
<meta><info name="author" value="Trovalyn_P3D"/></meta>
<parameters>
  <parameter name="airport_name" value="Amsterdam Schiphol"/>
  <parameter name="publisher" value="stock"/>
  <parameter name="altitude" value="-11"/>
  <parameter name="num_parkpos" value="3"/>
  <parameter name="Qf_real" value="0"/>
  <parameter name="Qf_soft" value="12"/>
  <parameter name="RT_traffic_week" value="2614"/>
</parameters>
<parkpositions>
  <parkpos id="D4" latitude="52.309000" longitude="4.760000" heading="90.0" radius="30.0" cargo="false" ramp="false">
    <opt reg="PH-BXA" day="1" hh="12,13" cs="KLM123:KLM124"/>
    <opt reg="PH-TOW" airl="KLM" type="B738" day="1" hh="14" cs="TOW KLM"/>
    <opt reg="N12345" day="2" hh="12,48" cs="DAL1:DAL2:DAL3"/>
    <opt reg="G-ABCD" airl="BAW" type="A320" soft="true" day="3" hh="" cs="BAW1"/>
  </parkpos>
  <parkpos id="D6" latitude="52.309100" longitude="4.760100" heading="270.0" radius="30.0" cargo="false" ramp="false"/>
  <parkpos id="H1" latitude="52.320000" longitude="4.780000" heading="0.0" radius="10.0" heli="true" ramp="true"/>
</parkpositions>
)";

// The parking parameters as a learned file writes them with their defaults and AUTO_RANGE on.
constexpr const char* defaultParameters = R"(	<parameter name="LATERAL_RANGE" value="40" />
	<parameter name="AUTO_RANGE" value="true" />
	<parameter name="WEEK" value="false" />
	<parameter name="PARK_FAKE" value="false" />
	<parameter name="PARK_SOFT" value="true" />
	<parameter name="parking_percentage" value="30" />
	<parameter name="INITIAL_LOAD_ONLY" value="false" />
	<parameter name="MAX_FIT" value="47" />
	<parameter name="LEARN_SOFT" value="true" />
)";

void lf_resetParkingParameters() {
  for (BoolParameter* flag : {&AUTO_RANGE, &WEEK, &PARK_FAKE, &PARK_SOFT, &INITIAL_LOAD_ONLY, &LEARN_SOFT})
    flag->value = flag->defaultValue;
  for (IntParameter* number :
       {&LATERAL_RANGE, &parking_percentage, &MAX_FIT, &MAX_LIVE, &CUSTOM_PARKING_PERCENTAGE})
    number->value = number->defaultValue;
  manualLateralRange = 40;
}

const Stand& lf_stand(const std::vector<Stand>& stands, std::string_view id) {
  const auto found = std::find_if(stands.begin(), stands.end(), [&](const Stand& s) { return s.id == id; });
  if (found == stands.end()) throw std::runtime_error(fmt::format("no stand {}", id));
  return *found;
}

class AirportFileTest : public test::InScratchFolder {
protected:
  void SetUp() override {
    openLog();
    test::installDatabase(
        {.large = {"B738"},
         .rotorcraft = {"EC35"},
         .airlines = {"KLM"},
         .airframes = {{"PH-BXA", "KLM", "B738", "", false}, {"N12345", "DAL", "B738", "EDV", false}}});
    lf_resetParkingParameters();
    resetStands();
    parkAirportCode = "EHAM";
  }
  void TearDown() override {
    closeLog();
    test::clearDatabase();
    resetStands();
    parkAirportCode.clear();
    lf_resetParkingParameters();
  }
  // Reads the archived file with what lies on top, as the park airport would.
  std::string open() {
    const std::string result = gf_readApf(archivedPath, parkAirportName, stands, qualityFactors);
    return result;
  }
};

// ---- Finding files
// ---------------------------------------------------------------------------------------------

TEST_F(AirportFileTest, findAirportFileTakesTheFirstOfFivePlaces) {
  EXPECT_EQ(findAirportFile("EHAM"), fs::path());
  EXPECT_FALSE(airportHasFile("EHAM"));
  writeBytes(archivedPath, archivedText);
  EXPECT_EQ(findAirportFile("EHAM"), archivedPath);
  writeBytes("airports/my_ORBX/EHAM.xml", "x");
  EXPECT_EQ(findAirportFile("EHAM"), fs::path("airports/my_ORBX/EHAM.xml"));
  writeBytes("airports/archive/ORBX/EHAM.xml", "x");
  writeBytes("airports/my_ORBX/EHAM.txt", "airports/archive/ORBX/EHAM.xml\n");
  EXPECT_EQ(findAirportFile("EHAM"), fs::path("airports/archive/ORBX/EHAM.xml")) << "a link beats a file";
  writeBytes("airports/my_thirdparty/EHAM.txt", "airports/archive/thirdparty/Gone/EHAM.xml\n");
  EXPECT_EQ(findAirportFile("EHAM"), fs::path("airports/archive/ORBX/EHAM.xml"))
      << "a dangling link is passed";
  EXPECT_TRUE(airportHasFile("EHAM"));
  writeBytes("airports/my_thirdparty/EHAM.xml", "x");
  EXPECT_EQ(findAirportFile("EHAM"), fs::path("airports/my_thirdparty/EHAM.xml"));

  writeBytes("airports/my_ORBX/LEAB.txt", "airports/archive/ORBX/LEAB.xml\n");
  EXPECT_TRUE(airportHasFile("LEAB")) << "for the choice of airports a link counts as it is";
  EXPECT_EQ(findAirportFile("LEAB"), fs::path());
}

TEST_F(AirportFileTest, learnedPathsMirrorTheirFilesAndThirdPartyOnesTheirPublisher) {
  EXPECT_EQ(learnedPathFor("airports/archive/ORBX/EGLC.xml"), fs::path("airports/learned/ORBX/EGLC.xml"));
  EXPECT_EQ(learnedPathFor("airports/archive/thirdparty/FlyTampa/EHAM.xml"),
            fs::path("airports/learned/thirdparty/FlyTampa/EHAM.xml"));
  EXPECT_EQ(learnedPathFor("airports/my_ORBX/YBBN.xml"), fs::path("airports/learned/ORBX/YBBN.xml"));
  writeBytes("airports/my_thirdparty/LEAB.xml",
             R"(<parameters><parameter name="publisher" value="ARV187"/></parameters>)");
  EXPECT_EQ(learnedPathFor("airports/my_thirdparty/LEAB.xml"),
            fs::path("airports/learned/thirdparty/ARV187/LEAB.xml"));
  EXPECT_EQ(learnedPathFor("elsewhere/LEAB.xml"), fs::path("elsewhere/LEAB.xml"));
}

// ---- Reading
// ----------------------------------------------------------------------------------------------------

TEST_F(AirportFileTest, anArchivedFileGivesItsStandsOptionsOverlapsAndValues) {
  writeBytes(archivedPath, archivedText);
  ASSERT_EQ(open(), "");
  EXPECT_EQ(parkAirportName, "Amsterdam Schiphol");
  EXPECT_EQ(parkPublisher, "stock");
  EXPECT_EQ(parkAltitudeFeet, -11);
  EXPECT_EQ(qualityFactors, (QualityFactors{0, 12})) << "without a learned file the archive's factors hold";
  ASSERT_EQ(stands.size(), 3u);
  for (std::uint32_t i = 0; i < 3; ++i)
    EXPECT_EQ(stands[i].standId, i + 1);

  const Stand& d4 = stands[0];
  EXPECT_NEAR(d4.radius, 30.0 / 1852, 1e-12);
  EXPECT_NEAR(d4.heading, twoPi / 4, 1e-12);
  ASSERT_EQ(d4.options.size(), 3u) << "the towed movement is no statistic";
  EXPECT_EQ(d4.options[0].airline, "KLM");
  EXPECT_EQ(d4.options[0].type, "B738");
  EXPECT_EQ(d4.options[0].callsignIn, "KLM123");
  EXPECT_EQ(d4.options[0].callsignOut, "KLM124");
  EXPECT_EQ(d4.options[0].halfHours, HalfHours((1ull << 12) | (1ull << 13)));
  EXPECT_EQ(d4.options[1].optionId, 2) << "numbers run on past the skipped option";
  EXPECT_EQ(d4.options[1].airline, "EDV") << "the operator replaces the owner";
  EXPECT_EQ(d4.options[1].callsignIn, "DAL1");
  EXPECT_EQ(d4.options[1].callsignOut, "") << "a second colon leaves the couple unknown";
  EXPECT_EQ(d4.options[1].halfHours, HalfHours(1ull << 12)) << "bits before the bad number stand";
  EXPECT_EQ(d4.options[2].airline, "BAW") << "unknown registration: the file's airline and type";
  EXPECT_TRUE(d4.options[2].soft);
  EXPECT_TRUE(d4.options[2].halfHours.none());
  EXPECT_FALSE(d4.options[2].learned);

  EXPECT_EQ(stands[0].neighbours, std::vector<std::uint32_t>{2});
  EXPECT_EQ(stands[1].neighbours, std::vector<std::uint32_t>{1});
  EXPECT_TRUE(stands[2].neighbours.empty());
  EXPECT_TRUE(stands[2].heli && stands[2].ramp);

  EXPECT_EQ(parking_percentage.value, 30);
  EXPECT_TRUE(parkingSessionOpen);
  const std::string text = test::logText();
  EXPECT_NE(text.find("exception half hour 48 is not in 0 to 47 in lf_hours2bitset"), std::string::npos);
  EXPECT_NE(text.find("Airport file read from \"airports/archive/stock/EHAM.xml\" for Amsterdam Schiphol\n"
                      "publisher               : stock\n"
                      "altitude                : -11 ft\n"
                      "num_parkpos             : 3\n"
                      "quality factor          :  0/12\n"
                      "RT traffic week         : 2614\n"),
            std::string::npos)
      << text;
}

TEST_F(AirportFileTest, brokenFilesGiveTheirMessages) {
  EXPECT_EQ(open().find("airports/archive/stock/EHAM.xml found, but could not be loaded: "), 0u);
  writeBytes(archivedPath,
             "<parameters><parameter name=\"altitude\" value=\"3\"/></parameters><parkpositions>");
  EXPECT_EQ(open().find("airports/archive/stock/EHAM.xml found, but could not be loaded: "), 0u);
  writeBytes(archivedPath, R"(<parameters><parameter name="altitude" value="3"/></parameters>)");
  EXPECT_EQ(open(), "no stands found");
  writeBytes(archivedPath, R"(<parameters/><parkpositions><parkpos id="A1"/></parkpositions>)");
  EXPECT_THROW(
      {
        try {
          open();
        } catch (const UserErrorException& e) {
          EXPECT_STREQ(e.what(), "65: Parameter altitude not found");
          throw;
        }
      },
      UserErrorException);
  writeBytes(archivedPath, R"(<parameters><parameter name="altitude" value="3"/></parameters>
<parkpositions><parkpos id="A1"/><parkpos id="A2"/><parkpos id="A1"/></parkpositions>)");
  try {
    open();
    ADD_FAILURE() << "a doubled stand id must stop the program";
  } catch (const UserErrorException& e) {
    EXPECT_STREQ(e.what(), "94: Parking position A1 appears more than once?");
  }
  parkAirportCode.clear();
  EXPECT_EQ(open(), "gf_readApf, no park airport set");
}

TEST_F(AirportFileTest, aCustomParkingPercentageOverrulesTheDefault) {
  writeBytes(archivedPath, archivedText);
  CUSTOM_PARKING_PERCENTAGE.value = 55;
  ASSERT_EQ(open(), "");
  EXPECT_EQ(parking_percentage.value, 55);
  EXPECT_TRUE(test::logHas(
      "parking percentage overruled by CUSTOM_PARKING_PERCENTAGE\nparking_percentage      : 55%\n"));
}

// ---- Learned files
// -----------------------------------------------------------------------------------------------

TEST_F(AirportFileTest, aLearnedFileIsMergedOnTopAndSetsTheParkingParameters) {
  writeBytes(archivedPath, archivedText);
  writeBytes(learnedPath, R"(<parameters>
  <parameter name="airport_name" value="Schiphol"/>
  <parameter name="LATERAL_RANGE" value="25"/>
  <parameter name="AUTO_RANGE" value="false"/>
  <parameter name="WEEK" value="true"/>
  <parameter name="parking_percentage" value="40"/>
  <parameter name="MAX_FIT_WEEK" value="20"/>
  <parameter name="MAX_LIVE" value="500"/>
  <parameter name="LEARN_SOFT" value="no"/>
</parameters>
<parkpositions>
  <parkpos id="D4" radius_change="true" radius="42.0">
    <opt reg="PH-BXA" day="1" hh="13,30"/>
    <opt reg="PH-BXA" day="1" hh="30,31" cs="TOW KLM"/>
    <opt reg="PH-BXA" soft="true" day="1" hh="12"/>
  </parkpos>
  <parkpos id="D6" cargo_change="true" cargo="true"/>
  <parkpos id="M1" manual="true" latitude="52.31" longitude="4.77" heading="45.0" radius="20.0" cargo="false" ramp="true">
    <opt reg="G-XYZW" airl="BAW" type="A320" day="2" hh="20"/>
  </parkpos>
  <parkpos id="M2" manual="true" latitude="0.0" longitude="0.0" radius="20"/>
  <parkpos id="M3" manual="true" latitude="52.3" longitude="4.7" radius="0"/>
  <parkpos id="D6" manual="true" latitude="52.3" longitude="4.7" radius="10"/>
  <parkpos id="Z9"/>
  <parkpos id="D4"><opt reg="PH-BXA" day="2" hh="1"/></parkpos>
</parkpositions>)");
  ASSERT_EQ(open(), "");
  ASSERT_EQ(stands.size(), 4u);
  const Stand& d4 = lf_stand(stands, "D4");
  EXPECT_NEAR(d4.radius, 42.0 / 1852, 1e-12);
  EXPECT_TRUE(d4.radiusChanged);
  ASSERT_EQ(d4.options.size(), 6u)
      << "3 archived; a common bit drops one; towing and soft count; a second entry merges";
  EXPECT_EQ(d4.options[3].optionId, 4);
  EXPECT_EQ(d4.options[3].callsignIn, "TOW KLM");
  EXPECT_TRUE(d4.options[4].soft && d4.options[4].learned);
  EXPECT_EQ(d4.options[5].day, 2);
  EXPECT_TRUE(lf_stand(stands, "D6").cargo && lf_stand(stands, "D6").cargoChanged);
  const Stand& m1 = lf_stand(stands, "M1");
  EXPECT_TRUE(m1.manual && m1.ramp && m1.options.at(0).learned);
  EXPECT_EQ(m1.standId, 4u);

  EXPECT_EQ(LATERAL_RANGE.value, 25) << "with AUTO_RANGE off the file's range is the manual one";
  EXPECT_EQ(manualLateralRange, 25);
  EXPECT_TRUE(WEEK.value);
  EXPECT_EQ(parking_percentage.value, 40);
  EXPECT_EQ(MAX_FIT.value, 20);
  EXPECT_FLOAT_EQ(MAX_FIT_FL.value, 10.5f);
  EXPECT_EQ(MAX_LIVE.value, 300) << "clamped";
  EXPECT_FALSE(LEARN_SOFT.value);
  EXPECT_EQ(qualityFactors, computeQualityFactors(stands));
  const std::string text = test::logText();
  for (const char* line :
       {"Read from learned airport file: \"airports/learned/stock/EHAM.xml\"",
        "Warning: learned file airport name: \"Schiphol\" differs from archived file airport name: "
        "\"Amsterdam Schiphol\"",
        "manually created standid M2 misses correct attributes in airports/learned/stock/EHAM.xml",
        "manually created standid M3 misses correct attributes",
        "manually created standid D6 already exists in airports/learned/stock/EHAM.xml",
        "learned stand Z9 in airports/learned/stock/EHAM.xml not found?",
        "MAX_FIT                 : 20 (max number "
        "of half hours, is 10.5 hrs decimal)"})
    EXPECT_NE(text.find(line), std::string::npos) << line;
}

TEST_F(AirportFileTest, theAutomaticRangeOfALearnedFileKeepsTheManualRangeToGoBackTo) {
  writeBytes(archivedPath, archivedText);
  writeBytes(learnedPath, R"(<parameters><parameter name="LATERAL_RANGE" value="33"/>
<parameter name="AUTO_RANGE" value="true"/></parameters>)");
  AUTO_RANGE.value = false;
  ASSERT_EQ(open(), "");
  EXPECT_TRUE(AUTO_RANGE.value);
  EXPECT_EQ(manualLateralRange, 33) << "the range when the automatic one took over";

  resetStands();
  LATERAL_RANGE.value = 70;
  writeBytes(learnedPath, R"(<parameters><parameter name="AUTO_RANGE" value="false"/></parameters>)");
  ASSERT_EQ(open(), "");
  EXPECT_FALSE(AUTO_RANGE.value);
  EXPECT_EQ(LATERAL_RANGE.value, 33) << "the kept range returns";
}

TEST_F(AirportFileTest, aHandmadeFileReplacesAllStandsWhateverItsValue) {
  writeBytes(archivedPath, archivedText);
  writeBytes(learnedPath, R"(<parameters><parameter name="handmade" value="false"/>
<parameter name="altitude" value="-12"/></parameters>
<parkpositions><parkpos id="X1" latitude="52.3" longitude="4.7" heading="10" radius="20"/></parkpositions>)");
  ASSERT_EQ(open(), "");
  EXPECT_TRUE(handmadeFile);
  EXPECT_EQ(parkAltitudeFeet, -12);
  ASSERT_EQ(stands.size(), 1u);
  EXPECT_EQ(stands[0].id, "X1");
  EXPECT_TRUE(test::logHas("A handmade airport file overruled the archived file!\nAirport file read from "
                           "\"airports/learned/stock/EHAM.xml\""));
}

TEST_F(AirportFileTest, aBrokenLearnedFileIsKeptAsideAndTheArchiveServes) {
  writeBytes(archivedPath, archivedText);
  writeBytes(learnedPath, "<parkpositions><parkpos id=");
  ASSERT_EQ(open(), "");
  EXPECT_EQ(stands.size(), 3u);
  EXPECT_EQ(readFile("airports/learned/stock/EHAM0.xml"), "<parkpositions><parkpos id=");
  EXPECT_TRUE(
      test::logHas("airports/learned/stock/EHAM.xml found, but could not be loaded, saved as *.0.xml: "));
}

// What a save writes after the meta block; the learned files below are in that form already.
std::string lf_afterMeta(const fs::path& path) {
  const std::string text = readFile(path);
  const auto start = text.find("<parameters>");
  return start == std::string::npos ? text : text.substr(start);
}

TEST_F(AirportFileTest, learnedFilesAreWrittenBackAsTheyWereRead) {
  const std::string difference = std::string(R"(<parameters>
	<parameter name="airport_name" value="Amsterdam Schiphol" />
	<parameter name="publisher" value="stock" />
	<parameter name="num_parkpos" value="3" />
)") + defaultParameters + R"(</parameters>
<parkpositions>
	<parkpos id="D4" radius_change="true" radius="42.0">
		<opt reg="PH-BXA" day="1" hh="30" cs="KLM9" />
	</parkpos>
	<parkpos id="D6" cargo_change="true" cargo="true" />
	<parkpos id="M1" latitude="52.310000" longitude="4.770000" heading="45.0" radius="20.0" cargo="false" ramp="true" manual="true">
		<opt reg="G-ABCD" airl="BAW" type="A320" soft="true" day="2" hh="20,21" cs="BAW1:BAW2" />
	</parkpos>
</parkpositions>
)";
  const std::string handmade = std::string(R"(<parameters>
	<parameter name="airport_name" value="Amsterdam Schiphol" />
	<parameter name="publisher" value="stock" />
	<parameter name="handmade" value="true" />
	<parameter name="altitude" value="-11" />
	<parameter name="num_parkpos" value="2" />
	<parameter name="Qf_real" value="32" />
	<parameter name="Qf_soft" value="32" />
)") + defaultParameters + R"(</parameters>
<parkpositions>
	<parkpos id="D4" latitude="52.309000" longitude="4.760000" heading="90.0" radius="20.0" cargo="false" ramp="false">
		<opt reg="PH-BXA" day="1" hh="30" />
	</parkpos>
	<parkpos id="H9" latitude="52.320000" longitude="4.780000" heading="0.0" radius="20.0" heli="true" ramp="true">
		<opt reg="G-ABCD" airl="BAW" type="A320" soft="true" day="2" hh="20,21" cs="BAW1" />
	</parkpos>
</parkpositions>
)";
  const std::size_t unlisted = unlistedAircraft().size();
  for (const std::string& learned : {difference, handmade}) {
    writeBytes(archivedPath, archivedText);
    writeBytes(learnedPath, "<?xml version=\"1.0\"?>\n" + learned);
    ASSERT_EQ(open(), "");
    updateCount = 1;
    closeParkAirport();
    EXPECT_EQ(lf_afterMeta(learnedPath), learned);
    EXPECT_FALSE(parkingSessionOpen);
    resetStands();
  }
  EXPECT_EQ(unlistedAircraft().size(), unlisted) << "a stock airport lists nothing";
  EXPECT_TRUE(test::logHas(" handmade \"airports/learned/stock/EHAM.xml\" saved with 1 update "));
}

TEST_F(AirportFileTest, aFailedSaveOrAFullDiskLeavesTheOldLearnedFileAsItWas) {
  writeBytes(archivedPath, archivedText);
  const std::string old =
      "<?xml version=\"1.0\"?>\n<parkpositions><parkpos id=\"D4\"><opt reg=\"PH-BXA\" day=\"5\" "
      "hh=\"3\"/></parkpos></parkpositions>";
  writeBytes(learnedPath, old);
  ASSERT_EQ(open(), "");
  const fs::path beside = "airports/learned/stock/EHAM.xml.saving";
  fs::create_directories(beside / "blocked"); // the writer's place beside is taken
  updateCount = 3;
  saveLearnedFile();
  EXPECT_EQ(readFile(learnedPath), old);
  EXPECT_TRUE(test::logHas(" saving \"airports/learned/stock/EHAM.xml\" did not succeed"));
  EXPECT_EQ(updateCount, 0);

  fs::remove_all(beside);
  fs::create_symlink("/dev/full", beside); // every write there fails as on a full disk
  updateCount = 1;
  saveLearnedFile();
  EXPECT_EQ(readFile(learnedPath), old);
  EXPECT_FALSE(fs::exists(fs::symlink_status(beside))) << "nothing is left beside";

  updateCount = 1;
  saveLearnedFile();
  EXPECT_NE(readFile(learnedPath).find("<opt reg=\"PH-BXA\" day=\"5\" hh=\"3\" />"), std::string::npos);
  EXPECT_TRUE(test::logHas(" \"airports/learned/stock/EHAM.xml\" saved with 1 update "));
}

// A program killed at any moment of its save leaves the old learned file or the new one, whole: the save
// loops in a child process that is killed after a little longer each round.
TEST_F(AirportFileTest, aSaveKilledAtAnyMomentLeavesTheOldOrTheNewFileWhole) {
  writeBytes(archivedPath, archivedText);
  const std::string old = readFile(archivedPath);
  writeBytes(learnedPath, old);
  ASSERT_EQ(open(), "");
  for (Stand& stand : stands)
    for (int i = 0; i < 2000; ++i) { // a learned file of some hundred kilobytes
      StandOption& option = stand.options.emplace_back();
      option.regcode = fmt::format("PH-{:04}", i);
      option.callsignIn = fmt::format("KLM{}", i);
      option.learned = true;
      option.halfHours.set(i % 48);
    }
  int oldSeen = 0;
  int newSeen = 0;
  for (int round = 0; round < 30; ++round) {
    const pid_t child = fork();
    ASSERT_NE(child, -1);
    if (child == 0) {
      for (;;) {
        updateCount = 1;
        saveLearnedFile();
      }
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(1 + 5 * round));
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
    const std::string text = readFile(learnedPath);
    pugi::xml_document saved;
    ASSERT_TRUE(saved.load_string(text.c_str())) << "round " << round;
    const bool isNew = text.find("PH-1999") != std::string::npos;
    ASSERT_TRUE(isNew || text == old) << "round " << round;
    ++(isNew ? newSeen : oldSeen);
  }
  EXPECT_GT(newSeen, 0) << "the later rounds saved";
  std::cout << fmt::format("killed saves: {} left the old file, {} the new\n", oldSeen, newSeen);
}

TEST_F(AirportFileTest, aThirdPartyAirportLearnsIntoItsPublishersFolder) {
  const fs::path generated = "airports/my_thirdparty/LEAB.xml";
  writeBytes(generated, R"(<parameters><parameter name="publisher" value="ARV187"/>
<parameter name="altitude" value="2300"/></parameters>
<parkpositions><parkpos id="r4" latitude="38.9" longitude="-1.8" heading="10" radius="15"/></parkpositions>)");
  parkAirportCode = "LEAB";
  ASSERT_EQ(gf_readApf(generated, parkAirportName, stands, qualityFactors), "");
  EXPECT_EQ(learnedFilePath, fs::path("airports/learned/thirdparty/ARV187/LEAB.xml"));
  StandOption option;
  option.regcode = "EC-ABC";
  option.airline = "IBE";
  option.type = "A320";
  option.learned = true;
  option.halfHours.set(4);
  stands[0].options.push_back(option);
  updateCount = 1;
  closeParkAirport();
  pugi::xml_document saved;
  ASSERT_TRUE(saved.load_file("airports/learned/thirdparty/ARV187/LEAB.xml"));
  EXPECT_STREQ(saved.select_node("/parkpositions/parkpos/opt").node().attribute("airl").value(), "IBE");
  EXPECT_EQ(unlistedAircraft().back(), "EC-ABC IBE A320");
}

// ---- Writing generated files and small readers
// -------------------------------------------------------------------

TEST_F(AirportFileTest, aGeneratedFileHoldsFullEntriesAndNoStatistics) {
  AirportFile record;
  record.code = "LEAR";
  record.airportName = "Aerodromo de Argavirtual";
  record.publisher = "unknown";
  record.bglPath = "D:/Scenery/LEAR/scenery/LEAR_ADEX.bgl";
  record.altitude = 2461;
  Stand gate;
  gate.id = "g1";
  gate.lat = 40.2547452799965;
  gate.lon = -3.4182652537684;
  gate.heading = twoPi;
  gate.radius = 40.1 * nmPerMetre;
  gate.cargo = true;
  gate.options.push_back(StandOption{});
  Stand pad = gate;
  pad.id = "helipad1";
  pad.heli = true;
  pad.ramp = true;
  record.stands = {gate, pad};
  ASSERT_TRUE(writeAirportFile(record, "LEAR.xml", false));
  const std::string text = readFile("LEAR.xml");
  EXPECT_NE(text.find(R"(<parameter name="airport_name" value="Aerodromo de Argavirtual" />
	<parameter name="publisher" value="unknown" />
	<parameter name="altitude" value="2461" />
	<parameter name="num_parkpos" value="2" />
	<parameter name="BGLpath" value="D:/Scenery/LEAR/scenery/LEAR_ADEX.bgl" />
</parameters>
<parkpositions>
	<parkpos id="g1" latitude="40.254745" longitude="-3.418265" heading="360.0" radius="40.1" cargo="true" ramp="false" />
	<parkpos id="helipad1" latitude="40.254745" longitude="-3.418265" heading="360.0" radius="40.1" heli="true" ramp="true" />
</parkpositions>)"),
            std::string::npos)
      << text;
  EXPECT_NE(text.find(R"(<info name="author" value="Trovalyn_P3D" />)"), std::string::npos);
  EXPECT_EQ(readStandCount("LEAR.xml"), 2);
  EXPECT_EQ(readPublisher("LEAR.xml"), "unknown");
  EXPECT_FALSE(hasQualityFactors("LEAR.xml"));

  record.publisher = "ORBX";
  ASSERT_TRUE(writeAirportFile(record, "LEAR.xml", false));
  EXPECT_EQ(readFile("LEAR.xml").find("BGLpath"), std::string::npos);
}

TEST_F(AirportFileTest, smallReadersAndTheGateCheckAnswerSafelyForBadFiles) {
  writeBytes(archivedPath, archivedText);
  EXPECT_TRUE(hasQualityFactors(archivedPath)) << "0 is a valid factor";
  EXPECT_EQ(readStandCount(archivedPath), 3);
  EXPECT_TRUE(gf_readApfForGateCheck("EHAM", "D6"));
  EXPECT_FALSE(gf_readApfForGateCheck("EHAM", "D7"));
  EXPECT_FALSE(gf_readApfForGateCheck("EDDF", "A1"));
  writeBytes("bad.xml", "<parameters><parameter name=");
  EXPECT_EQ(readStandCount("bad.xml"), 0);
  EXPECT_EQ(readPublisher("bad.xml"), "");
  EXPECT_FALSE(hasQualityFactors("bad.xml"));
  writeBytes(archivedPath, "<parkpositions><parkpos id=\"D6\"");
  EXPECT_FALSE(gf_readApfForGateCheck("EHAM", "D6"));
}

// ---- Quality factors
// --------------------------------------------------------------------------------------------

TEST(QualityFactors, scoreOptionsPerStandAndKindOverAllStands) {
  EXPECT_EQ(computeQualityFactors({}), (QualityFactors{-1, -1}));
  std::vector<Stand> stands(2);
  stands[0].radius = stands[1].radius = 20 * nmPerMetre;
  EXPECT_EQ(computeQualityFactors(stands), (QualityFactors{-1, -1})) << "no options: unknown";
  StandOption real;
  real.optionId = 1;
  real.day = 1;
  real.halfHours.set(30);
  stands[0].options = {real};
  StandOption soft = real;
  soft.soft = true;
  soft.day = 2;
  soft.halfHours.set(31);
  stands[1].options = {soft};
  // each stand: 10000 + 20 x 1 option + 100 x 1 day + 2 x bits; half of the weight
  EXPECT_EQ(computeQualityFactors(stands), (QualityFactors{32, 32})); // 10122 / 2 x 0.00625 = 31.6
  stands[0].options[0].optionId = 0;
  EXPECT_EQ(computeQualityFactors(stands), (QualityFactors{0, 32})) << "disabled options don't count";
  stands.resize(1);
  stands[0].options.assign(250, real);
  stands[0].options[0].halfHours.set();
  EXPECT_EQ(computeQualityFactors(stands),
            (QualityFactors{92, 0})); // (10000 + 4000 + 100 + 2 x 297) x 0.00625

  EXPECT_EQ(formatQualityFactors({-1, -1}), "  ");
  EXPECT_EQ(formatQualityFactors({7, -1}), " 7");
  EXPECT_EQ(formatQualityFactors({87, 0}), "87/ 0");
}

TEST(HalfHours, aBadNumberKeepsTheBitsBeforeIt) {
  EXPECT_TRUE(hours2bitset("").none());
  EXPECT_EQ(hours2bitset("0, 47"), HalfHours((1ull << 47) | 1ull));
  EXPECT_EQ(hours2bitset("3,x,4"), HalfHours(1ull << 3));
}

} // namespace
} // namespace ory
