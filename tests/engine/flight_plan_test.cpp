// Flight plan files for new objects whose feed names both airports, and their folder's life.
#include "engine/flight_plans.h"
#include "engine_world.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

namespace ory {
namespace {

namespace fs = std::filesystem;

class FlightPlanTest : public test::EngineTest {
protected:
  void SetUp() override {
    EngineTest::SetUp();
    prepareFlightPlanFolder();
  }
  static LiveAircraft aircraft(std::uint32_t objectId, std::string origin, std::string destination) {
    LiveAircraft a;
    a.hexid = 0x484001;
    a.callsign = "KLM601";
    a.airline = "KLM";
    a.type = "B738";
    a.category = 2;
    a.objectId = objectId;
    a.origin = std::move(origin);
    a.destination = std::move(destination);
    return a;
  }
};

TEST_F(FlightPlanTest, aPlanIsEightLinesNamingBothAirports) {
  const fs::path path = flightPlanFolder() / "7.pln";
  ASSERT_TRUE(writeFlightPlan(path, aircraft(7, "EHAM", "LFPG")));
  EXPECT_EQ(test::readFile(path), "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
                                  "<SimBase.Document Type=\"AceXML\" version=\"4,3\">\"\n"
                                  "<FlightPlan.FlightPlan>\n"
                                  "<FPType>IFR</FPType>\n"
                                  "<DepartureID>EHAM</DepartureID>\n"
                                  "<DestinationID>LFPG</DestinationID>\n"
                                  "</FlightPlan.FlightPlan>\n"
                                  "</SimBase.Document>\n");
  LiveAircraft light = aircraft(8, "EHAM", "EHLE");
  light.category = 0;
  ASSERT_TRUE(writeFlightPlan(flightPlanFolder() / "8.pln", light));
  EXPECT_EQ(test::fileLines(flightPlanFolder() / "8.pln").at(3), "<FPType>VFR</FPType>");
}

TEST_F(FlightPlanTest, withoutBothAirportsOrWithoutItsFolderThereIsNoPlan) {
  LiveAircraft onlyOrigin = aircraft(7, "EHAM", "");
  const std::string before = test::logText();
  planFor(onlyOrigin);
  EXPECT_FALSE(onlyOrigin.hasFlightPlan);
  EXPECT_TRUE(fs::is_empty(flightPlanFolder()));
  EXPECT_EQ(test::logText(), before) << "no plan is no failure";

  fs::remove_all(flightPlanFolder()); // by hand, during the run
  LiveAircraft both = aircraft(8, "EHAM", "LFPG");
  planFor(both);
  EXPECT_FALSE(both.hasFlightPlan);
  EXPECT_FALSE(fs::exists(flightPlanFolder()));
  EXPECT_EQ(test::logText(), before + "KLM601 KLM B738  484001 creating a flight plan failed !\n");
  deletePlan(both); // nothing to delete, nothing thrown
}

TEST_F(FlightPlanTest, theFolderKeepsOnlyThePlansOfLiveObjectsAndGoesAtTheEnd) {
  for (const char* name : {"7.pln", "8.pln", "9.pln"})
    test::writeBytes(flightPlanFolder() / name, "plan");
  LiveAircraft& seven = liveAircraft.emplace_back(aircraft(7, "EHAM", "LFPG"));
  seven.hasFlightPlan = true;
  liveAircraft.push_back(aircraft(9, "EHAM", "LFPG")); // its plan was refused by the simulator
  flightPlanBookkeeping();
  EXPECT_TRUE(fs::exists(flightPlanFolder() / "7.pln"));
  EXPECT_FALSE(fs::exists(flightPlanFolder() / "8.pln"));
  EXPECT_FALSE(fs::exists(flightPlanFolder() / "9.pln"));
  deletePlan(seven);
  EXPECT_FALSE(seven.hasFlightPlan);
  EXPECT_TRUE(fs::is_empty(flightPlanFolder()));
  gf_removeFlightPlanFolder();
  EXPECT_FALSE(fs::exists(flightPlanFolder()));
}

} // namespace
} // namespace ory
