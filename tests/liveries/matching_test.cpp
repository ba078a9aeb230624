// The matcher on small installed collections: each step of the ladder at each depth, cargo against passenger
// liveries, reserved and refused titles, the hexid memory and the no-match list.
#include "base/exceptions.h"
#include "base/log.h"
#include "base/parameters.h"
#include "base/paths.h"
#include "base/run.h"
#include "liveries/liveries_scan.h"
#include "liveries/matching.h"
#include "liveries/regcodes.h"
#include "liveries_world.h"
#include "support/scratch.h"

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <map>

namespace ory {
namespace {

namespace fs = std::filesystem;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

class MatchingTest : public test::InScratchFolder {
protected:
  void SetUp() override {
    for (const fs::path& folder : {outputFolder, infoFolder, errorsFolder, myRegcodesFolder})
      fs::create_directories(folder);
    openLog();
    test::DbaseContent dbase = test::worldDbase();
    dbase.airframes = {{"D-AIRN", "DLH", "A321", "TRA", false}};
    test::installDatabase(dbase);
    RANDOM.value = false;
    LOG.value = true;
    MATCHING_DEPTH.value = 4;
  }
  void TearDown() override {
    closeLog();
    clearLiveries();
    test::clearDatabase();
    RANDOM.value = true;
    LOG.value = false;
  }
  // Installs liveries as the liveries step would, with regcodeLines in a regcode file of the user.
  static void install(std::vector<LiveryData> liveries, const std::string& regcodeLines = {}) {
    clearLiveries();
    if (!regcodeLines.empty()) test::writeBytes(myRegcodesFolder / "mine.txt", regcodeLines);
    std::stable_sort(liveries.begin(), liveries.end(), [](const LiveryData& a, const LiveryData& b) {
      return std::tie(a.airline, a.type, a.regcode) < std::tie(b.airline, b.type, b.regcode);
    });
    scannedLiveries = std::move(liveries);
    processLiveries();
    scannedLiveries.clear();
  }
  static MatchAircraft aircraft(std::string airline, std::string type, std::string regcode = {},
                                std::uint32_t hexid = 0x484000) {
    MatchAircraft match;
    match.airline = std::move(airline);
    match.type = std::move(type);
    match.regcode = std::move(regcode);
    match.category = modelCategory(match.type);
    match.hexid = hexid;
    match.callsign = fmt::format("T{:06x}", hexid);
    match.text = match.callsign;
    return match;
  }
  // The title and the step it was counted at; "-" for no match.
  static std::string live(MatchAircraft aircraft) {
    const auto before = matchCounts;
    if (!matchLiveAircraft(aircraft)) return "-";
    for (std::size_t step = 0; step < matchCounts.size(); ++step)
      if (matchCounts[step] != before[step]) return fmt::format("{} @{}", aircraft.liveryTitle, step + 1);
    return std::string(aircraft.liveryTitle) + " @cached";
  }
  static std::string at(int depth, const MatchAircraft& aircraft) {
    MATCHING_DEPTH.value = depth;
    hexidLiveries.clear();
    return live(aircraft);
  }
};

LiveryData lf_livery(std::string airline, std::string type, std::string title, bool cargo = false,
                     std::string regcode = {}) {
  return {std::move(airline), std::move(type), std::move(title), std::move(regcode), 1, cargo};
}

// Each row: an aircraft and what it gets at the depths 1 to 4, with the step it is counted at.
TEST_F(MatchingTest, theLadderGoesAsDeepAsTheParameterAllows) {
  install({lf_livery("KLM", "B77W", "KLM 777", false, "PH-BVA"), lf_livery("ZZZ", "B77W", "Generic 777"),
           lf_livery("PVT", "B744", "Private 747"), lf_livery("ZZZ", "C172", "Generic 172"),
           lf_livery("PVT", "C172", "Private 172"), lf_livery("KLM", "PA28", "KLM Piper"),
           lf_livery("KLM", "EC35", "KLM heli")});
  struct Row {
    MatchAircraft aircraft;
    std::array<const char*, 4> expected;
  };
  const std::vector<Row> rows{
      // Heavy: the own airline, then its similar types, then a generic livery of the type at depth 4 only.
      {aircraft("KLM", "B77W", "PH-BVA"), {"KLM 777 @1", "KLM 777 @1", "KLM 777 @1", "KLM 777 @1"}},
      {aircraft("UAE", "B77W", "PH-BVA"), {"KLM 777 @1", "KLM 777 @1", "KLM 777 @1", "KLM 777 @1"}},
      {aircraft("KLM", "B77W"), {"-", "KLM 777 @2", "KLM 777 @2", "KLM 777 @2"}},
      {aircraft("KLM", "B772"), {"-", "-", "KLM 777 @3", "KLM 777 @3"}},
      {aircraft("UAE", "B77W"), {"-", "-", "-", "Generic 777 @4"}},
      {aircraft("UAE", "B772"), {"-", "-", "-", "-"}},
      // Light: from depth 3 on a generic livery, any airline's of the type, any airline's of a look-alike.
      {aircraft("DAL", "C172"), {"-", "-", "Generic 172 @4", "Generic 172 @4"}},
      {aircraft("DAL", "PA28"), {"-", "-", "KLM Piper @5", "KLM Piper @5"}},
      {aircraft("DAL", "DA40"), {"-", "-", "Private 172 @6", "Private 172 @6"}},
      {aircraft("KLM", "DA40"), {"-", "-", "KLM Piper @3", "KLM Piper @3"}},
      // Private: a generic livery of the type first, counted as step 4, at any category.
      {aircraft("PVT", "C172"), {"-", "Generic 172 @4", "Generic 172 @4", "Generic 172 @4"}},
      {aircraft("PVT", "B77W"), {"-", "Generic 777 @4", "Generic 777 @4", "Generic 777 @4"}},
      {aircraft("PVT", "B744"), {"-", "Private 747 @2", "Private 747 @2", "Private 747 @2"}},
      {aircraft("PVT", "PA28"), {"-", "-", "Private 172 @3", "Private 172 @3"}},
      // a rotorcraft type of no group borrows from one installed rotorcraft type; no buzjet is installed.
      {aircraft("DAL", "R44"), {"-", "-", "KLM heli @6", "KLM heli @6"}},
      {aircraft("", "C56X"), {"-", "-", "-", "-"}}};
  for (const Row& row : rows)
    for (int depth = 1; depth <= 4; ++depth)
      EXPECT_EQ(at(depth, row.aircraft), row.expected[static_cast<std::size_t>(depth - 1)])
          << row.aircraft.airline << " " << row.aircraft.type << " " << row.aircraft.regcode << " at depth "
          << depth;
}

TEST_F(MatchingTest, aPrivateAircraftWithoutGenericLiveryTakesAPrivateOne) {
  install({lf_livery("PVT", "C172", "Private 172")});
  EXPECT_EQ(at(2, aircraft("PVT", "C172")), "Private 172 @2");
}

TEST_F(MatchingTest, freightersMayWearPassengerColoursButNotTheOtherWayRound) {
  install({lf_livery("FDX", "B77W", "FedEx 777 pax"), lf_livery("FDX", "B744", "FedEx 747 CARGO", true),
           lf_livery("KLM", "C208", "KLM Caravan"), lf_livery("DAL", "C208", "Delta Caravan CARGO", true),
           lf_livery("TRA", "A321", "Transavia A321"), lf_livery("DLH", "A321", "Lufthansa A321")});
  MatchAircraft freighter = aircraft("FDX", "B77W");
  freighter.cargo = true;
  EXPECT_EQ(at(2, freighter), "FedEx 777 pax @2");
  EXPECT_EQ(at(4, aircraft("FDX", "B744")), "-");
  // Generic steps look at cargo liveries only for a freighter.
  MatchAircraft caravan = aircraft("UPS", "C208");
  caravan.cargo = true;
  EXPECT_EQ(at(4, caravan), "Delta Caravan CARGO @5");
  EXPECT_EQ(at(4, aircraft("UPS", "C208")), "KLM Caravan @5");
}

TEST_F(MatchingTest, theOwnerOfAnOperatedAirframeLendsItsColours) {
  install({lf_livery("DLH", "A321", "Lufthansa A321"), lf_livery("DLH", "A320", "Lufthansa A320")});
  EXPECT_EQ(at(2, aircraft("TRA", "A321", "D-AIRN")), "Lufthansa A321 @2");
  EXPECT_EQ(at(3, aircraft("TRA", "A319", "D-AIRN")), "-") << "the similar list is the operator's own";
  EXPECT_EQ(at(2, aircraft("TRA", "A321", "D-AIRX")), "-");
}

TEST_F(MatchingTest, specialLiveriesAreReachedOnlyThroughTheirRegcode) {
  install({lf_livery("KLM", "B738", "KLM 737 Orange Pride"), lf_livery("KLM", "B738", "KLM 737 plain"),
           lf_livery("KLM", "B738", "KLM 737 other"), lf_livery("KLM", "B77W", "KLM 777 Special"),
           lf_livery("ZZZ", "B77W", "Generic 777")},
          "KLM 737 Orange Pride;PH-BXA\nKLM 777 Special;PH-BVA\n");
  EXPECT_EQ(at(4, aircraft("KLM", "B738", "PH-BXA")), "KLM 737 Orange Pride @1");
  for (int i = 0; i < 20; ++i)
    EXPECT_EQ(at(2, aircraft("KLM", "B738")), "KLM 737 plain @2") << "with RANDOM off the first free title";
  EXPECT_EQ(at(4, aircraft("KLM", "B77W")), "Generic 777 @4") << "an airline with only special liveries";

  RANDOM.value = true;
  std::map<std::string, int> seen;
  for (int i = 0; i < 300; ++i)
    ++seen[at(2, aircraft("KLM", "B738"))];
  EXPECT_EQ(seen.size(), 2u) << "both free titles, never the special one";
  EXPECT_GT(seen["KLM 737 plain @2"], 50);
  EXPECT_GT(seen["KLM 737 other @2"], 50);
}

TEST_F(MatchingTest, aHexidKeepsItsLiveryUntilTheSimulatorRefusesIt) {
  install({lf_livery("KLM", "B738", "KLM 737 a"), lf_livery("KLM", "B738", "KLM 737 b"),
           lf_livery("DAL", "A320", "Delta A320")});
  MatchAircraft first = aircraft("KLM", "B738", "", 0x484001);
  ASSERT_TRUE(matchLiveAircraft(first));
  EXPECT_EQ(first.liveryTitle, "KLM 737 a");
  EXPECT_EQ(live(aircraft("DAL", "A320", "", 0x484001)), "KLM 737 a @cached")
      << "the same airframe again, whatever its airline now";

  reportNotCreated(first);
  EXPECT_EQ(live(aircraft("KLM", "B738", "", 0x484001)), "-")
      << "the ladder ends on the refused title, and that search finds nothing";
  EXPECT_EQ(live(aircraft("DAL", "A320", "", 0x484001)), "Delta A320 @2");
  EXPECT_THAT(failedAircraft, ElementsAre("B738 KLM"));
  const std::string text = test::logText();
  EXPECT_THAT(text, HasSubstr("          T484001 =2= KLM 737 a\n"));
  EXPECT_THAT(text, HasSubstr("          T484001 =c= KLM 737 a\n"));
  EXPECT_THAT(text, HasSubstr(" \"KLM 737 a\" could not be created by your Sim!\n"));
}

TEST_F(MatchingTest, theTwentiethRefusedTitleEndsTheRun) {
  std::vector<LiveryData> liveries;
  for (int i = 0; i < 20; ++i)
    liveries.push_back(
        lf_livery("KLM", "B738", fmt::format("KLM 737 {:02}", i), false, fmt::format("PH-A{:02}", i)));
  install(liveries);
  for (int i = 0; i < 19; ++i) {
    MatchAircraft refused = aircraft("KLM", "B738", fmt::format("PH-A{:02}", i), 0x485000 + i);
    ASSERT_TRUE(matchLiveAircraft(refused));
    reportNotCreated(refused);
    reportNotCreated(refused); // the same title twice counts once
  }
  MatchAircraft last = aircraft("KLM", "B738", "PH-A19", 0x486000);
  ASSERT_TRUE(matchLiveAircraft(last));
  EXPECT_EQ(last.liveryTitle, "KLM 737 19");
  try {
    reportNotCreated(last);
    FAIL() << "twenty refused titles";
  } catch (const UserErrorException& e) {
    EXPECT_EQ(e.number, 81);
    EXPECT_STREQ(e.what(), "81: there are too many liveries that could not be created by P3D!, see Log.txt");
  }
  EXPECT_THAT(test::logText(),
              HasSubstr("\n===> Error 81, there are too many liveries that could not be created by P3D!\n"));
}

TEST_F(MatchingTest, parkedAircraftTakeTheirCargoFlagFromTheStand) {
  install({lf_livery("FDX", "B77W", "FedEx 777 pax"), lf_livery("FDX", "B77W", "FedEx 777 CARGO", true),
           lf_livery("KLM", "B738", "KLM 737 PH-BXA", false, "PH-BXA")});
  MatchAircraft parked = aircraft("FDX", "B77W", "", 17);
  ASSERT_TRUE(matchParkedAircraft(parked, "C12", true));
  EXPECT_EQ(parked.liveryTitle, "FedEx 777 CARGO");
  MatchAircraft byRegcode = aircraft("DAL", "A320", "PH-BXA", 18);
  ASSERT_TRUE(matchParkedAircraft(byRegcode, "C13", true));
  EXPECT_EQ(byRegcode.liveryTitle, "KLM 737 PH-BXA");
  EXPECT_FALSE(byRegcode.cargo) << "a regcode hit leaves the aircraft as it was";
  MatchAircraft none = aircraft("DAL", "B744", "N1", 19);
  EXPECT_FALSE(matchParkedAircraft(none, "C14", false));
  EXPECT_TRUE(matchParkedAircraft(parked, "C12", false)) << "a stored title stays";
  EXPECT_TRUE(hexidLiveries.empty());
  EXPECT_EQ(matchCounts, (std::array<std::uint32_t, 6>{}));
  const std::string text = test::logText();
  EXPECT_THAT(text, HasSubstr("C14     : T000013 DAL B744 N1 no livery match ...\n"));
  EXPECT_THAT(text, HasSubstr("          T000011 =s= FedEx 777 CARGO\n"));
}

TEST_F(MatchingTest, onlyAKeyWithoutRegcodeBlocksTheNextSearches) {
  install({lf_livery("KLM", "B738", "KLM 737")});
  addNoMatch(aircraft("DAL", "A320", "N301DQ"));
  EXPECT_FALSE(isNoMatch("DAL", "A320"));
  addNoMatch(aircraft("DAL", "A320"));
  addNoMatch(aircraft("AB", "C17"));
  EXPECT_TRUE(isNoMatch("DAL", "A320"));
  EXPECT_TRUE(isNoMatch("AB", "C17"));
  writeNoMatchList();
  serveNoMatchClear();
  EXPECT_EQ(noMatchKeys.size(), 3u) << "nothing asked for";
  clearNoMatchPending = true;
  serveNoMatchClear();
  EXPECT_THAT(noMatchKeys, IsEmpty());
  EXPECT_FALSE(clearNoMatchPending);
  EXPECT_THAT(test::logText(), HasSubstr("\nNo match found for: \nAB  C17 \nDAL A320\nDAL A320 N301DQ\n\n"));
}

TEST_F(MatchingTest, similarTablesHoldOnlyWhatIsInstalled) {
  install({lf_livery("KLM", "B738", "KLM 737"), lf_livery("KLM", "A320", "KLM A320"),
           lf_livery("DAL", "B739", "Delta 739 CARGO", true)});
  EXPECT_THAT(similarAll.at("B738"), ElementsAre("B38M", "B737", "B739"));
  EXPECT_THAT(similarInstalled.at("B738"), ElementsAre("B739"));
  EXPECT_THAT(similarInstalled.at("B38M"), ElementsAre("B738", "B739"));
  EXPECT_FALSE(similarInstalled.contains("B77W")) << "no member of its group is installed";
  EXPECT_THAT(similarByAirline.at("KLM").at("B739"), ElementsAre("B738"));
  EXPECT_THAT(similarByAirline.at("KLM").at("A20N"), ElementsAre("A320"));
  EXPECT_FALSE(similarByAirline.at("KLM").contains("B738")) << "the airline has that type itself";
  EXPECT_THAT(similarByAirline.at("DAL").at("B737"), ElementsAre("B739"));
}

TEST_F(MatchingTest, theSummaryCountsTheStepsAndTheRefusals) {
  install({lf_livery("KLM", "B738", "KLM 737", false, "PH-BXA"), lf_livery("DAL", "A320", "Delta A320")});
  MatchAircraft klm = aircraft("KLM", "B738", "PH-BXA", 0x484001);
  MatchAircraft dal = aircraft("DAL", "A320", "", 0x484002);
  ASSERT_TRUE(matchLiveAircraft(klm));
  ASSERT_TRUE(matchLiveAircraft(dal));
  reportNotCreated(dal);
  reportNotCreated(dal);
  writeMatchingSummary();
  const std::string banner = "===== live traffic livery matching summary ";
  EXPECT_THAT(test::logText(),
              HasSubstr(banner + std::string(100 - banner.size(), '=') +
                        "\nMatches at step: \n  1: 1\n  2: 1\n"
                        "  3: 0\n  4: 0\n  5: 0\n  6: 0\n\nCould not be created by P3D:\nA320 DAL\n" +
                        std::string(100, '=') + "\n"));
}

} // namespace
} // namespace ory
