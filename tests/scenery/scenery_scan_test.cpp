#include "base/display.h"
#include "base/exceptions.h"
#include "base/log.h"
#include "base/parameters.h"
#include "base/run.h"
#include "bgl_builder.h"
#include "scenery/scan_log.h"
#include "scenery/scenery_scan.h"
#include "support/scratch.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <thread>

namespace ory {
namespace {

namespace fs = std::filesystem;
using test::AirportSpec;
using test::readFile;
using test::writeBytes;

AirportSpec lf_airport(std::string code) {
  AirportSpec airport;
  airport.code = std::move(code);
  airport.parkings = {{10, 8, 1}, {10, 8, 2, 20.0f, 90.0f, 52.01, 4.0}};
  return airport;
}

class SceneryScanTest : public test::InScratchFolder {
protected:
  void SetUp() override {
    openLog();
    SIM_INSTALL_PATH.value = pathOf("P3D v5");
    AFG_AUTOMATIC.value = false;
    SCAN_AIRPORTS.value = true;
    for (TextParameter& folder : afolder)
      folder.value.clear();
    scanWorkerLimit = 2;
  }
  void TearDown() override {
    closeLog();
    SIM_INSTALL_PATH.value.clear();
    AFG_AUTOMATIC.value = true;
    SCAN_AIRPORTS.value = true;
    for (TextParameter& folder : afolder)
      folder.value.clear();
    exiting = false;
  }
  std::string pathOf(std::string_view relative) const { return (scratch.path() / relative).string(); }
  static bool scanLogged(std::string_view text) {
    const auto lines = scanLogLines();
    return std::any_of(lines.begin(), lines.end(),
                       [&](const std::string& l) { return l.find(text) != std::string::npos; });
  }
};

TEST_F(SceneryScanTest, sceneryCfgGivesTheActiveAreasByLayerWithoutStockFolders) {
  writeBytes(fs::path("ProgramData/Lockheed Martin/Prepar3D v5/scenery.cfg"), R"([General]
Title=Prepar3D Scenery
Local=ignored
[Area.001]
Title=Default Terrain
Local=Scenery\World
Layer=1
Active=TRUE
Required=TRUE
[Area.002]
Title=Somebody LEAB
LOCAL=D:\Addons\LEAB
LAYER=12
ACTIVE=True
[Area.003]
Title=Switched off
Local=D:\Addons\Off
Layer=3
Active=FALSE
[area.004]
title=lower case title is not read
local=Addons\Relative
Layer=5
active=true
REQUIRED=TRUE
)");
  const std::vector<SceneryArea> areas = readSceneryCfg(5);
  ASSERT_EQ(areas.size(), 2u);
  EXPECT_EQ(areas[0].path, fs::path(pathOf("P3D v5")) / "Addons/Relative") << "relative to the simulator";
  EXPECT_EQ(areas[0].layer, 5);
  EXPECT_EQ(areas[0].title, "");
  EXPECT_TRUE(areas[0].required);
  EXPECT_EQ(areas[1].path, fs::path("D:/Addons/LEAB"));
  EXPECT_EQ(areas[1].title, "Somebody LEAB");
  const std::string text = test::logText();
  EXPECT_NE(text.find("      found:D:/Addons/LEAB\n"), std::string::npos);
  EXPECT_NE(text.find("2 scenery add-on paths found\n"), std::string::npos);
  EXPECT_TRUE(readSceneryCfg(6).empty());
  EXPECT_NE(test::logText().find("Prepar3D v6/scenery.cfg not found!"), std::string::npos);
}

TEST_F(SceneryScanTest, sceneryAddOnsGivesTheSceneryComponentsOfPackages) {
  writeBytes(fs::path("ProgramData/Lockheed Martin/Prepar3D v6/scenery_add-ons.xml"), R"(<?xml version="1.0"?>
<SimBase.Document Type="SceneryAddOns" version="1,0">
  <AddOn.Component><Category>Scenery</Category><Path>E:\FlyTampa\EHAM\scenery</Path><Name>EHAM</Name>
    <Layer>140</Layer></AddOn.Component>
  <AddOn.Component><Category>Texture</Category><Path>E:\FlyTampa\EHAM\texture</Path></AddOn.Component>
  <AddOn.Component><Category> scenery </Category><Path>E:\Orbx\YBBN</Path><Layer>120</Layer></AddOn.Component>
</SimBase.Document>)");
  const std::vector<SceneryArea> areas = readSceneryAddOns(6);
  ASSERT_EQ(areas.size(), 2u);
  EXPECT_EQ(areas[0].path, fs::path("E:/Orbx/YBBN"));
  EXPECT_EQ(areas[1].path, fs::path("E:/FlyTampa/EHAM/scenery"));
  EXPECT_EQ(areas[1].title, "EHAM");
}

TEST_F(SceneryScanTest, aManualScanReadsTheAirportFilesAndSkipsTheRest) {
  writeBytes("Addons/EHAM/scenery/EHAM_ADE.bgl", test::buildBgl({lf_airport("EHAM")}));
  writeBytes("Addons/EHAM/scenery/deep/more/LEAB.BGL", test::buildBgl({lf_airport("LEAB")}));
  writeBytes("Addons/EHAM/scenery/EHAM_statics.bgl", test::buildBgl({lf_airport("EHST")}));
  writeBytes("Addons/EHAM/scenery/EHAM_heliports.bgl", test::buildBgl({lf_airport("EHHE")}));
  writeBytes("Addons/EHAM/scenery/objects.bgl", test::buildBglWithoutAirports(4000));
  writeBytes("Addons/EHAM/scenery/EHAM.bgl.off", test::buildBgl({lf_airport("EHOF")}));
  const std::string cut = test::buildBgl({lf_airport("EHCT")});
  writeBytes("Addons/EHAM/scenery/broken.bgl", cut.substr(0, 84));
  writeBytes("Addons/stale.txt", "x");
  writeBytes("airports/my_thirdparty/OLD1.xml", "from an earlier scan");
  afolder[0].value = pathOf("Addons/EHAM");
  afolder[3].value = pathOf("Addons/Missing");
  afolder[5].value = pathOf("Addons/stale.txt");

  runAirportsStep();
  EXPECT_FALSE(SCAN_AIRPORTS.value) << "a completed scan is not repeated";
  EXPECT_TRUE(fs::exists("airports/my_thirdparty/EHAM.xml"));
  EXPECT_TRUE(fs::exists("airports/my_thirdparty/LEAB.xml"));
  for (const char* absent : {"EHST", "EHHE", "EHOF", "EHCT", "OLD1"})
    EXPECT_FALSE(fs::exists(fmt::format("airports/my_thirdparty/{}.xml", absent))) << absent;
  EXPECT_EQ(display.thirdpartyAirportCount, 2);
  EXPECT_EQ(scanWorkers, 0);
  EXPECT_TRUE(scanLogged("broken.bgl airports search in folder "));

  const std::string scanLogText = readFile("output/info/AirportsScanLog.txt");
  EXPECT_NE(scanLogText.find("Generated airports/my_thirdparty/EHAM.xml: 2 positions"), std::string::npos);
  EXPECT_TRUE(fs::exists("TO_BE_LEARNED_OFFLINE/EHAM.xml"));
  EXPECT_TRUE(fs::exists("TO_BE_LEARNED_OFFLINE/LEAB.xml"));
  EXPECT_EQ(display.tbloAirportCount, 2);
  const std::string text = test::logText();
  for (const std::string& line :
       {std::string("\n++++++++++++++++++++++++ airports scan manual starts +++++++++++++++++++++++++++++\n"),
        pathOf("Addons/Missing") + " does not exist, skipped!\n",
        pathOf("Addons/stale.txt") + " is not a folder name, skipped!\n",
        std::string("output/info/AirportsScanLog.txt written\n"),
        std::string("All your ORBX airports are done, no off line learning needed.\n"),
        std::string("-------------------------- airports scan ends    ----------------------------\n")})
    EXPECT_NE(text.find(line), std::string::npos) << line;
  EXPECT_EQ(text.find("Airports scan successful"), std::string::npos) << "nothing was linked";
}

TEST_F(SceneryScanTest, anAutomaticScanTakesItsFoldersFromTheSimulator) {
  AFG_AUTOMATIC.value = true;
  writeBytes(fs::path("ProgramData/Lockheed Martin/Prepar3D v5/scenery.cfg"),
             "[Area.001]\nLocal=" + pathOf("Library/LEAB") +
                 "\nLayer=2\nActive=TRUE\n[Area.002]\nLocal=Scenery\\World\n"
                 "Active=TRUE\n");
  writeBytes(fs::path("ProgramData/Lockheed Martin/Prepar3D v5/scenery_add-ons.xml"),
             "<SimBase.Document><AddOn.Component><Category>Scenery</Category><Path>" +
                 pathOf("Packages/LEAR") + "</Path></AddOn.Component></SimBase.Document>");
  fs::create_directories("Library/LEAB/scenery");
  fs::copy_file(test::realData("bgl/LEAB_ADEP5_ARV187.bgl"), "Library/LEAB/scenery/LEAB_ADEP5_ARV187.bgl");
  fs::create_directories("Packages/LEAR/scenery");
  fs::copy_file(test::realData("bgl/LEAR_ADEX_ARV187.bgl"), "Packages/LEAR/scenery/LEAR_ADEX_ARV187.bgl");
  runAirportsStep();
  EXPECT_TRUE(fs::exists("airports/my_thirdparty/LEAB.xml"));
  EXPECT_TRUE(fs::exists("airports/my_thirdparty/LEAR.xml"));
  EXPECT_NE(test::logText().find("++++++++++++++++++++++++ airports scan automatic starts"),
            std::string::npos);
  EXPECT_FALSE(SCAN_AIRPORTS.value);
}

// A library of airport files, many more than the workers can take at once.
void lf_writeLibrary(int files) {
  for (int k = 0; k < files; ++k)
    writeBytes(fmt::format("Library/Area{:02}/scenery/AF_{:03}.bgl", k % 10, k),
               test::buildBgl({lf_airport(fmt::format("Z{:03}", k))}));
}

std::size_t lf_generatedCount() {
  std::error_code error;
  std::size_t count = 0;
  for (fs::directory_iterator it("airports/my_thirdparty", error), end; !error && it != end;
       it.increment(error))
    ++count;
  return count;
}

TEST_F(SceneryScanTest, theWorkersAreHeldAtTheLimit) {
  lf_writeLibrary(40);
  afolder[0].value = pathOf("Library");
  scanWorkerLimit = 2;
  std::atomic<bool> done{false};
  std::int32_t most = 0;
  std::thread watcher([&] {
    while (!done) {
      most = std::max(most, scanWorkers.load());
      std::this_thread::sleep_for(std::chrono::microseconds(100));
    }
  });
  const AirportsScan scan = scanAirports(true);
  done = true;
  watcher.join();
  EXPECT_TRUE(scan.completed);
  EXPECT_EQ(scan.airportFiles, 40);
  EXPECT_GE(most, 1);
  EXPECT_LE(most, 2);
  EXPECT_EQ(scanWorkers, 0);
}

TEST_F(SceneryScanTest, anExitRequestDuringTheWalkEndsItAndWaitsForTheRunningWorkers) {
  lf_writeLibrary(300);
  afolder[0].value = pathOf("Library");
  scanWorkerLimit = 1;
  clearScanLog();
  std::thread requester([] {
    while (scanLogLines().empty())
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    exiting = true;
  });
  runAirportsStep();
  requester.join();
  EXPECT_LT(lf_generatedCount(), 300u);
  EXPECT_EQ(scanWorkers, 0) << "no worker is left running";
  EXPECT_FALSE(fs::exists("output/info/AirportsScanLog.txt"));
  EXPECT_FALSE(fs::exists("TO_BE_LEARNED_OFFLINE"));
  EXPECT_TRUE(SCAN_AIRPORTS.value);
}

TEST_F(SceneryScanTest, theStockSceneryIsNeverScannedNorAnAfolder) {
  writeBytes("P3D v5/Scenery/0101/scenery/APX12345.bgl", test::buildBgl({lf_airport("EHST")}));
  writeBytes("P3D v5/Addons/EHAM/EHAM.bgl", test::buildBgl({lf_airport("EHAM")}));
  writeBytes("P3D v5/Scenery/0101/APX54321.bgl", test::buildBgl({lf_airport("EHSU")}));
  EXPECT_TRUE(scanFolder(pathOf("P3D v5")));
  EXPECT_TRUE(scanFolder(pathOf("P3D v5/Scenery/0101"))) << "as scenery.cfg lists the stock areas";
  EXPECT_TRUE(fs::exists("airports/my_thirdparty/EHAM.xml"));
  EXPECT_FALSE(fs::exists("airports/my_thirdparty/EHST.xml"));
  EXPECT_FALSE(fs::exists("airports/my_thirdparty/EHSU.xml"));

  afolder[2].value = pathOf("P3D v5/scenery/0101");
  try {
    runAirportsStep();
    ADD_FAILURE() << "no exception";
  } catch (const UserErrorException& error) {
    EXPECT_STREQ(error.what(), "42: parameter afolder2 points to stock airports instead of add-on airports!");
  }
  afolder[2].value.clear();
  EXPECT_THROW(runAirportsStep(), UserErrorException) << "49: no folder set";

  checkStockAirportsPath();
  EXPECT_EQ(test::logText().find("Stock airports path does not exist"), std::string::npos);
  SIM_INSTALL_PATH.value = pathOf("Elsewhere");
  checkStockAirportsPath();
  EXPECT_NE(test::logText().find("Stock airports path does not exist: " + pathOf("Elsewhere/Scenery")),
            std::string::npos);
}

} // namespace
} // namespace ory
