// The headless program as a whole: started from a program folder, one instance at a time, closed by signal.
#include "support/process.h"
#include "support/scratch.h"

#include <gtest/gtest.h>

#include <csignal>
#include <functional>

namespace ory {
namespace {

using namespace std::chrono_literals;
using test::ChildProcess;
using test::eventually;
using test::readFile;

class ProgramTest : public test::InScratchFolder {
protected:
  std::filesystem::path folder = scratch.path();
  std::filesystem::path output = scratch.path() / "stdout.txt";

  void SetUp() override { test::installPreparedData(folder); }

  void presetInstallPath() { test::presetEarlierRun(folder, "C:\\P3D v5"); }
  bool logHas(const std::string& text) const {
    return readFile(folder / "Log.txt").find(text) != std::string::npos;
  }
};

TEST_F(ProgramTest, runsFromItsFolderRefusesASecondInstanceAndEndsOnTheCloseSignal) {
  presetInstallPath();
  ChildProcess program(ORY_PROGRAM, {}, folder, folder, output);
  ASSERT_TRUE(eventually([&] { return logHas("SIM_INSTALL_PATH=C:\\P3D v5"); }, 10s)) << readFile(output);

  ChildProcess second(ORY_PROGRAM, {}, folder, folder, folder / "second.txt");
  EXPECT_EQ(second.waitExit(10s), 255) << "-1 from the second instance";
  EXPECT_FALSE(std::filesystem::exists(folder / "Log0.txt")) << "and the log untouched";

  // The start-up goes on meanwhile, past its data checks with the update server.
  EXPECT_TRUE(eventually([&] { return logHas(" airports read from \"airports_p3d.xml\"\n"); }, 10s));
  EXPECT_TRUE(logHas(" dbase records from \"input/dbase.xml\" read\n"));
  EXPECT_TRUE(logHas("\"input/fixes.xml\" read\n"));
  for (const char* made : {"output/info", "output/errors", "airports/learned/stock", "airports/learned/ORBX",
                           "airports/learned/thirdparty", "input/my_regcodes"})
    EXPECT_TRUE(eventually([&] { return std::filesystem::is_directory(folder / made); }, 10s)) << made;

  program.signal(SIGTERM);
  EXPECT_EQ(program.waitExit(12s), 0);
  EXPECT_TRUE(logHas("Exiting: USER CLOSED SIM\n"));
  EXPECT_TRUE(logHas("User closed Trovalyn_P3D\n"));
  EXPECT_NE(readFile(output).find("message: Close window button clicked, closing Trovalyn_P3D ..."),
            std::string::npos);
}

// A start that cannot go on shows its error and stays for the user until closed.
TEST_F(ProgramTest, aStartThatCannotGoOnShowsItsErrorAndStaysForTheUser) {
  const std::filesystem::path parameters = folder / "AppData/Roaming/Trovalyn_P3D/parameters.xml";
  const struct {
    const char* what;
    std::function<void()> prepare;
    const char* error;
    std::function<void()> check = [] {};
    int closeSignal = SIGTERM;
  } rows[] = {
      {"outside its folder", [&] { std::filesystem::remove_all(folder / "docs"); },
       "error: 41: Trovalyn_P3D must be run from the Trovalyn_P3D folder!", [] {}, SIGINT},
      {"without a simulator path or folders", [] {},
       "error: 151: No P3D install path detected, type full Install Path above, and press Enter"},
      {"a corrupt parameters file, kept aside for defaults",
       [&] {
         test::writeBytes(parameters, "<parameters><parameter name=\"SIM_INSTALL_PATH\" value=\"C:\\P3D v5");
       },
       "error: 151: No P3D install path detected",
       [&] {
         std::filesystem::path kept = parameters;
         kept += ".unreadable";
         EXPECT_TRUE(std::filesystem::exists(kept));
         EXPECT_NE(readFile(parameters).find("name=\"SCAN_LIVERIES\" value=\"true\""), std::string::npos);
       }},
      {"without the aircraft database",
       [&] {
         presetInstallPath();
         std::filesystem::remove(folder / "input" / "dbase.xml");
       },
       "error: 60: \"input/dbase.xml\" not read because of File was not found"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.what);
    for (const auto& entry : std::filesystem::directory_iterator(folder))
      std::filesystem::remove_all(entry.path());
    std::filesystem::create_directories(folder / "docs"); // what marks the program's folder
    test::installPreparedData(folder);
    row.prepare();
    ChildProcess program(ORY_PROGRAM, {}, folder, folder, output);
    ASSERT_TRUE(eventually([&] { return readFile(output).find(row.error) != std::string::npos; }, 10s))
        << readFile(output);
    EXPECT_TRUE(program.running());
    row.check();
    program.signal(row.closeSignal);
    EXPECT_EQ(program.waitExit(12s), 0);
  }
}

} // namespace
} // namespace ory
