// Flight plan files for new objects whose feed names both airports, and their folder's life.
#include "engine/flight_plans.h"
#include "engine_world.h"

#include <gtest/gtest.h>

#include <filesystem>

namespace ory {
namespace {

namespace fs = std::filesystem;

LiveAircraft lf_aircraft(std::uint32_t objectId, std::string destination, std::uint32_t category = 2) {
  LiveAircraft a;
  a.hexid = 0x484001;
  a.callsign = "KLM601";
  a.airline = "KLM";
  a.type = "B738";
  a.category = category;
  a.objectId = objectId;
  a.origin = "EHAM";
  a.destination = std::move(destination);
  return a;
}

using FlightPlanTest = test::EngineTest;

TEST_F(FlightPlanTest, onlyObjectsWithBothAirportsGetAnEightLinePlanThatGoesWithThem) {
  prepareFlightPlanFolder();
  ASSERT_TRUE(writeFlightPlan(flightPlanFolder() / "7.pln", lf_aircraft(7, "LFPG")));
  EXPECT_EQ(test::readFile(flightPlanFolder() / "7.pln"),
            "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
            "<SimBase.Document Type=\"AceXML\" version=\"4,3\">\"\n"
            "<FlightPlan.FlightPlan>\n"
            "<FPType>IFR</FPType>\n"
            "<DepartureID>EHAM</DepartureID>\n"
            "<DestinationID>LFPG</DestinationID>\n"
            "</FlightPlan.FlightPlan>\n"
            "</SimBase.Document>\n");
  ASSERT_TRUE(writeFlightPlan(flightPlanFolder() / "8.pln", lf_aircraft(8, "EHLE", 0)));
  EXPECT_EQ(test::fileLines(flightPlanFolder() / "8.pln").at(3), "<FPType>VFR</FPType>");

  // Once a day the plans of objects gone, or refused by the simulator, go.
  test::writeBytes(flightPlanFolder() / "9.pln", "plan");
  liveAircraft = {lf_aircraft(7, "LFPG"), lf_aircraft(9, "LFPG")};
  LiveAircraft& seven = liveAircraft.front();
  seven.hasFlightPlan = true;
  flightPlanBookkeeping();
  EXPECT_TRUE(fs::exists(flightPlanFolder() / "7.pln"));
  EXPECT_FALSE(fs::exists(flightPlanFolder() / "8.pln") || fs::exists(flightPlanFolder() / "9.pln"));
  deletePlan(seven);
  EXPECT_TRUE(fs::is_empty(flightPlanFolder()));

  linkFailed = false; // the simulator is there, but gets no file
  const std::string before = test::logText();
  LiveAircraft onlyOrigin = lf_aircraft(10, "");
  planFor(onlyOrigin);
  EXPECT_FALSE(onlyOrigin.hasFlightPlan);
  EXPECT_TRUE(fs::is_empty(flightPlanFolder()));
  EXPECT_EQ(test::logText(), before) << "no plan is no failure";

  gf_removeFlightPlanFolder(); // as by hand, during the run
  LiveAircraft both = lf_aircraft(11, "LFPG");
  planFor(both);
  EXPECT_FALSE(both.hasFlightPlan);
  EXPECT_FALSE(fs::exists(flightPlanFolder()));
  EXPECT_EQ(test::logText(), before + "KLM601 KLM B738  484001 creating a flight plan failed !\n");
}

} // namespace
} // namespace ory
