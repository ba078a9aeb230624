#include "base/log.h"
#include "base/paths.h"
#include "dataprep.h"
#include "liveries/dbase.h"
#include "liveries/fixes.h"
#include "parking/airport_database.h"
#include "support/process.h"
#include "support/scratch.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <stdexcept>

namespace ory {
namespace {

namespace fs = std::filesystem;

const fs::path rules = DATAPREP_RULES_DIR;

bool lf_warned(std::string_view part) {
  return std::any_of(prepWarnings.begin(), prepWarnings.end(),
                     [&](const std::string& w) { return w.find(part) != std::string::npos; });
}

class DataprepTest : public test::InScratchFolder {
protected:
  void SetUp() override { prepWarnings.clear(); }
  void TearDown() override {
    clearDbase();
    clearFixes();
    clearAirports();
  }
};

// The whole road: real reference data through the rules into the files, and back through the program's
// readers.
TEST_F(DataprepTest, realSourcesMakeFilesTheProgramReads) {
  Sources sources;
  const fs::path reference = test::realData("reference");
  readTypeSources(reference, sources);
  readWingspanSources(reference, sources);
  readAirlineSources(reference, sources);
  readAirportSources(reference, rules, sources);
  readRegistrationSource(test::realData("adsb/sample_hex_registry_subset.csv"), sources);
  const PreparedData data = prepareData(sources, rules);
  writeDbaseXml(data, dbaseFile);
  writeFixesXml(data, fixesFile);
  writeAirportsXml(data, airportsP3dFile);

  // The required sections come last, so that a cut-off file is refused.
  const std::string stored = test::readFile(dbaseFile);
  EXPECT_EQ(std::string_view(stored).substr(stored.rfind("</") + 2), "cargo_operators>\n");
  // Scrambled: no registration of the sources stands in the file as plain text.
  EXPECT_EQ(stored.find("PH-HZO"), std::string::npos);
  EXPECT_EQ(stored.find("\"B744"), std::string::npos);

  openLog();
  ASSERT_TRUE(readDbase());
  readFixes();
  ASSERT_TRUE(readAirports());
  closeLog();
  const std::string log = test::readFile("Log.txt");
  EXPECT_EQ(log.find("===> "), std::string::npos)
      << log; // the tool left nothing for the program to warn about

  EXPECT_GT(aircraftTypes.size(), 2500u);
  EXPECT_GT(icaoAirlines.size(), 5000u);
  EXPECT_TRUE(isValidAirline("KLM"));
  EXPECT_TRUE(cargoOperators.contains("FDX"));
  EXPECT_TRUE(cargoTypes.contains("BLCF"));
  EXPECT_EQ(modelCategory("B744"), ModelCategory::Heavy);
  EXPECT_EQ(modelCategory("A320"), ModelCategory::Large);
  EXPECT_EQ(modelCategory("AT76"), ModelCategory::Large);
  EXPECT_EQ(modelCategory("GLEX"), ModelCategory::Buzjets); // medium wake, yet a business jet
  EXPECT_EQ(modelCategory("C56X"), ModelCategory::Buzjets);
  EXPECT_EQ(modelCategory("EC35"), ModelCategory::Rotorcraft);
  EXPECT_EQ(modelCategory("MI26"), ModelCategory::Rotorcraft); // a heavy helicopter stays a helicopter
  EXPECT_EQ(modelCategory("F16"), ModelCategory::HighPerf);
  EXPECT_EQ(modelCategory("EUFI"), ModelCategory::HighPerf);
  EXPECT_EQ(modelCategory("C172"), ModelCategory::Light);
  EXPECT_NEAR(halfWingspan("B744"), sources.wingspanMeters.at("B744") * 0.5 / 1852, 1e-6);
  EXPECT_NEAR(halfWingspan("B789"), 60.12 * 0.5 / 1852, 1e-6); // from the tool's own list
  for (std::size_t category = 0; category < modelCategoryCount; ++category)
    EXPECT_FALSE(std::isnan(categoryAverageHalfWingspan[category])) << category;
  const auto family = std::find_if(similarGroups.begin(), similarGroups.end(), [](const auto& g) {
    return std::find(g.begin(), g.end(), "B738") != g.end();
  });
  ASSERT_NE(family, similarGroups.end());
  EXPECT_EQ(*family, (std::vector<std::string>{"B736", "B737", "B738", "B739"}));

  EXPECT_EQ(lookupDbaseType("PHHZO"), "B738");
  EXPECT_EQ(lookupDbaseType("N899DN"), "B739");
  EXPECT_EQ(findPublisher("thirdparty/FlyTampa_EKCH.xml"), "FlyTampa");
  EXPECT_EQ(findPublisher("thirdparty/fly tampa EHAM.xml"), "FlyTampa");
  EXPECT_EQ(modelFixes.at("A320NEO"), "A20N");
  EXPECT_TRUE(govFixes.contains("MIL"));

  EXPECT_GT(airports.size(), 30000u);
  const AirportRecord* schiphol = findAirport("EHAM");
  ASSERT_NE(schiphol, nullptr);
  EXPECT_EQ(airportText(*schiphol), "EHAM(AMS)");
  EXPECT_NEAR(schiphol->lat, 52.3086, 0.001);
  EXPECT_NEAR(schiphol->altitude, -11, 1);

  // The plain text for a person: every section, every code readable again.
  const std::string shown = showDbase(dbaseFile);
  for (const char* part :
       {"[aircrafts]", "[similar_types]", "[wingspans]", "[publishers]", "reg=\"PH-HZO\" type=\"B738\"",
        "similar types=\"B736,B737,B738,B739\"", "pub names=\"FlyTampa,Fly ?Tampa\""})
    EXPECT_NE(shown.find(part), std::string::npos) << part;
}

Sources lf_smallSources() {
  Sources sources;
  sources.types = {{"B744", {"BOEING 747-400", "L4J", "H"}},
                   {"A320", {"AIRBUS A-320", "L2J", "M"}},
                   {"GLEX", {"BOMBARDIER Global", "L2J", "M"}},
                   {"MI26", {"MIL Mi-26", "H2T", "H"}},
                   {"F16", {"GENERAL DYNAMICS F-16", "L1J", "M"}},
                   {"C172", {"CESSNA 172", "L1P", "L"}},
                   {"B77L", {"BOEING 777-200LR Freighter", "L2J", "H"}}};
  sources.airlines = {{"KLM", {"KLM"}}, {"FDX", {"FedEx"}}, {"CLX", {"Cargolux"}}, {"GOV", {"Some airline"}}};
  return sources;
}

void lf_writeRules(std::string_view categories) {
  test::writeBytes("rules/categories.txt", categories);
  test::writeBytes("rules/cargo_types.txt", "# comment\nname~freighter\nB744 XXXX\n");
  test::writeBytes("rules/similar.txt", "A320, C172 ZZZZ\nB744 QQQQ\n");
  test::writeBytes("rules/cargo_operators.txt", "CLX\nname~^fedex$\n");
  test::writeBytes("rules/publishers.txt", "FlyTampa, Fly ?Tampa\nFlyTampa, Fly ?Tampa\nBroken, Br(oken\n");
  test::writeBytes("rules/wingspans.txt", "B744 68.4\nA320 1000\nXXXX 30\n");
  test::writeBytes("rules/fixes.txt", "[fixes]\nB747 = B744\nB747 = A320\nA320 = B744\nQ400 = "
                                      "DH8D\n[PVT_fixes]\nPRIV\nKLM\n[GOV_fixes]\nMIL\n");
}

constexpr std::string_view categories = "rotorcraft: class=H\n"
                                        "heavy: wake=H\n"
                                        "buzjet: engine=J; name~global\n"
                                        "high_performance: engine=J; !engines=2|3|4\n"
                                        "large: wake=M\n";

TEST_F(DataprepTest, rulesPlaceEachTypeOnceAndRefuseWhatTheProgramWouldRefuse) {
  lf_writeRules(categories);
  Sources sources = lf_smallSources();
  sources.wingspanMeters = {{"B744", 64.4}, {"C172", 11}};
  sources.registrations = {{"PH-BXA", "B744", "KLM", "KLM", false},
                           {"ph-bxb", "A320", "", "", false},
                           {"PH-BXA", "A320", "", "", false},
                           {"N12345", "XXXX", "ABC", "FDX", true},
                           {"TOOLONGREGCODE", "", "", "", false}};
  sources.aigLiveries = {{"Only a long regcode", {"PH-BXA1234567"}, false},
                         {"Two regcodes", {"PH-BXA", "PH-BXA1234567"}, true},
                         {"Not to use", {}, false}};
  const PreparedData data = prepareData(sources, "rules");

  EXPECT_EQ(data.categories.at("rotorcraft"), (std::set<std::string>{"MI26"})); // first rule wins over heavy
  EXPECT_EQ(data.categories.at("heavy"), (std::set<std::string>{"B744", "B77L"}));
  EXPECT_EQ(data.categories.at("buzjet"), (std::set<std::string>{"GLEX"}));
  EXPECT_EQ(data.categories.at("high_performance"), (std::set<std::string>{"F16"}));
  EXPECT_EQ(data.categories.at("large"), (std::set<std::string>{"A320"}));
  EXPECT_EQ(data.cargoTypes, (std::set<std::string>{"B744", "B77L"}));
  EXPECT_TRUE(lf_warned("cargo_types.txt: XXXX is unknown"));
  EXPECT_EQ(data.cargoOperators, (std::set<std::string>{"CLX", "FDX"}));

  ASSERT_EQ(data.similarGroups.size(), 1u);
  EXPECT_EQ(data.similarGroups[0], (std::vector<std::string>{"A320", "C172"}));
  EXPECT_TRUE(lf_warned("A320 and C172 are of different categories"));
  EXPECT_TRUE(lf_warned("\"B744 QQQQ\" has fewer than two known types"));

  EXPECT_EQ(data.publishers, (std::vector<std::string>{"FlyTampa,Fly ?Tampa", "Broken"}));
  EXPECT_TRUE(lf_warned("name \"Br(oken\" is no valid expression"));

  EXPECT_EQ(data.wingspans, (std::map<std::string, double>{{"B744", 68.4}, {"C172", 11}})); // own list first
  EXPECT_TRUE(lf_warned("wingspan of A320: 1000 m is no real span"));
  EXPECT_TRUE(lf_warned("wingspan of XXXX: unknown type"));

  ASSERT_EQ(data.registrations.size(), 2u);
  EXPECT_EQ(data.registrations[0].opr, ""); // the operator is only kept when it differs from the owner
  EXPECT_EQ(data.registrations[1].type, "");
  EXPECT_EQ(data.registrations[1].airline, "");
  EXPECT_EQ(data.registrations[1].opr, "FDX");
  EXPECT_TRUE(lf_warned("registration \"ph-bxb\" is no storable regcode"));
  EXPECT_TRUE(lf_warned("registration \"TOOLONGREGCODE\" is no storable regcode"));
  EXPECT_TRUE(lf_warned("registration PH-BXA twice"));

  // A binding left without regcodes would read as a title not to use.
  ASSERT_EQ(data.aigLiveries.size(), 2u);
  EXPECT_EQ(data.aigLiveries[0].regcodes, std::vector<std::string>{"PH-BXA"});
  EXPECT_EQ(data.aigLiveries[1].title, "Not to use");
  EXPECT_TRUE(lf_warned("AIG title \"Only a long regcode\": no regcode left"));

  EXPECT_EQ(data.modelFixes, (std::vector<std::pair<std::string, std::string>>{{"B747", "B744"}}));
  EXPECT_TRUE(lf_warned("fixes.txt: B747 twice"));
  EXPECT_TRUE(lf_warned("fixes.txt: A320 is a valid type itself"));
  EXPECT_TRUE(lf_warned("fixes.txt: DH8D is no valid type"));
  EXPECT_EQ(data.pvtFixes, std::vector<std::string>{"PRIV"});
  EXPECT_EQ(data.govFixes, std::vector<std::string>{"MIL"});
}

TEST_F(DataprepTest, aFileTheProgramWouldRefuseIsNotMade) {
  lf_writeRules("heavy: wake=H\nlarge: wake=M\n"); // no rotorcraft, buzjet or high performance rule
  try {
    prepareData(lf_smallSources(), "rules");
    ADD_FAILURE() << "no exception";
  } catch (const std::runtime_error& e) {
    EXPECT_STREQ(e.what(), "section buzjet would be empty: the program would refuse it");
  }
  lf_writeRules("heavy: wake=H\nsmall: wake=L\n");
  EXPECT_THROW(prepareData(lf_smallSources(), "rules"), std::runtime_error);
  lf_writeRules("heavy: weight=H\n");
  EXPECT_THROW(prepareData(lf_smallSources(), "rules"), std::runtime_error);
}

TEST_F(DataprepTest, sourceFilesOfEveryShapeAreRead) {
  EXPECT_EQ(splitCsvLine(R"(1,"Aero ""B"" Ranch, KS",,"x")"),
            (std::vector<std::string>{"1", "Aero \"B\" Ranch, KS", "", "x"}));

  test::writeBytes("regs.csv",
                   "\xEF\xBB\xBFreg,type,operator,cargo\r\nPH-BXA,B738,TRA,yes\r\nD-AIRN,A321,,\r\n");
  Sources sources;
  readRegistrationSource("regs.csv", sources);
  ASSERT_EQ(sources.registrations.size(), 2u);
  EXPECT_EQ(sources.registrations[0].opr, "TRA");
  EXPECT_TRUE(sources.registrations[0].cargo);
  EXPECT_FALSE(sources.registrations[1].cargo);
  test::writeBytes("bad.csv", "hex,tail\n1,2\n");
  EXPECT_THROW(readRegistrationSource("bad.csv", sources), std::runtime_error);

  test::writeBytes("aig.txt", "KLM 737 PH-BXA;PH-BXA\nKLM 737 special;PH-BXB, PH-BXC;#\nOld livery title\n"
                              "Wrong;PH-X;x\nWrong;PH-X;#;4\nNothing bound; , \n");
  readAigSource("aig.txt", sources);
  ASSERT_EQ(sources.aigLiveries.size(), 3u);
  EXPECT_FALSE(sources.aigLiveries[0].special);
  EXPECT_EQ(sources.aigLiveries[1].regcodes, (std::vector<std::string>{"PH-BXB", "PH-BXC"}));
  EXPECT_TRUE(sources.aigLiveries[1].special);
  EXPECT_TRUE(sources.aigLiveries[2].regcodes.empty()); // a title not to use
  EXPECT_EQ(prepWarnings.size(), 3u);                   // "Nothing bound" is no title not to use

  PreparedData data;
  data.aigLiveries = sources.aigLiveries;
  writeAigRegcodesXml(data, aigRegcodesFile);
  const std::string xml = test::readFile(aigRegcodesFile);
  EXPECT_NE(xml.find(R"(<livery title="KLM 737 special" reg="PH-BXB,PH-BXC" special="true" />)"),
            std::string::npos)
      << xml;
  EXPECT_NE(xml.find(R"(<livery title="Old livery title" reg="" />)"), std::string::npos);
  writeVersionJson(2026, 1123, 5, "version.json");
  EXPECT_EQ(test::readFile("version.json"), "{\"major\":2026,\"minor\":1123,\"patch\":5}\n");
}

// The command line as the build and a person use it: default sources and rules, exit codes 0, 1 and 2.
TEST_F(DataprepTest, theCommandLineBuildsShowsAndRefusesWhatItCannotDo) {
  const fs::path here = fs::current_path();
  const auto run = [&](const std::vector<std::string>& arguments) {
    test::ChildProcess dataprep(DATAPREP_PROGRAM, arguments, here, here, here / "output.txt");
    return dataprep.waitExit(std::chrono::seconds(60));
  };
  test::writeBytes("aig.txt", "KLM 737 special;PH-BXB;#\n");
  ASSERT_EQ(run({"build", "--out", "served", "--aig", "aig.txt", "--version", "2026.1123.5"}), 0)
      << test::readFile("output.txt");
  EXPECT_NE(test::readFile("output.txt").find("version 2026.1123.5: "), std::string::npos);
  for (const char* file : {"dbase/version.json", "aig/version.json"})
    EXPECT_EQ(test::readFile(here / "served" / file), "{\"major\":2026,\"minor\":1123,\"patch\":5}\n");
  EXPECT_NE(test::readFile("served/aig/AIG-regcodes.xml").find(R"(title="KLM 737 special" reg="PH-BXB")"),
            std::string::npos);
  EXPECT_TRUE(fs::exists("served/fixes.xml"));
  EXPECT_TRUE(fs::exists("served/airports_p3d.xml"));

  ASSERT_EQ(run({"show", "served/dbase/dbase.xml"}), 0);
  EXPECT_NE(test::readFile("output.txt").find("[cargo_operators] "), std::string::npos);

  test::writeBytes("broken.xml", "no XML <");
  EXPECT_EQ(run({"show", "broken.xml"}), 1);
  EXPECT_NE(test::readFile("output.txt").find("dataprep: broken.xml not read: "), std::string::npos);
  fs::create_directories("empty");
  EXPECT_EQ(run({"build", "--out", "again", "--sources", "empty"}), 1);
  for (const std::vector<std::string>& wrong : {std::vector<std::string>{},
                                                {"build"},
                                                {"build", "--out"},
                                                {"build", "--out", "x", "--colour", "red"},
                                                {"show"},
                                                {"make", "--out", "x"}}) {
    EXPECT_EQ(run(wrong), 2) << wrong.size();
    EXPECT_TRUE(test::readFile("output.txt").starts_with("usage: dataprep build --out DIR"));
  }
  EXPECT_FALSE(fs::exists("x"));
}

} // namespace
} // namespace ory
