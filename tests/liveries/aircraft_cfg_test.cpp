// One aircraft.cfg at a time: what becomes a livery, and what ends in which report with which file.
#include "base/log.h"
#include "liveries/aircraft_cfg.h"
#include "liveries/regcodes.h"
#include "liveries/text_tokens.h"
#include "liveries_world.h"
#include "support/scratch.h"

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <regex>
#include <set>

namespace ory {
namespace {

namespace fs = std::filesystem;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

class AircraftCfgTest : public test::InScratchFolder {
protected:
  void SetUp() override {
    openLog();
    test::installDatabase(
        test::worldDbase(),
        {.models = {{"B737-800", "B738"}, {"Typhoon", "EUFI"}}, .pvt = {"PRIV"}, .gov = {"141F", "142F"}});
    prepareScan();
  }
  void TearDown() override {
    closeLog();
    dontUseTitles.clear();
    prepareScan();
    test::clearDatabase();
  }
  // Writes a standard file of one type in its own folder and reads it.
  std::vector<LiveryData> read(const std::string& name, const test::CfgFile& file) {
    const fs::path path = fs::path("SimObjects") / name / "aircraft.cfg";
    test::writeCfg(path, file);
    return lf_searchLiveriesinFile(3, path);
  }
  static std::string pathOf(const std::string& name) {
    return pathText(fs::path("SimObjects") / name / "aircraft.cfg");
  }
  static std::vector<std::string> titles(const std::vector<LiveryData>& liveries) {
    std::vector<std::string> list;
    for (const LiveryData& livery : liveries)
      list.push_back(livery.title);
    return list;
  }
};

TEST_F(AircraftCfgTest, sectionNumbersMustRunFromZeroWithoutGaps) {
  test::CfgFile gap{
      .atcModel = "B738",
      .sections = {test::section("a0", "KLM"), test::section("a1", "KLM"), test::section("a3", "KLM")}};
  gap.sections[2].header = "[fltsim.3]";
  EXPECT_THAT(read("gap", gap), IsEmpty());

  test::CfgFile unnumbered{.atcModel = "B738",
                           .sections = {test::section("b0", "KLM"), test::section("bx", "KLM")}};
  unnumbered.sections[1].header = "[fltsim.x]";
  EXPECT_THAT(read("unnumbered", unnumbered), IsEmpty());

  test::CfgFile huge{.atcModel = "B738", .sections = {test::section("c0", "KLM")}};
  huge.sections[0].header = "[fltsim.99999999999]";
  EXPECT_THAT(read("huge", huge), IsEmpty());

  test::CfgFile none{.atcModel = "XXXX"};
  EXPECT_THAT(read("none", none), IsEmpty());

  test::CfgFile reversed{.atcModel = "B738",
                         .sections = {test::section("d1", "KLM"), test::section("d0", "DAL")}};
  reversed.sections[0].header = " [FLTSIM.1] ";
  reversed.sections[1].header = "[fltsim.0]";
  EXPECT_THAT(titles(read("reversed", reversed)), ElementsAre("d1", "d0"));

  EXPECT_THAT(invalidFilesReport.lines(),
              ElementsAre(pathOf("gap") + " contains non-consecutive [fltsim.x] numbers at .x=3",
                          pathOf("unnumbered") + " contains a [fltsim.] section without a number",
                          pathOf("huge") + " contains fltsim num 99999999999 incorrect"));
  EXPECT_THAT(noSectionFilesReport.lines(), ElementsAre(pathOf("none")));
  EXPECT_THAT(invalidModelsReport.lines(), IsEmpty()) << "a file without sections is not looked at further";
  EXPECT_THAT(test::logText(), HasSubstr("===> fltsim num 99999999999 incorrect\n"));
}

TEST_F(AircraftCfgTest, parkingCodesGiveOneRecordPerAirline) {
  const auto liveries = read(
      "codes", {.atcModel = "B738",
                .sections = {test::section("KLM three", "KLM,KLMC,KLMX", "PH-BXA"),
                             test::section("Boeing house", "BOE", "N737BA"), test::section("Private", "PRIV"),
                             test::section("Air force", "141F"), test::section("Mixed CARGO", " XYZ , DAL,,"),
                             test::section("Lower Cargo", "KLM")}});
  ASSERT_EQ(liveries.size(), 8u);
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(liveries[i].airline, "KLM");
    EXPECT_EQ(liveries[i].title, "KLM three");
    EXPECT_EQ(liveries[i].regcode, "PH-BXA");
    EXPECT_EQ(liveries[i].type, "B738");
    EXPECT_EQ(liveries[i].folderIndex, 3u);
  }
  EXPECT_EQ(liveries[3].airline, "ZZZ");
  EXPECT_EQ(liveries[3].regcode, "") << "a maker's livery is generic and binds no regcode";
  EXPECT_EQ(liveries[4].airline, "PVT");
  EXPECT_EQ(liveries[5].airline, "PVT");
  EXPECT_EQ(liveries[6].airline, "DAL");
  EXPECT_TRUE(liveries[6].cargo);
  EXPECT_FALSE(liveries[0].cargo);
  EXPECT_FALSE(liveries[7].cargo) << "only CARGO in capitals makes a cargo livery";
  EXPECT_THAT(fixesReport.lines(),
              ElementsAre("Fix: PRIV found in " + pathOf("codes") + " changed into PVT",
                          "Fix: 141F found in " + pathOf("codes") + " changed into PVT"));
  EXPECT_THAT(invalidAirlinesReport.lines(),
              ElementsAre("             in " + pathOf("codes") + " [fltsim.4]",
                          "XYZ          in " + pathOf("codes") + " [fltsim.4]"));
  EXPECT_THAT(incompleteSectionsReport.lines(), IsEmpty());
}

TEST_F(AircraftCfgTest, atcIdGivesTheRegcodeOnlyWhenItIsOneSoundToken) {
  const auto liveries = read(
      "regcodes",
      {.atcModel = "B738",
       .sections = {test::section("r0", "KLM", "PH-BXA;comment"), test::section("r1", "KLM", "PH-BXA,PH-BXB"),
                    test::section("r2", "KLM", "PH-ABCDEFGHIJ"), test::section("r3", "KLM", "PH-*"),
                    test::section("r4", "KLM", "PH-BXC, ;c"), test::section("r5", "KLM", ";nothing"),
                    test::section("r6", "KLM", "PH-ABCDEFGHI"), test::section("r7", "KLM", "PH-BXD ;c")}});
  ASSERT_EQ(liveries.size(), 8u) << "a bad regcode costs the regcode, never the livery";
  std::vector<std::string> regcodes;
  for (const LiveryData& livery : liveries)
    regcodes.push_back(livery.regcode);
  EXPECT_THAT(regcodes, ElementsAre("PH-BXA", "", "", "", "", "", "PH-ABCDEFGHI", "PH-BXD"));
  const std::string text = test::logText();
  EXPECT_THAT(text, HasSubstr("regcode: PH-ABCDEFGHIJ, has more than 12 chars or contains UTF16 chars in \"" +
                              pathOf("regcodes") + "\"?\n"));
  EXPECT_THAT(text, HasSubstr("===> " + pathOf("regcodes") + " [fltsim.3] wild cards no longer supported"));
  EXPECT_THAT(text, HasSubstr("regcode is a space char? " + pathOf("regcodes") + " [fltsim.4]\n"));
  EXPECT_THAT(text, HasSubstr("invalid atc_id=;nothing ==> in: [fltsim.5]\n"));
}

TEST_F(AircraftCfgTest, brokenSectionsAreReportedAndTheOthersRead) {
  test::CfgFile file{.atcModel = "B738",
                     .sections = {test::section("   ", "KLM"), test::section("two titles", "KLM"),
                                  test::section("two code keys", "KLM"),
                                  test::section("two ids", "KLM", "PH-A"), test::section("no texture", "KLM"),
                                  test::section("no codes", ""), test::section("good", "DAL")}};
  file.sections[1].extraLines = {"title=again"};
  file.sections[2].extraLines = {"atc_parking_codes=DAL"};
  file.sections[3].extraLines = {"atc_id=PH-B"};
  file.sections[4].texture = "gone";
  file.sections[6].extraLines = {"", "// trailing comment"};
  const fs::path path = "SimObjects/broken/aircraft.cfg";
  test::writeCfg(path, file);
  fs::remove_all("SimObjects/broken/texture.gone");
  // A section ends at the next line with a '[' near its start: the title of [General] belongs to no livery.
  test::writeBytes(path, test::readFile(path) + "[Extra]\ntitle=not a livery\n");

  EXPECT_THAT(titles(lf_searchLiveriesinFile(1, path)), ElementsAre("good"));
  const std::string fileText = pathText(path);
  EXPECT_THAT(incompleteSectionsReport.lines(),
              ElementsAre(fileText + " [fltsim.0] misses title",
                          fileText + " [fltsim.1] has more than one title key",
                          fileText + " [fltsim.2] has more than one atc_parking_codes key",
                          fileText + ", [fltsim.3], has more than one atc_id key",
                          pathText(fs::path("SimObjects/broken/texture.gone")) + " [fltsim.4] does not exist",
                          fileText + " [fltsim.5] empty atc_parking_codes="));
}

TEST_F(AircraftCfgTest, titlesAreUniqueAcrossFilesAndDontUseTitlesAreSkipped) {
  dontUseTitles = {"Banned livery"};
  prepareScan();
  EXPECT_THAT(titles(read("first", {.atcModel = "B738", .sections = {test::section("Same", "KLM,DAL")}})),
              ElementsAre("Same", "Same"));
  EXPECT_THAT(
      titles(read("second", {.atcModel = "A320",
                             .sections = {test::section("Same", "KLM"), test::section("Banned livery", "KLM"),
                                          test::section("Other", "KLM")}})),
      ElementsAre("Other"));
  EXPECT_THAT(incompleteSectionsReport.lines(),
              ElementsAre(pathOf("second") + " [fltsim.0] title \"Same\" already exists"));
}

TEST_F(AircraftCfgTest, theTypeComesFromAtcModelRepairedByTheFixes) {
  EXPECT_THAT(read("nomodel", {.sections = {test::section("n0", "KLM")}}), IsEmpty());
  EXPECT_THAT(read("unknown", {.atcModel = "XXXX", .sections = {test::section("u0", "KLM")}}), IsEmpty());
  const auto fixed = read("fixed", {.atcModel = "B737-800", .sections = {test::section("f0", "KLM")}});
  ASSERT_EQ(fixed.size(), 1u);
  EXPECT_EQ(fixed[0].type, "B738");

  EXPECT_THAT(invalidFilesReport.lines(),
              ElementsAre("Line atc_model= is missing in [General] section of " + pathOf("nomodel")));
  EXPECT_THAT(invalidModelsReport.lines(), ElementsAre("XXXX             in " + pathOf("unknown")));
  EXPECT_THAT(fixesReport.lines(),
              ElementsAre("Fix: B737-800 found in " + pathOf("fixed") + " changed into B738"));
}

TEST_F(AircraftCfgTest, folderNamesAreFoundAsTheSimulatorFindsThem) {
  test::CfgFile file{.atcModel = "B738",
                     .sections = {test::section("upper", "KLM"), test::section("comment", "KLM"),
                                  test::section("plain", "KLM")}};
  file.sections[0].texture = "klm_1";
  file.sections[1].model = "long //clean,long";
  file.makeFolders = false;
  const fs::path folder = "SimObjects/cases";
  test::writeCfg(folder / "aircraft.cfg", file);
  for (const char* made : {"Texture.KLM_1", "model.long", "MODEL", "texture"})
    fs::create_directories(folder / made);
  test::writeBytes(folder / "Aircraft.AIR", "AIR");
  EXPECT_THAT(titles(lf_searchLiveriesinFile(1, folder / "aircraft.cfg")),
              ElementsAre("upper", "comment", "plain"));

  fs::remove(folder / "Aircraft.AIR");
  fs::create_directories(folder / "aircraft.air");
  prepareScan();
  EXPECT_THAT(lf_searchLiveriesinFile(1, folder / "aircraft.cfg"), IsEmpty()) << "the flight model is a file";
}

// Of three missing paths only the first is reported: model, texture, flight model; IVAO files test the flight
// model before the texture.
TEST_F(AircraftCfgTest, theFirstMissingPathIsTheOneReported) {
  const auto section = [](std::string title, std::string model, std::string texture, std::string sim) {
    test::CfgSection made = test::section(std::move(title), "KLM");
    made.model = std::move(model);
    made.texture = std::move(texture);
    made.sim = std::move(sim);
    return made;
  };
  for (const char* folder : {"SimObjects/paths", "SimObjects/IVAO_MTL/IVAO_B738"}) {
    const std::vector<test::CfgSection> sections{
        section("KLM all gone", "gone", "gone", "gone"), section("KLM two gone", "", "gone", "gone"),
        section("KLM air gone", "", "", "gone"),
        section(fmt::format("KLM in {}", folder), "", "", "aircraft")};
    test::writeCfg(fs::path(folder) / "aircraft.cfg",
                   {.atcModel = "B738", .sections = sections, .makeFolders = false});
    for (const char* made : {"model", "texture"})
      fs::create_directories(fs::path(folder) / made);
    test::writeBytes(fs::path(folder) / "aircraft.air", "AIR");
  }
  EXPECT_THAT(titles(lf_searchLiveriesinFile(1, "SimObjects/paths/aircraft.cfg")),
              ElementsAre("KLM in SimObjects/paths"));
  EXPECT_THAT(titles(lf_searchIvaoLiveriesinFile(1, "SimObjects/IVAO_MTL/IVAO_B738/aircraft.cfg")),
              ElementsAre("KLM in SimObjects/IVAO_MTL/IVAO_B738"));
  const auto missing = [](const char* folder, const char* name, int section) {
    return fmt::format("{} [fltsim.{}] does not exist", pathText(fs::path(folder) / name), section);
  };
  EXPECT_THAT(incompleteSectionsReport.lines(),
              ElementsAre(missing("SimObjects/paths", "model.gone", 0),
                          missing("SimObjects/paths", "texture.gone", 1),
                          missing("SimObjects/paths", "gone.air", 2),
                          missing("SimObjects/IVAO_MTL/IVAO_B738", "model.gone", 0),
                          missing("SimObjects/IVAO_MTL/IVAO_B738", "gone.air", 1),
                          missing("SimObjects/IVAO_MTL/IVAO_B738", "gone.air", 2)));
}

// Titles come out in UTF-8 whatever the encoding of the file; a file without a mark that is no UTF-8 is ANSI.
TEST_F(AircraftCfgTest, simCfgAndFilesOfEveryEncodingGiveUtf8Titles) {
  const std::string title = "Air France Soci\xC3\xA9t\xC3\xA9 M\xC3\xBCnchen";
  for (const auto& [name, encoding] : {std::pair{"utf8", test::CfgEncoding::utf8},
                                       {"utf8Bom", test::CfgEncoding::utf8Bom},
                                       {"utf16", test::CfgEncoding::utf16},
                                       {"ansi", test::CfgEncoding::ansi}}) {
    prepareScan(); // the same title again
    const fs::path path = fs::path("SimObjects") / name / "SIM.CFG";
    test::writeCfg(
        path,
        {.atcModel = "B77W", .sections = {test::section(title, "AFR", "F-GSQA")}, .encoding = encoding});
    const auto liveries = lf_searchLiveriesinFile(1, path);
    ASSERT_EQ(liveries.size(), 1u) << name;
    EXPECT_EQ(liveries[0].title, title) << name;
    EXPECT_EQ(liveries[0].regcode, "F-GSQA") << name;
    EXPECT_EQ(liveries[0].type, "B77W") << name;
  }
}

TEST_F(AircraftCfgTest, ivaoFilesTakeTheAirlineFromTheTitleAndTheTypeFromTheFolder) {
  const fs::path a320 = "SimObjects/IVAO_MTL/IVAO_A320w/aircraft.cfg";
  test::writeCfg(a320,
                 {.atcModel = "B738",
                  .sections = {test::section("KLM Airbus", ""), test::section("EMB house", "", "PH-EMB"),
                               test::section("K", ""), test::section("XYZ Airbus", ""),
                               test::section("DAL Airbus CARGO", "", "N300DN;x")}});
  EXPECT_TRUE(isIvaoPath(backslashPath(a320)));
  const auto liveries = lf_searchIvaoLiveriesinFile(2, a320);
  ASSERT_EQ(liveries.size(), 3u);
  EXPECT_EQ(liveries[0].airline, "KLM");
  EXPECT_EQ(liveries[0].type, "A320") << "the folder, not atc_model, gives the type";
  EXPECT_EQ(liveries[1].airline, "ZZZ");
  EXPECT_EQ(liveries[1].regcode, "");
  EXPECT_EQ(liveries[2].airline, "DAL");
  EXPECT_EQ(liveries[2].regcode, "N300DN;x") << "no comment is cut in this form";
  EXPECT_FALSE(liveries[2].cargo);
  const std::string file = pathText(a320);
  EXPECT_THAT(incompleteSectionsReport.lines(),
              ElementsAre(file + " [fltsim.2] misses airlinecode in title"));
  EXPECT_THAT(invalidAirlinesReport.lines(), ElementsAre("XYZ          in " + file + " [fltsim.3]"));

  const fs::path glider = "SimObjects/IVAO_MTL/IVAO_GLID_KA6/aircraft.cfg";
  const fs::path stray = "SimObjects/IVAO_MTL/IVAO_B738/sim.cfg";
  for (const fs::path& path : {glider, stray}) {
    test::writeCfg(path, {.sections = {test::section("KLM glider", "")}});
    EXPECT_THAT(lf_searchIvaoLiveriesinFile(2, path), IsEmpty());
  }
  EXPECT_THAT(invalidModelsReport.lines(), ElementsAre("GLID             in " + pathText(glider),
                                                       "                 in " + pathText(stray)));
}

// A real military package: its squadron codes are government operators, its type a maker's name.
TEST_F(AircraftCfgTest, aRealPackageGivesItsLiveriesThroughTheFixes) {
  const fs::path folder = "SimObjects/Airplanes/TQL_EF2000";
  fs::create_directories(folder);
  fs::copy_file(test::realData("aircraft_cfg/TQL_NBAI_Eurofighter_EF2000_Spain_Ala_14.aircraft.cfg"),
                folder / "aircraft.cfg");
  const std::regex texture("texture=(.*)");
  for (const std::string& line : test::fileLines(folder / "aircraft.cfg")) {
    std::smatch match;
    if (std::regex_match(line, match, texture))
      fs::create_directories(folder / ("texture." + match[1].str()));
  }
  fs::create_directories(folder / "model.long");
  fs::create_directories(folder / "model.clean");
  test::writeBytes(folder / "NBAI_Typhoon_F2_AI_ONLY.air", "AIR");

  const auto liveries = lf_searchLiveriesinFile(1, folder / "aircraft.cfg");
  ASSERT_EQ(liveries.size(), 64u) << "32 sections, each with the codes of two squadrons";
  std::set<std::string> distinct;
  for (const LiveryData& livery : liveries) {
    EXPECT_EQ(livery.airline, "PVT");
    EXPECT_EQ(livery.type, "EUFI");
    distinct.insert(livery.title);
  }
  EXPECT_EQ(distinct.size(), 32u);
  EXPECT_EQ(liveries.front().title, "MAIW_NBAI_F2_SAF Ala14 C.16-31");
  EXPECT_EQ(liveries.front().regcode, "14-01");
  const auto fixes = fixesReport.lines();
  EXPECT_EQ(fixes.front(),
            "Fix: Typhoon found in " + pathText(folder / "aircraft.cfg") + " changed into EUFI");
  EXPECT_EQ(fixes.size(), 1u + 64u);
  EXPECT_THAT(incompleteSectionsReport.lines(), IsEmpty());
}

// Every cut of a real file (with its [General] section put first, so that a cut leaves a type) reads without
// harm; a cut at a line end gives only liveries that the whole file gives, and never fewer than a shorter
// cut.
TEST_F(AircraftCfgTest, aCutOffFileGivesOnlyLiveriesOfTheWholeFile) {
  const fs::path folder = "SimObjects/Airplanes/cut";
  std::string general;
  std::string rest;
  bool inGeneral = false;
  for (const std::string& line : test::fileLines(
           test::realData("aircraft_cfg/TQL_NBAI_Eurofighter_EF2000_Spain_Ala_14.aircraft.cfg"))) {
    if (line.starts_with('[')) inGeneral = line.starts_with("[General]");
    (inGeneral ? general : rest) += line + "\n";
  }
  const std::string whole = general + rest;
  for (const char* made : {"model.long", "model.clean"})
    fs::create_directories(folder / made);
  for (int n = 1; n <= 45; ++n)
    fs::create_directories(folder / fmt::format("texture.Ala 14_14-{:02}", n));
  test::writeBytes(folder / "NBAI_Typhoon_F2_AI_ONLY.air", "AIR");
  const auto readCut = [&](std::size_t length) {
    prepareScan();
    test::writeBytes(folder / "aircraft.cfg", whole.substr(0, length));
    std::vector<std::string> liveries;
    for (const LiveryData& livery : lf_searchLiveriesinFile(1, folder / "aircraft.cfg"))
      liveries.push_back(livery.title + "|" + livery.regcode + "|" + livery.airline + "|" + livery.type);
    return liveries;
  };
  const std::vector<std::string> all = readCut(whole.size());
  ASSERT_EQ(all.size(), 64u);
  std::size_t before = 0;
  for (std::size_t end = whole.find('\n'); end != std::string::npos; end = whole.find('\n', end + 1)) {
    const std::vector<std::string> cut = readCut(end + 1);
    for (const std::string& livery : cut)
      EXPECT_NE(std::find(all.begin(), all.end(), livery), all.end())
          << "cut after byte " << end << ": " << livery;
    EXPECT_GE(cut.size(), before) << "cut after byte " << end;
    before = cut.size();
  }
  EXPECT_EQ(before, all.size());
  for (std::size_t length = 1; length < whole.size(); length += 89)
    EXPECT_LE(readCut(length).size(), all.size());
}

} // namespace
} // namespace ory
