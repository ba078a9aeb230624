// The controls' work without a window: what a click or Enter says in the message line and leaves in
// parameters.xml. The Windows program under Wine runs the same through its real controls
// (scripts/wine-window).
#include "base/display.h"
#include "base/log.h"
#include "base/parameters.h"
#include "base/run.h"
#include "frame/main_loop.h"
#include "frame/window_commands.h"
#include "support/scratch.h"

#include <gtest/gtest.h>

#include <optional>

namespace ory {
namespace {

std::string lf_line() {
  std::lock_guard lock(windowTextLock);
  return display.errorText.empty() ? display.messageText : display.errorText;
}

class WindowCommandsTest : public test::InScratchFolder {
protected:
  void SetUp() override {
    resetDisplay(); // an error line another test left would cover every message
    openLog();
    loadParameters();
  }
  void TearDown() override {
    resetDisplay();
    resetMainLoopState();
    closeLog();
  }
};

// One user's session, step by step: each step acts on a control (text nullopt: a click) and is judged by the
// line shown and by one parameter in the file.
TEST_F(WindowCommandsTest, aSessionOfClicksAndTypedValuesShowsAndStoresWhatTheUserExpects) {
  struct Step {
    const char* what;
    std::uint16_t control;
    std::optional<std::string_view> text;
    std::string_view line;
    std::string_view name;
    std::string_view inFile;
  };
  const Step steps[] = {
      {"an empty box takes the default", MAX_LIVE.controlId, "", "The new MAX_LIVE is 300", "MAX_LIVE",
       "300"},
      {"the same value changes nothing", MAX_LIVE.controlId, "300",
       "Same MAX_LIVE value 300, no changes made", "MAX_LIVE", "300"},
      {"a new value", MAX_LIVE.controlId, " 120 ", "The new MAX_LIVE is 120", "MAX_LIVE", "120"},
      {"letters are refused", MAX_LIVE.controlId, "abc", "invalid input: abc", "MAX_LIVE", "120"},
      {"and so is a number with a tail", MAX_LIVE.controlId, "12x", "invalid input: 12x", "MAX_LIVE", "120"},
      {"a value below the limits is clamped", AIRPORT_HEIGHT.controlId, "1000",
       "The new AIRPORT_HEIGHT is 2000", "AIRPORT_HEIGHT", "2000"},
      {"and one above, beyond 32 bits", AIRPORT_RANGE.controlId, "99999999999", "The new AIRPORT_RANGE is 30",
       "AIRPORT_RANGE", "30"},
      {"hours round to a half hour", MAX_FIT_FL.controlId, "3.3", "The new MAX_FIT_FL is 3.5", "MAX_FIT",
       "6"},
      {"an empty fit is the default", MAX_FIT_FL.controlId, "", "The new MAX_FIT_FL is 24.0", "MAX_FIT",
       "47"},
      {"a callsign in capitals", BLOCK_CALLSIGN.controlId, "klm1234",
       "live aircraft with callsign \"KLM1234\" will be blocked", "BLOCK_CALLSIGN", "KLM1234"},
      {"three characters are too few", BLOCK_CALLSIGN.controlId, "abc", "callsign \"abc\" is not valid",
       "BLOCK_CALLSIGN", "KLM1234"},
      {"nine too many", BLOCK_CALLSIGN.controlId, "abcdefghi", "callsign \"abcdefghi\" is not valid",
       "BLOCK_CALLSIGN", "KLM1234"},
      {"the same callsign again", BLOCK_CALLSIGN.controlId, "KLM1234",
       "This callsign (KLM1234) was already set ...", "BLOCK_CALLSIGN", "KLM1234"},
      {"Unblock", unblockButton.controlId, std::nullopt, "no more blocking of live aircraft \"KLM1234\"",
       "BLOCK_CALLSIGN", ""},
      {"Unblock with nothing blocked", unblockButton.controlId, std::nullopt,
       "Nothing to block or unblock...", "BLOCK_CALLSIGN", ""},
      {"a box switched off warns", COLLISION_USER_AIR.controlId, std::nullopt,
       "Be aware, no collision avoidance with user aircraft in the air", "COLLISION_USER_AIR", "false"},
      {"a scan switched off clears the line", SCAN_LIVERIES.controlId, std::nullopt, "", "SCAN_LIVERIES",
       "false"},
      {"a parking option waits for the fifteenth second", WEEK.controlId, std::nullopt,
       "Trovalyn_P3D will respond in 12 seconds ...", "WEEK", "true"},
      {"auto range off gives the range set by hand back", AUTO_RANGE.controlId, std::nullopt, "",
       "AUTO_RANGE", "false"},
      {"a path that isn't there", SIM_INSTALL_PATH.controlId, "/nowhere/P3D v5",
       "This install path does not exist: /nowhere/P3D v5", "SIM_INSTALL_PATH", ""},
  };
  secondCount = 18;
  manualLateralRange = 25;
  for (const Step& step : steps) {
    SCOPED_TRACE(step.what);
    clearMessage();
    if (step.text)
      onEditEnter(step.control, *step.text);
    else
      onCommand(step.control);
    EXPECT_EQ(lf_line(), step.line);
    EXPECT_EQ(test::parameterInFile(step.name), step.inFile);
  }
  EXPECT_TRUE(test::logHas("Same MAX_LIVE value 300, no changes made\n"));
  EXPECT_TRUE(test::logHas("live aircraft with callsign \"KLM1234\" will be blocked\n"));
  EXPECT_TRUE(renewalPending);
  EXPECT_TRUE(blockPending);
  EXPECT_EQ(LATERAL_RANGE.value, 25);
  EXPECT_EQ(rangeNm, 25.0);
  EXPECT_FLOAT_EQ(MAX_FIT_FL.value, 24.0f);

  showError("151: No P3D install path detected");
  onCommand(COLLISION_USER_GND.controlId);
  EXPECT_EQ(lf_line(), "151: No P3D install path detected") << "a message doesn't cover a standing error";
  EXPECT_EQ(test::parameterInFile("COLLISION_USER_GND"), "false") << "though the change is stored";
}

// MATCHING_DEPTH raised asks for the no-match list to be emptied; lowered it doesn't.
TEST_F(WindowCommandsTest, onlyARaisedMatchingDepthClearsTheNoMatches) {
  onEditEnter(MATCHING_DEPTH.controlId, "2");
  EXPECT_FALSE(clearNoMatchPending);
  onEditEnter(MATCHING_DEPTH.controlId, "3");
  EXPECT_TRUE(clearNoMatchPending);
}

} // namespace
} // namespace ory
