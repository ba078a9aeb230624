// The liveries step inside the headless program: a manual scan at start-up against the prepared database.
#include "liveries_world.h"
#include "support/process.h"
#include "support/scratch.h"

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>

namespace ory {
namespace {

using namespace std::chrono_literals;
using ::testing::HasSubstr;
namespace fs = std::filesystem;

class LiveriesProgramTest : public test::InScratchFolder {
protected:
  fs::path folder = scratch.path();
  fs::path output = scratch.path() / "stdout.txt";

  void SetUp() override { test::installPreparedData(folder); }
  void writeParameters(const std::vector<std::pair<std::string, std::string>>& values) {
    std::string text = "<parameters>";
    for (const auto& [name, value] : values)
      text += fmt::format("<parameter name=\"{}\" value=\"{}\" />", name, value);
    test::writeBytes(folder / "AppData/Roaming/Trovalyn_P3D/parameters.xml", text + "</parameters>");
  }
  std::string logText() const { return test::readFile(folder / "Log.txt"); }
};

TEST_F(LiveriesProgramTest, aManualScanAtStartUpKeepsItsResultAndIsNotRepeated) {
  writeParameters({{"SIM_INSTALL_PATH", "C:\\P3D v5"},
                   {"LIG_AUTOMATIC", "false"},
                   {"lfolder0", (folder / "AI").string()}});
  test::writeCfg(folder / "AI/KLM/aircraft.cfg",
                 {.atcModel = "B738",
                  .sections = {test::section("KLM 737", "KLM"), test::section("Generic 737", "BOE")}});
  {
    test::ChildProcess program(ORY_PROGRAM, {}, folder, folder, output);
    ASSERT_TRUE(
        test::eventually([&] { return logText().find("liveries scan ends") != std::string::npos; }, 20s))
        << logText() << test::readFile(output);
    program.signal(SIGTERM);
    EXPECT_EQ(program.waitExit(15s), 0);
  }
  const std::string scanned = test::readFile(folder / "output/LiveriesScanned.xml");
  EXPECT_THAT(scanned, HasSubstr("<liv airl=\"KLM\" type=\"B738\" title=\"KLM 737\" atcid=\"\" />"));
  EXPECT_THAT(scanned, HasSubstr("<liv airl=\"ZZZ\" type=\"B738\" title=\"Generic 737\" atcid=\"\" />"));
  EXPECT_THAT(test::readFile(folder / "AppData/Roaming/Trovalyn_P3D/parameters.xml"),
              HasSubstr("name=\"SCAN_LIVERIES\" value=\"false\""));
  const std::string first = logText();
  EXPECT_THAT(first, HasSubstr("liveries scan manual starts"));
  EXPECT_THAT(first, HasSubstr("2 liveries in "));
  EXPECT_THAT(first, HasSubstr("live traffic livery matching summary"));

  // The next start reads the stored result.
  test::ChildProcess again(ORY_PROGRAM, {}, folder, folder, output);
  ASSERT_TRUE(test::eventually(
      [&] {
        const std::string text = logText();
        return text.find("No scan done, 2 liveries read from ") != std::string::npos &&
               text.find("liveries scan ends") != std::string::npos;
      },
      20s))
      << logText();
  again.signal(SIGTERM);
  EXPECT_EQ(again.waitExit(15s), 0);
}

} // namespace
} // namespace ory
