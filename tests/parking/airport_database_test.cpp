#include "base/exceptions.h"
#include "base/log.h"
#include "parking/airport_database.h"
#include "support/scratch.h"

#include <gtest/gtest.h>

#include <stdexcept>

namespace ory {
namespace {

class AirportDatabaseTest : public test::InScratchFolder {
protected:
  void SetUp() override { openLog(); }
  void TearDown() override {
    closeLog();
    clearAirports();
  }
};

TEST_F(AirportDatabaseTest, theTableIsReadOnceInFileOrder) {
  test::writeBytes("airports_p3d.xml", R"(<?xml version="1.0"?>
<airports>
  <airport code="EHAM" iata="AMS" lat="52.308601" lon="4.76389" alt="-11"/>
  <airport code="KMSP" iata="MSP" lat="44.882" lon="-93.221802" alt="841.5"/>
  <airport code="00AA" lat="38.704022" lon="-101.473911" alt="3435"/>
</airports>)");
  ASSERT_TRUE(readAirports());
  ASSERT_EQ(airports.size(), 3u);
  EXPECT_EQ(airports[1].code, "KMSP");
  EXPECT_DOUBLE_EQ(airports[1].lon, -93.221802);
  EXPECT_DOUBLE_EQ(airports[1].altitude, 841.5);
  EXPECT_DOUBLE_EQ(airports[0].altitude, -11);

  const AirportRecord* schiphol = findAirport("EHAM");
  ASSERT_NE(schiphol, nullptr);
  EXPECT_DOUBLE_EQ(schiphol->lat, 52.308601);
  EXPECT_EQ(airportText(*schiphol), "EHAM(AMS)");
  EXPECT_EQ(airportText(*findAirport("00AA")), "00AA"); // no IATA code: the code alone
  EXPECT_EQ(findAirport("eham"), nullptr);
  EXPECT_EQ(findAirport("EHA"), nullptr);

  std::filesystem::remove("airports_p3d.xml");
  EXPECT_TRUE(readAirports()); // a filled table is not read again
  EXPECT_EQ(airports.size(), 3u);
  closeLog();
  EXPECT_NE(test::readFile("Log.txt").find("3 airports read from \"airports_p3d.xml\""), std::string::npos);
}

TEST_F(AirportDatabaseTest, aMissingFileIsLoggedAndABrokenOneStopsTheStart) {
  EXPECT_FALSE(readAirports());
  test::writeBytes("airports_p3d.xml", "<airports><airport code=\"EHAM\"");
  try {
    readAirports();
    ADD_FAILURE() << "no exception";
  } catch (const UserErrorException& e) {
    EXPECT_TRUE(std::string_view(e.what()).starts_with("airports_p3d.xml not loaded ")) << e.what();
  }
  test::writeBytes("airports_p3d.xml",
                   R"(<airports><airport code="EHAM" lat="north" lon="4" alt="0"/></airports>)");
  try {
    readAirports();
    ADD_FAILURE() << "no exception";
  } catch (const std::invalid_argument& e) {
    EXPECT_STREQ(e.what(), "invalid stod argument");
  }
  clearAirports();
  test::writeBytes("airports_p3d.xml",
                   R"(<airports><airport code="EHAM" lat="1" lon="4" alt="1e99"/></airports>)");
  EXPECT_THROW(readAirports(), std::out_of_range);
  closeLog();
  EXPECT_NE(test::readFile("Log.txt").find("airports_p3d.xml not found\n"), std::string::npos);
}

TEST_F(AirportDatabaseTest, aFileCutOffAnywhereIsRefusedOrReadInFull) {
  const std::string whole = R"(<?xml version="1.0"?>
<airports>
  <airport code="EHAM" iata="AMS" lat="52.308601" lon="4.76389" alt="-11"/>
  <airport code="00AA" lat="38.704022" lon="-101.473911" alt="3435"/>
</airports>
)";
  for (std::size_t length = 0; length < whole.size(); ++length) {
    clearAirports();
    test::writeBytes("airports_p3d.xml", std::string_view(whole).substr(0, length));
    try {
      EXPECT_EQ(readAirports(), length > 0) << length; // an empty file is an empty document
      EXPECT_EQ(airports.size(), length > 0 ? 2u : 0u) << length;
    } catch (const UserErrorException& e) {
      EXPECT_EQ(e.number, 99) << length;
    }
  }
}

} // namespace
} // namespace ory
