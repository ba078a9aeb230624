#include "base/log.h"
#include "base/paths.h"
#include "liveries/livery_table.h"
#include "liveries/regcodes.h"
#include "support/scratch.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace ory {
namespace {

using Lines = std::vector<std::string>;

class RegcodesTest : public test::InScratchFolder {
protected:
  void SetUp() override {
    std::filesystem::create_directories(infoFolder);
    std::filesystem::create_directories(myRegcodesFolder);
    buildLiveryTable({{"KLM", "B738", "KLM Boeing 737-800 PH-BXA"},
                      {"KLM", "B738", "KLM Boeing 737-800 Skyteam"},
                      {"KLM", "B77W", "KLM Boeing 777-300ER"},
                      {"TRA", "B738", "Transavia 737-800 PH-HZO"},
                      {"TRA", "B738", "Transavia 737-800 Special"}});
    openLog();
  }
  void TearDown() override {
    closeLog();
    clearRegcodes();
    clearLiveryTable();
  }
  static std::string_view boundTitle(std::string_view regcode) {
    const auto it = regcodeLiveries.find(regcode);
    return it == regcodeLiveries.end() ? std::string_view() : it->second;
  }
  static bool isSpecial(std::string_view title) {
    return std::find(specialLiveries.begin(), specialLiveries.end(), title) != specialLiveries.end();
  }
};

const char* const aigFile = R"(<?xml version="1.0"?>
<AIG-regcodes>
  <livery title="KLM Boeing 737-800 PH-BXA" reg="PH-BXA, PH-BXB"/>
  <livery title="KLM Boeing 777-300ER" reg="PH-BVA" special="true"/>
  <livery title="Transavia 737-800 Special" reg=""/>
  <livery title="Not installed anywhere" reg="PH-ZZZ" special="1"/>
</AIG-regcodes>)";

TEST_F(RegcodesTest, textFilesBeatTheXmlFileAndDecideWhatIsSpecial) {
  test::writeBytes(aigRegcodesFile, aigFile);
  test::writeBytes(myRegcodesFolder / "a.txt", "KLM Boeing 737-800 Skyteam;PH-BXA\r\n"
                                               "\n"
                                               "Transavia 737-800 PH-HZO;PH-HZO,PH-HZP\n"
                                               "Transavia 737-800 Special;PH-HXA , PH-HXB;#\n"
                                               "KLM Boeing 777-300ER;PH-BVB;x\n"
                                               "Somebody else's title;PH-QQQ\n"
                                               "KLM Boeing 777-300ER;PH-BVC1234567890,PH-BVD\n"
                                               "a;b;c;d\n");
  test::writeBytes(myRegcodesFolder / "b.TxT", "KLM Boeing 777-300ER;PH-HZP\n");
  test::writeBytes(myRegcodesFolder / "c.csv", "KLM Boeing 777-300ER;PH-CSV\n");
  test::writeBytes(myRegcodesFolder / "sub" / "d.txt", "KLM Boeing 777-300ER;PH-SUB\n");
  readRegcodeFiles();

  EXPECT_EQ(boundTitle("PH-BXA"), "KLM Boeing 737-800 Skyteam"); // the text file replaced the XML binding
  EXPECT_EQ(boundTitle("PH-BXB"), "KLM Boeing 737-800 PH-BXA");
  EXPECT_EQ(boundTitle("PH-BVA"), "KLM Boeing 777-300ER");
  EXPECT_EQ(boundTitle("PH-HZP"), "KLM Boeing 777-300ER"); // b.TxT comes after a.txt
  EXPECT_EQ(boundTitle("PH-HXB"), "Transavia 737-800 Special");
  EXPECT_EQ(boundTitle("PH-BVD"), "KLM Boeing 777-300ER"); // the rest of a line goes on after a bad regcode
  for (const char* regcode : {"PH-ZZZ", "PH-BVB", "PH-QQQ", "PH-BVC1234567890", "PH-CSV", "PH-SUB"})
    EXPECT_EQ(boundTitle(regcode), "") << regcode;
  EXPECT_EQ(regcodeLiveries.size(), 8u);
  // The view points into the livery table, not into a copy.
  EXPECT_EQ(boundTitle("PH-BVA").data(), installedTitle("KLM Boeing 777-300ER").data());

  EXPECT_TRUE(isSpecial("KLM Boeing 737-800 Skyteam")); // title;reg
  EXPECT_FALSE(isSpecial("Transavia 737-800 PH-HZO"));  // title;reg,reg
  EXPECT_TRUE(isSpecial("Transavia 737-800 Special"));  // title;reg,reg;#
  EXPECT_FALSE(isSpecial("KLM Boeing 737-800 PH-BXA")); // XML without special
  EXPECT_EQ(std::count(specialLiveries.begin(), specialLiveries.end(), "KLM Boeing 777-300ER"),
            2); // XML + b.TxT
  EXPECT_EQ(specialRegcodes, (TextOrderedSet{"PH-BVA", "PH-BXA", "PH-HXA", "PH-HXB", "PH-HZP"}));

  const std::string aig = (std::filesystem::path("input") / "regcodesAIG" / "AIG-regcodes.xml").string();
  const std::string a = (myRegcodesFolder / "a.txt").string();
  const std::string b = (myRegcodesFolder / "b.TxT").string();
  EXPECT_EQ(
      test::fileLines(infoFolder / "OfflineRegcodes.txt"),
      (Lines{"Processing " + aig, aig + ": 3 new regcodes added, 1 regcode defined as special",
             "Processing files in " + myRegcodesFolder.string(),
             "   regcode PH-BXA for \"KLM Boeing 737-800 Skyteam\", instead of for \"KLM Boeing 737-800 "
             "PH-BXA\"",
             "===> wrong regcode length \"PH-BVC1234567890\" in " + a, "===> " + a + " wrong format: a;b;c;d",
             a + ": 5 new regcodes added, 1 regcode replaced, 3 regcodes defined as special",
             "   regcode PH-HZP for \"KLM Boeing 777-300ER\", instead of for \"Transavia 737-800 PH-HZO\"",
             b + ": 0 new regcode added, 1 regcode replaced, 1 regcode defined as special"}));
  const std::string text = test::logText();
  EXPECT_NE(text.find("===> " + a + " wrong format: a;b;c;d\n"), std::string::npos);
  EXPECT_NE(text.find("Offline regcode files processed, results can be found in \"output"),
            std::string::npos);
  EXPECT_NE(text.find("5 special liveries\n"), std::string::npos);
}

TEST_F(RegcodesTest, withoutFilesNoReportIsLeftBehind) {
  test::writeBytes(infoFolder / "OfflineRegcodes.txt", "old\n");
  readRegcodeFiles();
  EXPECT_FALSE(std::filesystem::exists(infoFolder / "OfflineRegcodes.txt"));
  EXPECT_TRUE(regcodeLiveries.empty());

  test::writeBytes(aigRegcodesFile, "<AIG-regcodes");
  readRegcodeFiles();
  EXPECT_EQ(test::fileLines(infoFolder / "OfflineRegcodes.txt").back(),
            "===>  Failed to load regcode file " + aigRegcodesFile.string());
}

TEST_F(RegcodesTest, dontUseTitlesComeFromBothFileKinds) {
  test::writeBytes(aigRegcodesFile, R"(<AIG-regcodes>
  <livery title="Transavia 737-800 Special" reg=""/>
  <livery title="Transavia 737-800 Special"/>
  <livery title="KLM Boeing 777-300ER" reg="PH-BVA"/>
  <livery title="Old livery of 2010"/>
</AIG-regcodes>)");
  test::writeBytes(myRegcodesFolder / "mine.txt", "12345678\n"
                                                  "123456789\n"
                                                  "123456789\n"
                                                  "KLM Boeing 777-300ER;PH-BVA\n"
                                                  "KLM Boeing 777-300ER;PH-BVB\n"
                                                  "Transavia 737-800 Special\n");
  const Lines expected{"Transavia 737-800 Special", "Old livery of 2010", "123456789",
                       "Transavia 737-800 Special"};
  readDontUseTitles();
  EXPECT_EQ(dontUseTitles, expected);
  readDontUseTitles(); // a second scan after a restart
  EXPECT_EQ(dontUseTitles, expected);
  const std::string text = test::logText();
  const std::string mine = (myRegcodesFolder / "mine.txt").string();
  for (const std::string& line :
       {"===> don't use title \"Transavia 737-800 Special\" not unique in file " + aigRegcodesFile.string() +
            "\n",
        "2 don't use titles read from files in " + aigRegcodesFile.string() + "\n",
        "===> don't use title \"123456789\" not unique in file " + mine + "\n",
        "===> title \"KLM Boeing 777-300ER\" not unique in file " + mine + "\n",
        "2 don't use titles read from files in " + myRegcodesFolder.string() + "\n"})
    EXPECT_NE(text.find(line), std::string::npos) << line;
}

} // namespace
} // namespace ory
