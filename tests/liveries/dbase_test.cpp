#include "base/exceptions.h"
#include "base/log.h"
#include "liveries/dbase.h"
#include "liveries/scramble.h"
#include "support/scratch.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <cmath>
#include <initializer_list>
#include <type_traits>

namespace ory {
namespace {

using Codes = std::initializer_list<std::string_view>;

std::string lf_models(Codes codes) {
  std::string list;
  for (const std::string_view code : codes)
    list += (list.empty() ? "" : " , ") + scrambleModel(code);
  return list;
}

std::string lf_airlines(Codes codes) {
  std::string list;
  for (const std::string_view code : codes)
    list += (list.empty() ? "" : ",") + scrambleAirline(code);
  return list;
}

// A db element; empty texts stay empty attributes.
std::string lf_record(std::string_view reg, std::string_view airl, std::string_view type,
                      std::string_view opr, std::string_view cargo) {
  return fmt::format(R"(<db reg="{}" airl="{}" type="{}" opr="{}" cargo="{}"/>)", scrambleRegcode(reg),
                     airl.empty() ? "" : scrambleAirline(airl), type.empty() ? "" : scrambleModel(type),
                     opr.empty() ? "" : scrambleAirline(opr), cargo);
}

struct Sections {
  std::string types =
      lf_models({"A320", "B744", "B77W", "C172", "EC35", "F16", "C56X", "GLEX", "MI26", "AT72"});
  std::string highPerf = lf_models({"F16"});
  std::string heavy = lf_models({"B744", "B77W", "MI26", "AT72"});
  std::string large = lf_models({"A320", "AT72"});
  std::string buzjet = lf_models({"C56X", "GLEX"});
  std::string rotorcraft = lf_models({"EC35", "MI26"});
  std::string airlines = lf_airlines({"KLM", "DAL", "FDX", "TRA"});
  std::string extra; // optional sections, before the required ones as dataprep writes them
};

void lf_writeDbase(const Sections& s) {
  test::writeBytes("input/dbase.xml",
                   fmt::format(R"(<?xml version="1.0"?>
{}
<aircrafts><aircraft types="{}"/></aircrafts>
<high_performance><hpf types="{}"/></high_performance>
<heavy><hvy types="{}"/></heavy>
<large><lar types="{}"/></large>
<buzjet><bzj types="{}"/></buzjet>
<rotorcraft><rot types="{}"/></rotorcraft>
<cargo_types><cargo_type types="{}"/></cargo_types>
<ICAO_airlines><ICAO codes="{}"/><ICAO codes="{}"/></ICAO_airlines>
<cargo_operators><ICAO codes="{}"/></cargo_operators>)",
                               s.extra, s.types, s.highPerf, s.heavy, s.large, s.buzjet, s.rotorcraft,
                               lf_models({"B744"}), s.airlines, lf_airlines({"CLX"}), lf_airlines({"FDX"})));
}

class DbaseTest : public test::InScratchFolder {
protected:
  void SetUp() override { openLog(); }
  void TearDown() override {
    closeLog();
    clearDbase();
  }
};

const std::string fullExtra = fmt::format(
    R"(<similar_types><similar types="{}"/><similar types="{}"/></similar_types>
<publishers><pub names="FlyTampa, Fly Tampa"/><pub names="Aerosoft"/><pub names="FlyTampa, Fly Tampa"/>
<pub names="Drzewiecki Design,DD ?Design"/></publishers>
<wingspans><wingspan type="{}" meters="60"/><wingspan type="{}" meters="80"/><wingspan type="{}" meters="68.4"/>
<wingspan type="{}" meters="11"/><wingspan type="{}" meters="34.1"/><wingspan type="{}" meters="20"/></wingspans>
<dbase>{}{}{}{}{}</dbase>)",
    lf_models({"B77W", "B744", "A320"}), lf_models({"C172"}), scrambleModel("B77W"), scrambleModel("B77W"),
    scrambleModel("B744"), scrambleModel("C172"), scrambleModel("A320"), scrambleModel("ZZZZ"),
    lf_record("PH-BXA", "KLM", "B738", "", "false"), lf_record("D-AIRN", "DAL", "A321", "TRA", "0"),
    lf_record("N899DN", "DAL", "B739", "", "Yes"), lf_record("PH-BXA", "DAL", "A320", "", ""),
    lf_record("HBJBH", "", "", "", ""));

TEST_F(DbaseTest, aCompleteFileFillsEveryTable) {
  lf_writeDbase({.extra = fullExtra});
  ASSERT_TRUE(readDbase());

  EXPECT_EQ(aircraftTypes.size(), 10u);
  EXPECT_TRUE(isValidModel("B77W"));
  EXPECT_FALSE(isValidModel("B77w"));
  EXPECT_FALSE(isValidModel(""));
  EXPECT_TRUE(isValidAirline("KLM"));
  EXPECT_TRUE(isValidAirline("CLX")); // from the second ICAO element
  EXPECT_FALSE(isValidAirline("XYZ"));
  EXPECT_TRUE(cargoTypes.contains("B744"));
  EXPECT_TRUE(cargoOperators.contains("FDX"));

  // Similar groups are sorted inside, in file order outside; publishers dedup and sort by their whole text.
  ASSERT_EQ(similarGroups.size(), 2u);
  EXPECT_EQ(similarGroups[0], (std::vector<std::string>{"A320", "B744", "B77W"}));
  EXPECT_EQ(similarGroups[1], (std::vector<std::string>{"C172"}));
  ASSERT_EQ(publisherGroups.size(), 3u);
  EXPECT_EQ(publisherGroups[0], (std::vector<std::string>{"Aerosoft"}));
  EXPECT_EQ(publisherGroups[1], (std::vector<std::string>{"Drzewiecki Design", "DD ?Design"}));
  EXPECT_EQ(publisherGroups[2], (std::vector<std::string>{"FlyTampa", "Fly Tampa"}));

  EXPECT_EQ(dbaseRecords.size(), 4u);
  const std::string text = test::logText();
  EXPECT_NE(text.find("===> wingspan model ZZZZ is no valid model, skipped"), std::string::npos);
  EXPECT_NE(text.find("===> regcode PH-BXA already exists"), std::string::npos);
  EXPECT_NE(text.find(fmt::format("4 dbase records from \"{}\" read",
                                  (std::filesystem::path("input") / "dbase.xml").string())),
            std::string::npos);

  // Half wingspans fall back to their category's average, or NaN.
  EXPECT_NEAR(halfWingspan("B77W"), 0.0161987, 1e-7);   // 60 m; the second entry of the model is ignored
  EXPECT_NEAR(maxHalfWingspan, 80 * 0.5 / 1852, 1e-12); // ...but still counts for the maximum
  const double b744 = 68.4 * 0.5 / 1852;
  EXPECT_NEAR(halfWingspan("MI26"), (b744 + 60 * 0.5 / 1852) / 2, 1e-12); // Heavy without a span of its own
  EXPECT_NEAR(halfWingspan("AT72"), 34.1 * 0.5 / 1852, 1e-12);            // Large: A320 alone
  EXPECT_TRUE(std::isnan(halfWingspan("EC35")));                          // no rotorcraft has a span
  EXPECT_TRUE(std::isnan(halfWingspan("C56X")));

  // Regcodes are found with and without their dash.
  const auto record = lookupDbaseRecord("PHBXA"); // stored as PH-BXA: the XX-YYY form
  ASSERT_TRUE(record);
  EXPECT_EQ(record->airl, "KLM");
  EXPECT_EQ(record->type, "B738");
  EXPECT_FALSE(record->cargo);
  EXPECT_TRUE(lookupDbaseRecord("PH-BXA"));
  EXPECT_EQ(lookupDbaseType("DAIRN"), "A321"); // the X-YYYY form
  EXPECT_EQ(lookupDbaseOpr("D-AIRN"), "TRA");
  EXPECT_EQ(lookupDbaseAirl("D-AIRN"), "DAL");
  EXPECT_TRUE(lookupDbaseRecord("N899DN")->cargo);
  EXPECT_EQ(lookupDbaseOpr("N899DN"), ""); // no operator: the owner is asked for separately
  EXPECT_EQ(lookupDbaseAirl("N899DN"), "DAL");
  EXPECT_TRUE(hasDbaseRecord("HBJBH"));
  EXPECT_EQ(lookupDbaseAirl("HBJBH"), ""); // a record with empty fields

  EXPECT_FALSE(lookupDbaseRecord("PH-XX")); // has a dash: never retried
  EXPECT_FALSE(lookupDbaseRecord("PHBX"));  // four characters: never retried
  EXPECT_FALSE(hasDbaseRecord("HB-JBH"));   // dashes are only added, never removed
  EXPECT_FALSE(hasDbaseRecord(""));
  EXPECT_EQ(lookupDbaseType("nothing"), "");

  // Publishers match as case-free expressions in group order.
  EXPECT_EQ(findPublisher("thirdparty/FlyTampa_KBOS.xml"), "FlyTampa");
  EXPECT_EQ(findPublisher("thirdparty/flytampa_kbos.xml"), "FlyTampa");
  EXPECT_EQ(findPublisher("thirdparty/FLY TAMPA EHAM.xml"), "FlyTampa");
  EXPECT_EQ(findPublisher("thirdparty/ddDESIGN_EPWA.xml"), "Drzewiecki Design"); // '?' acts as an operator
  EXPECT_EQ(findPublisher("aerosoft/FlyTampa.xml"), "Aerosoft");                 // first group wins
  EXPECT_EQ(findPublisher("thirdparty/Orbx_YBBN.xml"), "unknown");
  EXPECT_TRUE(publisherNameMatches("fly.tampa", "FLY_TAMPA"));
  EXPECT_FALSE(publisherNameMatches("fly\\.tampa", "FLY_TAMPA"));
}

TEST_F(DbaseTest, theRequiredSectionsAloneAnswerCategoriesInTheirFixedOrder) {
  lf_writeDbase({});
  ASSERT_TRUE(readDbase());
  EXPECT_EQ(modelCategory("AT72"), ModelCategory::Large); // large and heavy: large first
  EXPECT_EQ(modelCategory("MI26"), ModelCategory::Heavy); // heavy and rotorcraft: heavy first
  EXPECT_EQ(modelCategory("B744"), ModelCategory::Heavy);
  EXPECT_EQ(modelCategory("GLEX"), ModelCategory::Buzjets);
  EXPECT_EQ(modelCategory("EC35"), ModelCategory::Rotorcraft);
  EXPECT_EQ(modelCategory("F16"), ModelCategory::HighPerf);
  EXPECT_EQ(modelCategory("C172"), ModelCategory::Light); // valid, in no category
  EXPECT_EQ(modelCategory("XXXX"), ModelCategory::Light);
  // the optional sections may be missing
  EXPECT_TRUE(similarGroups.empty());
  EXPECT_TRUE(publisherGroups.empty());
  EXPECT_TRUE(wingspanTable.empty());
  EXPECT_EQ(maxHalfWingspan, 0);
  EXPECT_TRUE(dbaseRecords.empty());
  EXPECT_EQ(findPublisher("anything"), "unknown");
  EXPECT_NE(test::logText().find("0 dbase records from"), std::string::npos);
}

// The published FNV-1a test vectors; a byte above 127 must hash as unsigned, as on every platform.
TEST(TextHash, isSixtyFourBitFnv1aOverUnsignedBytes) {
  static_assert(std::is_same_v<decltype(dbaseRecords)::hasher, TextHash>);
  EXPECT_EQ(fnv1a(""), 0xcbf29ce484222325ull);
  EXPECT_EQ(fnv1a("a"), 0xaf63dc4c8601ec8cull);
  EXPECT_EQ(fnv1a("foobar"), 0x85944171f73967e8ull);
  EXPECT_EQ(fnv1a("\xff"), 0xaf64724c8602eb6eull);
}

template <typename Exception>
std::string lf_failure() {
  try {
    readDbase();
  } catch (const Exception& e) {
    return e.what();
  } catch (const std::exception& e) {
    return std::string("wrong exception: ") + e.what();
  }
  return "no exception";
}

TEST_F(DbaseTest, brokenFilesStopTheReadWithTheirMessage) {
  const std::string path = (std::filesystem::path("input") / "dbase.xml").string();
  EXPECT_EQ(lf_failure<UserErrorException>(),
            fmt::format("60: \"{}\" not read because of File was not found", path));

  test::writeBytes("input/dbase.xml", "this is no XML <");
  EXPECT_TRUE(
      lf_failure<UserErrorException>().starts_with(fmt::format("60: \"{}\" not read because of ", path)));

  lf_writeDbase({.buzjet = ""});
  EXPECT_EQ(lf_failure<UserErrorException>(), "61: In an xml file section buzjet bzj types is empty ");
  EXPECT_EQ(largeTypes.size(), 2u); // the sections before it were read
  EXPECT_TRUE(rotorcraftTypes.empty());

  lf_writeDbase({.large = " , ,"});
  EXPECT_EQ(lf_failure<UserErrorException>(), "61: In an xml file section large lar types is empty ");

  lf_writeDbase({});
  std::string whole = test::readFile("input/dbase.xml");
  whole.erase(whole.find("<rotorcraft>"), whole.find("</rotorcraft>") + 13 - whole.find("<rotorcraft>"));
  test::writeBytes("input/dbase.xml", whole);
  EXPECT_EQ(lf_failure<UserErrorException>(), "61: In an xml file section rotorcraft rot types is empty ");
  EXPECT_EQ(buzjetTypes.size(), 2u);

  lf_writeDbase({.airlines = scrambleAirline("KLM") + ",ABCDE"});
  EXPECT_EQ(lf_failure<std::runtime_error>(), "decrypt airl \"ABCDE\" error");
  lf_writeDbase(
      {.extra = fmt::format(R"(<dbase><db reg="{}" opr="ABCD"/></dbase>)", scrambleRegcode("PH-BXA"))});
  EXPECT_EQ(lf_failure<std::runtime_error>(), "decrypt airl \"ABCD\" error");

  lf_writeDbase({.extra = fmt::format(R"(<wingspans><wingspan type="{}" meters="wide"/></wingspans>)",
                                      scrambleModel("A320"))});
  EXPECT_EQ(
      lf_failure<SysErrorException>(),
      fmt::format("sys error 288: exception invalid stod argument in reading wingspans from \"{}\"", path));

  lf_writeDbase({.extra = R"(<publishers><pub names="Fly(Tampa"/></publishers>)"});
  EXPECT_TRUE(lf_failure<SysErrorException>().starts_with("sys error 299: exception "));
}

// With the required sections last, a file cut off anywhere is refused as a whole or read in full.
TEST_F(DbaseTest, aFileCutOffAtAnyMarkIsRefusedOrReadInFull) {
  lf_writeDbase({.extra = fullExtra});
  const std::string whole = test::readFile("input/dbase.xml");
  for (std::size_t length = 0; length < whole.size(); ++length) {
    if (std::string_view("<>\",\n").find(whole[length]) == std::string_view::npos)
      continue; // cut at structure
    test::writeBytes("input/dbase.xml", std::string_view(whole).substr(0, length));
    try {
      ASSERT_TRUE(readDbase());
      ASSERT_EQ(dbaseRecords.size(), 4u) << length;
    } catch (const UserErrorException& e) {
      ASSERT_TRUE(e.number == 60 || e.number == 61) << length << ": " << e.what();
    }
  }
}

TEST_F(DbaseTest, aPlainThreeLetterAirlineIsTakenWithAWarning) {
  lf_writeDbase({.airlines = scrambleAirline("KLM") + ",SAS"});
  ASSERT_TRUE(readDbase());
  EXPECT_TRUE(isValidAirline("SAS"));
  EXPECT_TRUE(isValidAirline("KLM"));
  EXPECT_NE(test::logText().find("===> Unencrypted airline SAS in decrypt airl?"), std::string::npos);
}

} // namespace
} // namespace ory
