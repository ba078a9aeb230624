// The liveries step as a whole: folders walked by workers, reports in their files, the stored result, the
// automatic folders of the simulator, priority, database corrections and the start-up's frame.
#include "base/display.h"
#include "base/exceptions.h"
#include "base/log.h"
#include "base/parameters.h"
#include "base/paths.h"
#include "base/run.h"
#include "liveries/addon_folders.h"
#include "liveries/liveries_scan.h"
#include "liveries/livery_table.h"
#include "liveries/matching.h"
#include "liveries/regcodes.h"
#include "liveries/text_tokens.h"
#include "liveries_world.h"
#include "support/scratch.h"

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <thread>

namespace ory {
namespace {

namespace fs = std::filesystem;
using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::StartsWith;
using ::testing::ThrowsMessage;
using ::testing::UnorderedElementsAre;

class LiveriesScanTest : public test::InScratchFolder {
protected:
  void SetUp() override {
    for (const fs::path& folder : {outputFolder, infoFolder, errorsFolder, myRegcodesFolder})
      fs::create_directories(folder);
    openLog();
    test::DbaseContent dbase = test::worldDbase();
    dbase.airframes = {{"PH-BXA", "DAL", "A320", "", true}, {"D-AIRN", "DLH", "A321", "TRA", false}};
    test::installDatabase(dbase);
    scanWorkerLimit = 2;
    LIGHT_AIRCRAFT.value = true;
    HELICOPTERS.value = true;
    HIGH_PERF_AIRCRAFT.value = true;
  }
  void TearDown() override {
    closeLog();
    clearLiveries();
    test::clearDatabase();
    for (TextParameter& folder : lfolder)
      folder.value.clear();
    SCAN_LIVERIES.value = true;
    LIG_AUTOMATIC.value = true;
    LIG_PRIORITIZE.value = false;
    SIM_INSTALL_PATH.value.clear();
  }
  static std::set<std::string> installedTitles() {
    std::set<std::string> titles;
    for (const auto& [airline, types] : liveryTable)
      for (const auto& [type, liveries] : types.liveries)
        for (const LiveryTitle& livery : liveries)
          titles.insert(livery.title);
    return titles;
  }
  // "airline type title" of every livery in the table.
  static std::set<std::string> installed() {
    std::set<std::string> entries;
    for (const auto& [airline, types] : liveryTable)
      for (const auto& [type, liveries] : types.liveries)
        for (const LiveryTitle& livery : liveries)
          entries.insert(airline + " " + type + " " + livery.title + (livery.cargo ? " cargo" : ""));
    return entries;
  }
};

void lf_package(const fs::path& folder, const std::string& type, std::vector<test::CfgSection> sections) {
  test::writeCfg(folder / "aircraft.cfg", {.atcModel = type, .sections = std::move(sections)});
}

std::vector<std::string> lf_lines(const fs::path& file) {
  return fs::exists(file) ? test::fileLines(file) : std::vector<std::string>();
}

TEST_F(LiveriesScanTest, aGeneratedTreeFullOfFaultsLosesNoGoodLivery) {
  const test::TreeFacts facts = test::generateSimObjects("Library/SimObjects", {.files = 96, .seed = 5});
  // Files that are broken beyond any one rule, among the generated ones.
  const fs::path broken = "Library/SimObjects/Broken";
  test::writeBytes(broken / "empty/aircraft.cfg", "");
  std::string noise(3000, '\0');
  for (std::size_t i = 0; i < noise.size(); ++i)
    noise[i] = static_cast<char>((i * 7919 + 13) % 251);
  test::writeBytes(broken / "noise/aircraft.cfg", noise);
  test::writeBytes(broken / "oddwide/sim.cfg", std::string("\xFF\xFE[\0f\0l\0t\0", 10) + "\x01");
  test::writeBytes(broken / "unclosed/aircraft.cfg", "[fltsim.0\ntitle=unclosed\natc_parking_codes=KLM\n");
  fs::create_directories(broken / "folder/aircraft.cfg");
  const std::set<std::string> sectionless{pathText(broken / "empty/aircraft.cfg"),
                                          pathText(broken / "noise/aircraft.cfg"),
                                          pathText(broken / "oddwide/sim.cfg")};

  // The running workers, watched while the scan runs: never more than the limit and the one being collected.
  std::atomic<bool> scanning = true;
  std::atomic<std::int32_t> mostWorkers = 0;
  std::thread watch([&] {
    while (scanning) {
      mostWorkers = std::max(mostWorkers.load(), scanWorkers.load());
      std::this_thread::yield();
    }
  });
  loadLiveries(true, false, false, {"Library/SimObjects"});
  scanning = false;
  watch.join();
  EXPECT_LE(mostWorkers.load(), scanWorkerLimit + 1);
  EXPECT_EQ(scanWorkers.load(), 0);

  EXPECT_EQ(installedTitles(), facts.goodTitles);
  const auto noSections = lf_lines(infoFolder / "AircraftCfgWithNoFltsimSection.txt");
  EXPECT_EQ(std::set<std::string>(noSections.begin(), noSections.end()), sectionless);
  for (const std::size_t count : {facts.utf16Files, facts.invalidFiles, facts.missingFolders,
                                  facts.doubleTitles, facts.invalidAirlines})
    EXPECT_GT(count, 0u) << "the tree must hold every kind of fault";
  const auto hasFault = [&facts](const std::string& line, const std::string& fault) {
    return std::any_of(facts.faultyFiles.begin(), facts.faultyFiles.end(), [&](const auto& entry) {
      return entry.second == fault && line.find(entry.first) != std::string::npos;
    });
  };
  const auto invalidFiles = lf_lines(errorsFolder / "InvalidAircraftCfgFiles.txt");
  EXPECT_EQ(invalidFiles.size(), facts.invalidFiles + 1);
  for (const std::string& line : invalidFiles)
    EXPECT_TRUE(line.starts_with("Line atc_model= is missing") ? hasFault(line, "atc_model")
                : line.ends_with("a [fltsim.] section without a number")
                    ? line.starts_with(pathText(broken / "unclosed/aircraft.cfg"))
                    : hasFault(line, "gap"))
        << line;
  std::size_t missing = 0;
  std::size_t doubles = 0;
  for (const std::string& line : lf_lines(errorsFolder / "IncompleFltsimSections.txt")) {
    if (line.ends_with(" does not exist")) {
      ++missing;
      const std::string folder = line.substr(0, line.find(" [fltsim."));
      EXPECT_TRUE(hasFault(pathText(fs::path(folder).parent_path() / "aircraft.cfg"), "texture") ||
                  hasFault(pathText(fs::path(folder).parent_path() / "sim.cfg"), "texture") ||
                  hasFault(pathText(fs::path(folder).parent_path() / "Aircraft.CFG"), "texture"))
          << line;
    } else {
      ++doubles;
      EXPECT_THAT(line, HasSubstr(" already exists")) << line;
    }
  }
  EXPECT_EQ(missing, facts.missingFolders);
  EXPECT_EQ(doubles, facts.doubleTitles);
  const auto airlines = lf_lines(errorsFolder / "InvalidAirlineCodes.txt");
  EXPECT_EQ(airlines.size(), facts.invalidAirlines);
  for (const std::string& line : airlines)
    EXPECT_TRUE(line.starts_with("XQZ ") && hasFault(line, "airline")) << line;

  // The stored result reads back into the same table, without a scan.
  const std::set<std::string> scanned = installed();
  clearLiveries();
  loadLiveries(false, false, false, {});
  EXPECT_EQ(installed(), scanned);
  const std::string text = test::logText();
  EXPECT_THAT(text, HasSubstr(fmt::format("{} invalid aircraft.cfg files, see {}", facts.invalidFiles + 1,
                                          pathText(errorsFolder / "InvalidAircraftCfgFiles.txt"))));
  EXPECT_THAT(text, HasSubstr("\nErrors:\n"));
  EXPECT_THAT(text, HasSubstr(fmt::format("No scan done, {} liveries read from ",
                                          test::fileLines(liveriesScannedFile).size() - 3)));
}

TEST_F(LiveriesScanTest, aRegcodeWithADatabaseRecordMovesTheLiveryToTheRealAirframe) {
  lf_package("AI/B738", "B738",
             {test::section("KLM 737 PH-BXA", "KLM", "PHBXA"),
              test::section("Lufthansa D-AIRN", "DLH", "D-AIRN"), test::section("KLM 737 plain", "KLM")});
  loadLiveries(true, false, false, {"AI"});
  EXPECT_THAT(installed(), UnorderedElementsAre("DAL A320 KLM 737 PH-BXA cargo", "TRA A321 Lufthansa D-AIRN",
                                                "KLM B738 KLM 737 plain"));
  EXPECT_THAT(lf_lines(infoFolder / "AirlineModelConversions.txt"),
              ElementsAre(fmt::format("{:80} PHBXA airl KLM => DAL", "KLM 737 PH-BXA"),
                          fmt::format("{:80} PHBXA cargo false => true", "KLM 737 PH-BXA"),
                          fmt::format("{:80} PHBXA model B738 => A320", "KLM 737 PH-BXA"),
                          fmt::format("{:80} D-AIRN airl DLH => TRA", "Lufthansa D-AIRN"),
                          fmt::format("{:80} D-AIRN model B738 => A321", "Lufthansa D-AIRN")));
  EXPECT_EQ(regcodeLiveries.at("PHBXA"), "KLM 737 PH-BXA");
  EXPECT_THAT(test::logText(), HasSubstr("5 liveries updated with real live data from dbase, see "));
}

TEST_F(LiveriesScanTest, theFirstFolderOwnsAnAirlineAndTypeWhenPrioritized) {
  std::vector<fs::path> folders;
  for (int i = 1; i <= 12; ++i)
    folders.push_back(fmt::format("F{}", i));
  lf_package("F2/a", "B738", {test::section("KLM two", "KLM")});
  lf_package("F3/a", "B738", {test::section("KLM three", "KLM"), test::section("DAL three", "DAL")});
  for (int i = 10; i <= 12; ++i)
    lf_package(fmt::format("F{}/a", i), "A320", {test::section(fmt::format("EZY {}", i), "EZY")});
  lf_package("F9/a", "A320", {test::section("BAW nine", "BAW")});
  lf_package("F12/b", "A320", {test::section("BAW twelve", "BAW")});
  test::writeBytes("F5", "a file, no folder");
  fs::create_directories("F4");

  loadLiveries(true, false, true, folders);
  EXPECT_EQ(installedTitles(),
            (std::set<std::string>{"KLM two", "DAL three", "EZY 10", "EZY 11", "EZY 12", "BAW nine"}))
      << "the eleventh and twelfth folder share the tenth's number";
  EXPECT_THAT(lf_lines(infoFolder / "LiveriesSkippedOnPriority.txt"),
              ElementsAre("BAW A320 \"BAW twelve\"", "KLM B738 \"KLM three\""));
  const std::string text = test::logText();
  EXPECT_THAT(text, HasSubstr("F1 does not exist, skipped!\n"));
  EXPECT_THAT(text, HasSubstr("F5 is not a folder name, skipped!\n"));
  EXPECT_THAT(text, HasSubstr("2 liveries found in F3\n"));
  EXPECT_THAT(text, HasSubstr("No liveries found in F4\n"));
  EXPECT_THAT(text, HasSubstr("8 in total\n"));
  EXPECT_THAT(text, HasSubstr("2 liveries skipped on priority, see "));

  clearLiveries();
  loadLiveries(true, false, false, folders);
  EXPECT_EQ(installedTitles().size(), 8u) << "without priority every folder counts";
}

TEST_F(LiveriesScanTest, theWalkSkipsAirportFoldersAndReadsOnlyLiveryFiles) {
  lf_package("AI/airports/KLM", "B738", {test::section("in an airport folder", "KLM")});
  test::writeCfg("AI/Pkg/SIM.CFG", {.atcModel = "B738", .sections = {test::section("sim file", "KLM")}});
  test::writeCfg("AI/Pkg2/aircraft.cfg.bak",
                 {.atcModel = "B738", .sections = {test::section("backup", "KLM")}});
  test::writeCfg("AI/Pkg3/AIRCRAFT.Cfg", {.atcModel = "B738", .sections = {test::section("upper", "KLM")}});
  lf_package("myairportAI", "A320", {test::section("top level of an airport path", "DAL")});
  lf_package("myairportAI/sub", "A320", {test::section("below an airport path", "DAL")});
  loadLiveries(true, false, false, {"AI", "myairportAI"});
  EXPECT_EQ(installedTitles(), (std::set<std::string>{"sim file", "upper", "top level of an airport path"}));
}

TEST_F(LiveriesScanTest, processingBindsInlineRegcodesAndSummarisesTheCategories) {
  lf_package("AI/B738", "B738",
             {test::section("KLM one", "KLM", "PH-AAA"), test::section("KLM two", "KLM", "PH-AAA"),
              test::section("Maker house", "BOE"), test::section("KLM three codes", "KLM,KLMC,KLMX")});
  lf_package("AI/C56X", "C56X", {test::section("Jet CARGO", "PVT"), test::section("Jet two", "PVT")});
  lf_package("AI/B77W", "B77W", {test::section("Generic 777", "ZZZ")});
  loadLiveries(true, false, false, {"AI"});
  EXPECT_EQ(regcodeLiveries.at("PH-AAA"), "KLM one") << "the first record in sort order keeps it";
  EXPECT_THAT(lf_lines(errorsFolder / "InlineRegcodes.txt"),
              ElementsAre("[KLM B738] PH-AAA \"KLM two\" => in use by \"KLM one\""));
  EXPECT_THAT(buzjetModels, ElementsAre("C56X"));
  EXPECT_THAT(lightModels, IsEmpty());
  EXPECT_FALSE(LIGHT_AIRCRAFT.value);
  EXPECT_FALSE(HELICOPTERS.value);
  EXPECT_FALSE(HIGH_PERF_AIRCRAFT.value);
  EXPECT_EQ(display.liveryCount, 7);
  const std::string stored = test::readFile(liveriesScannedFile);
  EXPECT_NE(stored.find("title=\"KLM three codes\""), std::string::npos);
  EXPECT_EQ(stored.find("title=\"KLM three codes\""), stored.rfind("title=\"KLM three codes\""))
      << "the three codes of one airline give one record";
  const std::string text = test::logText();
  EXPECT_THAT(text, HasSubstr("1 in-line regcode clashes, see \""));
  EXPECT_THAT(text, HasSubstr("\n1 registration codes\n"));
  EXPECT_THAT(text, HasSubstr("3 airlines, 3 pax aircraft models and 1 cargo aircraft models\n"));
  EXPECT_THAT(text, HasSubstr("2 models have a generic livery\n  B738,B77W\n"));
  EXPECT_THAT(text,
              HasSubstr("Category Light: No livery found\nLIGHT_AIRCRAFT temporary switched off because you "
                        "do not have light aircraft installed\n"));
  EXPECT_THAT(text, HasSubstr("Category Buzjets: 1 pax liverie and 1 cargo liverie\n  C56X\n"));
  EXPECT_THAT(text, HasSubstr("Category Large: 4 pax liveries\n  B738\n"));
  EXPECT_THAT(text,
              HasSubstr("HELICOPTERS temporary switched off because you do not have Helicopters installed"));
}

TEST_F(LiveriesScanTest, automaticFoldersComeFromTheSimulatorsConfiguration) {
  const fs::path home = scratch.path();
  const fs::path install = home / "P3D v5";
  test::writeBytes(home / "AppData/Roaming/Lockheed Martin/Prepar3D v5/add-ons.cfg",
                   fmt::format("[Package.0]\nPATH={0}/Addons/AIG\nTITLE=AIG\nACTIVE=TRUE\nREQUIRED=FALSE\n\n"
                               "[Package.1]\nPATH={0}/Addons/Off\nACTIVE=FALSE\nREQUIRED=FALSE\n"
                               "[DiscoveryPath.0]\nPATH={0}/Addons\nTITLE=Default\nACTIVE=TRUE\n"
                               "[Package.2]\nPATH={0}/Addons/Lights Reborn\nACTIVE=TRUE\nREQUIRED=FALSE\n"
                               "[Package.3]\nPATH={0}/Addons/NoXml\nACTIVE=TRUE\nREQUIRED=FALSE\n",
                               pathText(home)));
  const char* addOnXml = R"(<?xml version="1.0"?>
<SimBase.Document Type="AddOnXml" version="4,0" id="add-on">
  <AddOn.Name>AI</AddOn.Name>
  <AddOn.Component><Category>Scenery</Category><Path>Scenery</Path></AddOn.Component>
  <AddOn.Component><Category>SimObjects</Category><Path>SimObjects\Airplanes</Path></AddOn.Component>
</SimBase.Document>)";
  for (const char* package : {"AIG", "Off", "Lights Reborn"})
    test::writeBytes(home / "Addons" / package / "add-on.xml", addOnXml);
  test::writeBytes(home / "ProgramData/Lockheed Martin/Prepar3D v5/simobjects.cfg",
                   fmt::format("[Entry.0]\nTitle=Airplanes\nPath=SimObjects\\Airplanes\nRequired=False\n"
                               "Active=True\n[Entry.1]\nTitle=My AI\nPath=SimObjects\\MyAI\nActive=True\n"
                               "[Entry.2]\nTitle=Elsewhere\nPath={}/Elsewhere\nActive=True\n"
                               "[Entry.3]\nTitle=Switched off\nPath=SimObjects\\Old\nActive=False\n",
                               pathText(home)));
  EXPECT_THAT(addOnPackageFolders(5), ElementsAre(home / "Addons/AIG/SimObjects/Airplanes"));
  EXPECT_THAT(simObjectsCfgFolders(5, pathText(install)),
              ElementsAre(install / "SimObjects/MyAI", home / "Elsewhere"));

  lf_package(home / "Addons/AIG/SimObjects/Airplanes/KLM", "B738", {test::section("from a package", "KLM")});
  lf_package(install / "SimObjects/MyAI/DAL", "A320", {test::section("from simobjects.cfg", "DAL")});
  SIM_INSTALL_PATH.value = pathText(install);
  runLiveriesStep();
  EXPECT_EQ(installedTitles(), (std::set<std::string>{"from a package", "from simobjects.cfg"}));
  EXPECT_FALSE(SCAN_LIVERIES.value);
  const std::string text = test::logText();
  EXPECT_THAT(text, HasSubstr("liveries scan automatic starts"));
  EXPECT_THAT(text, HasSubstr("NoXml/add-on.xml not found!\n"));
  EXPECT_THAT(text, HasSubstr("      Simobjects found:SimObjects\\Airplanes\n"));
  EXPECT_THAT(
      text, HasSubstr("-------------------------- liveries scan ends   --------------------------------\n"));
}

TEST_F(LiveriesScanTest, theStartUpStepNamesWhatTheUserMustMend) {
  SCAN_LIVERIES.value = true;
  LIG_AUTOMATIC.value = false;
  try {
    runLiveriesStep();
    FAIL() << "a manual scan needs folders";
  } catch (const UserErrorException& e) {
    EXPECT_EQ(e.number, 48);
  }
  LIG_AUTOMATIC.value = true;
  SIM_INSTALL_PATH.value = "C:\\P3D v5";
  try {
    runLiveriesStep();
    FAIL() << "nothing to find";
  } catch (const UserErrorException& e) {
    EXPECT_EQ(e.number, 43);
  }
  EXPECT_TRUE(SCAN_LIVERIES.value) << "the scan stays asked for";

  SCAN_LIVERIES.value = false;
  const auto numberOf = [] {
    try {
      runLiveriesStep();
    } catch (const UserErrorException& e) {
      return e.number;
    }
    return 0;
  };
  EXPECT_EQ(numberOf(), 51);
  test::writeBytes(liveriesScannedFile, "<other/>");
  EXPECT_EQ(numberOf(), 52);
  test::writeBytes(liveriesScannedFile, "<liveries/>");
  EXPECT_EQ(numberOf(), 53);
  // A title of an earlier version, in the bytes of an ANSI aircraft.cfg, is read in UTF-8.
  test::writeBytes(
      liveriesScannedFile,
      "<liveries><liv airl=\"KLM\" type=\"B738\" cargo=\"true\" title=\"t\xE9\" atcid=\"\"/></liveries>");
  EXPECT_EQ(numberOf(), 0);
  EXPECT_THAT(installed(), ElementsAre("KLM B738 t\xC3\xA9 cargo"));
  test::writeBytes(liveriesScannedFile, "<liveries/>");
  EXPECT_EQ(numberOf(), 0) << "a restart keeps the tables of the first start";
}

// Only what can't be used: a real military package, whose type is a maker's name, an unknown type, a file
// without sections. The reports explain the error, of a manual or an automatic scan alike.
TEST_F(LiveriesScanTest, aTreeOfOnlyInvalidFilesIsExplainedByItsError) {
  fs::create_directories("AI/TQL_EF2000");
  fs::copy_file(test::realData("aircraft_cfg/TQL_NBAI_Eurofighter_EF2000_Spain_Ala_14.aircraft.cfg"),
                "AI/TQL_EF2000/aircraft.cfg");
  lf_package("AI/Odd", "XQZ9", {test::section("KLM odd", "KLM")});
  test::writeBytes("AI/Empty/aircraft.cfg", "");
  test::writeBytes("ProgramData/Lockheed Martin/Prepar3D v5/simobjects.cfg",
                   "[Entry.0]\nPath=" + pathText(scratch.path() / "AI"));
  SIM_INSTALL_PATH.value = "P3D v5";
  lfolder[0].value = "AI";
  const fs::path models = errorsFolder / "InvalidAircraftCodes.txt";
  const std::string see = fmt::format(", see {}, {}", pathText(models),
                                      pathText(infoFolder / "AircraftCfgWithNoFltsimSection.txt"));
  for (const bool automatic : {false, true}) {
    LIG_AUTOMATIC.value = automatic;
    EXPECT_THAT([] { runLiveriesStep(); },
                ThrowsMessage<UserErrorException>(
                    AllOf(StartsWith(automatic ? "43: " : "53: no liveries found"), EndsWith(see))));
    EXPECT_THAT(lf_lines(models), ElementsAre(StartsWith("Typhoon "), StartsWith("XQZ9 ")));
  }
  EXPECT_THAT(test::logText(), HasSubstr("\nErrors:\n2 invalid model codes, see "));
}

TEST_F(LiveriesScanTest, closingTheProgramStopsTheScan) {
  lf_package("AI/B738", "B738", {test::section("KLM one", "KLM")});
  userClosed = true;
  loadLiveries(true, false, false, {"AI"});
  userClosed = false;
  EXPECT_TRUE(liveryTable.empty());
  EXPECT_FALSE(fs::exists(liveriesScannedFile));

  // A reader that failed meanwhile stops the start-up's scan too; the scan stays asked for.
  SCAN_LIVERIES.value = true;
  LIG_AUTOMATIC.value = false;
  lfolder[0].value = "AI";
  readerError = true;
  runLiveriesStep();
  readerError = false;
  EXPECT_TRUE(liveryTable.empty());
  EXPECT_TRUE(SCAN_LIVERIES.value);
  runLiveriesStep();
  EXPECT_EQ(installedTitles(), (std::set<std::string>{"KLM one"}));
  EXPECT_FALSE(SCAN_LIVERIES.value);
}

} // namespace
} // namespace ory
