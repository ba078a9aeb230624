#include "base/text_hash.h"
#include "bgl_builder.h"
#include "engine/geometry.h"
#include "scenery/airport_record.h"
#include "scenery/bgl.h"
#include "scenery/scan_log.h"
#include "support/scratch.h"

#include <fmt/format.h>
#include <gtest/gtest.h>
#include <pugixml.hpp>

#include <algorithm>
#include <cmath>
#include <map>
#include <random>

namespace ory {
namespace {

using test::AirportSpec;
using test::buildBgl;
using test::HelipadSpec;
using test::ParkingSpec;
using test::readFile;
using test::realData;

std::vector<Stand> lf_decodeAll(const std::string& bytes) {
  const BglWords bgl = bglFromBytes(bytes);
  std::string damage;
  std::vector<Stand> stands;
  for (const AirportRecordRef& airport : findAirportRecords(bgl, damage)) {
    ScanResult result = decodeAirportRecord(bgl, airport, "test.bgl");
    stands.insert(stands.end(), result.stands.begin(), result.stands.end());
  }
  return stands;
}

ScanResult lf_decodeOne(const AirportSpec& airport) {
  const BglWords bgl = bglFromBytes(buildBgl({airport}));
  std::string damage;
  const auto airports = findAirportRecords(bgl, damage);
  EXPECT_EQ(airports.size(), 1u);
  EXPECT_EQ(damage, "");
  return airports.empty() ? ScanResult{} : decodeAirportRecord(bgl, airports.front(), "test.bgl");
}

std::vector<std::string> lf_ids(const std::vector<Stand>& stands) {
  std::vector<std::string> ids;
  for (const Stand& stand : stands)
    ids.push_back(stand.id);
  return ids;
}

bool lf_logHas(std::string_view text) {
  const auto lines = scanLogLines();
  return std::any_of(lines.begin(), lines.end(),
                     [&](const std::string& l) { return l.find(text) != std::string::npos; });
}

// ---- The real files against the XML each was compiled from
// ----------------------------------------------------

struct Expected {
  std::string id;
  double lat = 0, lon = 0, radiusMetres = 0, headingDegrees = 0;
  bool cargo = false, ramp = false, heli = false;
};

// "40.1M", "60F", "20.0": a length in metres.
double lf_metres(const char* rawText) {
  const std::string text = rawText;
  const double value = std::stod(text);
  return !text.empty() && (text.back() == 'F' || text.back() == 'f') ? value * 0.3048 : value;
}

// The parking types and names of the SDK's XML schema, with the id prefixes this program gives them.
const std::map<std::string, int> xmlTypes = {
    {"RAMP_GA", 1},     {"RAMP_GA_SMALL", 2},  {"RAMP_GA_MEDIUM", 3},  {"RAMP_GA_LARGE", 4},
    {"RAMP_CARGO", 5},  {"RAMP_MIL_CARGO", 6}, {"RAMP_MIL_COMBAT", 7}, {"GATE_SMALL", 8},
    {"GATE_MEDIUM", 9}, {"GATE_HEAVY", 10},    {"DOCK_GA", 11},        {"FUEL", 12},
    {"VEHICLE", 13}};
const std::map<std::string, std::string> xmlNames = {
    {"NONE", ""}, {"PARKING", "r"}, {"GATE", "g"}, {"DOCK", ""}};

std::vector<Expected> lf_expectedFromXml(const std::filesystem::path& path) {
  pugi::xml_document document;
  EXPECT_TRUE(document.load_file(path.c_str()));
  std::vector<Expected> expected;
  for (const auto& node : document.select_nodes("//Helipad")) {
    const pugi::xml_node pad = node.node();
    expected.push_back({fmt::format("helipad{}", expected.size() + 1), pad.attribute("lat").as_double(),
                        pad.attribute("lon").as_double(), lf_metres(pad.attribute("width").value()) / 2,
                        pad.attribute("heading").as_double(), false, false, true});
  }
  for (const auto& node : document.select_nodes("//TaxiwayParking")) {
    const pugi::xml_node parking = node.node();
    const int type = xmlTypes.at(parking.attribute("type").value());
    const double radius = lf_metres(parking.attribute("radius").value());
    if (type > 11 || radius <= 1.0 || radius >= 200.0) continue;
    expected.push_back({xmlNames.at(parking.attribute("name").value()) + parking.attribute("number").value(),
                        parking.attribute("lat").as_double(), parking.attribute("lon").as_double(), radius,
                        parking.attribute("heading").as_double(), type == 5, type < 8, false});
  }
  return expected;
}

class RealBgl : public ::testing::TestWithParam<const char*> {};

TEST_P(RealBgl, decodesTheParkingsAndHelipadsOfItsXmlSource) {
  const std::string name = GetParam();
  const auto bglPath = realData("bgl/" + name + (name == "KTST_TestAirport_v5" ? ".BGL" : ".bgl"));
  ASSERT_TRUE(hasAirportSection(bglPath));
  const std::vector<Stand> decoded = lf_decodeAll(readFile(bglPath));
  std::vector<Expected> expected = lf_expectedFromXml(realData("bgl/" + name + ".xml"));
  // The v6 compiler gave the helipad the heading of the scenery object placed on it (359 degrees, kept as a
  // 16-bit angle) instead of its own 0: the file is what the simulator sees.
  if (name == "KTST_TestAirport_v6") expected.at(0).headingDegrees = 358.99475098;
  ASSERT_EQ(decoded.size(), expected.size());
  for (const Expected& want : expected) {
    const auto found =
        std::find_if(decoded.begin(), decoded.end(), [&](const Stand& s) { return s.id == want.id; });
    ASSERT_NE(found, decoded.end()) << want.id;
    // The file holds positions in steps of 180 / 2^29 and 360 / 2^30 degrees: the decoding must land within
    // half a step of the source, well inside the sixth decimal.
    EXPECT_NEAR(found->lat, want.lat, 0.5 * 3.3527612686157227e-07) << want.id;
    EXPECT_NEAR(found->lon, want.lon, 0.5 * 4.470348358154297e-07) << want.id;
    EXPECT_NEAR(found->radius / nmPerMetre, want.radiusMetres, 1e-4) << want.id;
    const double heading = want.headingDegrees == 0 ? 360.0 : want.headingDegrees;
    EXPECT_NEAR(found->heading * radToDeg, heading, 1e-4) << want.id;
    EXPECT_EQ(found->cargo, want.cargo) << want.id;
    EXPECT_EQ(found->ramp, want.ramp) << want.id;
    EXPECT_EQ(found->heli, want.heli) << want.id;
  }
}

INSTANTIATE_TEST_SUITE_P(FsxP3d5P3d6, RealBgl,
                         ::testing::Values("KTST_TestAirport_v5", "KTST_TestAirport_v6", "LEAB_ADEP5_ARV187",
                                           "LEAR_ADEX_ARV187"));

TEST(RealBglAirport, identifierNameAndAltitudeOfBothRecordForms) {
  for (const auto& [file, code, name, feet] :
       {std::tuple{"KTST_TestAirport_v6.bgl", "KTST", "Testfield Regional", 654},
        std::tuple{"LEAR_ADEX_ARV187.bgl", "LEAR", "Aerodromo de Argavirtual", 2461}}) {
    const BglWords bgl = bglFromBytes(readFile(realData(std::string("bgl/") + file)));
    std::string damage;
    const auto airports = findAirportRecords(bgl, damage);
    ASSERT_EQ(airports.size(), 1u) << file;
    EXPECT_EQ(damage, "");
    EXPECT_EQ(airports[0].code, code);
    const ScanResult result = decodeAirportRecord(bgl, airports[0], file);
    EXPECT_EQ(result.airportName, name);
    EXPECT_NEAR(result.altitude, feet, 1) << file;
  }
}

TEST(RealBglAirport, aHeadingOfZeroIsStoredAsTwoPi) {
  const auto stands = lf_decodeAll(readFile(realData("bgl/LEAR_ADEX_ARV187_GA.bgl")));
  EXPECT_EQ(lf_ids(stands), (std::vector<std::string>{"r21", "r22", "r23", "r24", "r25", "r26", "r27"}));
  for (const Stand& stand : stands)
    EXPECT_DOUBLE_EQ(stand.heading, twoPi) << stand.id;
}

// ---- Built files: the rules of the decoding
// ---------------------------------------------------------------------

TEST(BglHeader, aHeaderSizeOtherThan0x38IsNoAirportFile) {
  test::ScratchFolder scratch;
  AirportSpec airport;
  airport.parkings = {ParkingSpec{}};
  test::writeBytes("good.bgl", buildBgl({airport}));
  test::writeBytes("other.bgl", buildBgl({airport}, 0x3C));
  test::writeBytes("short.bgl", "\x01\x02\x92\x19");
  test::writeBytes("plain.bgl", test::buildBglWithoutAirports(400));
  EXPECT_TRUE(hasAirportSection("good.bgl"));
  EXPECT_FALSE(hasAirportSection("other.bgl"));
  EXPECT_FALSE(hasAirportSection("short.bgl"));
  EXPECT_FALSE(hasAirportSection("plain.bgl"));
  EXPECT_FALSE(hasAirportSection("missing.bgl"));
  EXPECT_TRUE(lf_decodeAll(buildBgl({airport}, 0x3C)).empty());
  EXPECT_EQ(lf_decodeAll(buildBgl({airport})).size(), 1u);
}

TEST(BglParking, radiusLimitsTypesAndPositionsDecideWhatIsAStand) {
  clearScanLog();
  AirportSpec airport;
  airport.parkings = {
      {10, 8, 1, 1.0f},
      {10, 8, 2, 200.0f},
      {10, 8, 3, 1.01f},
      {10, 8, 4, 199.9f}, // radius limits
      {10, 12, 5},
      {10, 13, 6},
      {10, 0, 7}, // fuel, vehicle, none
      {1, 5, 8},
      {1, 7, 9},
      {10, 10, 10}, // cargo, ramp, gate
      {10, 8, 11, 20.0f, 90.0f, 0.0005, 0.01},
      {10, 8, 12, 20.0f, 90.0f, -95.0, 4.0}, // null box, off the globe
      {10, 8, 13, std::nanf(""), 90.0f},
      {10, 8, 14, 20.0f, std::nanf("")}, // broken floats
  };
  const ScanResult result = lf_decodeOne(airport);
  EXPECT_EQ(lf_ids(result.stands), (std::vector<std::string>{"g3", "g4", "r8", "r9", "g10"}));
  EXPECT_TRUE(result.stands[2].cargo && result.stands[2].ramp);
  EXPECT_TRUE(!result.stands[3].cargo && result.stands[3].ramp);
  EXPECT_TRUE(!result.stands[4].cargo && !result.stands[4].ramp && !result.stands[4].heli);
  EXPECT_NEAR(result.stands[0].radius, 1.01 * nmPerMetre, 1e-9);
  EXPECT_NEAR(result.stands[0].heading, 90.0 * degToRad, 1e-12);
  EXPECT_TRUE(lf_logHas("skipped position with radius 1.0 meters, in test.bgl"));
  EXPECT_TRUE(lf_logHas("skipped position with radius 200.0 meters, in test.bgl"));
  EXPECT_TRUE(lf_logHas("lat/lon: 0.000500, 0.010000, incorrect (skipped) "));
}

TEST(BglParking, nameCodesGiveTheIdPrefix) {
  AirportSpec airport;
  for (std::uint32_t code : {0u, 1u, 2u, 3u, 4u, 5u, 6u, 7u, 8u, 9u, 10u, 11u, 12u, 37u})
    airport.parkings.push_back({code, 2, code + 100});
  EXPECT_EQ(lf_ids(lf_decodeOne(airport).stands),
            (std::vector<std::string>{"100", "r101", "p102", "np103", "ep104", "sep105", "sp106", "swp107",
                                      "wp108", "nwp109", "g110", "111", "A112", "Z137"}));
}

TEST(BglParking, sevenEqualIdsGiveTheIdAndSixSuffixesAndAnEighthIsDropped) {
  clearScanLog();
  AirportSpec airport;
  for (int k = 0; k < 8; ++k)
    airport.parkings.push_back({10, 8, 5, 20.0f + static_cast<float>(k)});
  const ScanResult result = lf_decodeOne(airport);
  EXPECT_EQ(lf_ids(result.stands), (std::vector<std::string>{"g5f", "g5e", "g5d", "g5c", "g5b", "g5a", "g5"}))
      << "renamed by size, the largest keeps the name";
  EXPECT_TRUE(lf_logHas("===> KTST Warning more then 6 the same ids g5, in test.bgl"));
  EXPECT_TRUE(
      std::none_of(result.stands.begin(), result.stands.end(), [](const Stand& s) { return s.idDoubled; }));
}

TEST(BglParking, doubledNamesAreRenumberedBySizeNotByFileOrder) {
  for (const bool newForm : {true, false}) {
    AirportSpec airport;
    airport.newForm = newForm;
    airport.parkings = {{10, 8, 12, 15.0f}, {10, 8, 7, 30.0f}, {10, 8, 12, 24.0f}};
    const ScanResult result = lf_decodeOne(airport);
    ASSERT_EQ(lf_ids(result.stands), (std::vector<std::string>{"g12a", "g7", "g12"}));
    EXPECT_NEAR(result.stands[2].radius, 24.0 * nmPerMetre, 1e-9);
  }
}

TEST(BglHelipad, anAirportOfHelipadsOnlyNumbersThemAndSkipsDoubles) {
  clearScanLog();
  AirportSpec airport;
  airport.helipads = {{52.1, 4.1, 20.0f, 0.0f},
                      {52.2, 4.2, 30.0f, 90.0f},
                      {52.1, 4.1, 20.0f, 0.0f},
                      {0.0001, 0.001, 20.0f, 0.0f}};
  const ScanResult result = lf_decodeOne(airport);
  ASSERT_EQ(lf_ids(result.stands), (std::vector<std::string>{"helipad1", "helipad2"}));
  EXPECT_TRUE(result.stands[0].heli && result.stands[1].heli);
  EXPECT_DOUBLE_EQ(result.stands[0].heading, twoPi);
  EXPECT_NEAR(result.stands[1].radius, 15.0 * nmPerMetre, 1e-12);
  EXPECT_TRUE(lf_logHas("double helipad 52.100000, 4.100000 (skipped) "));
  EXPECT_TRUE(lf_logHas("lat/lon helipad incorrect (skipped): 0.000100, 0.001000"));
}

TEST(BglAirport, altitudeLimitsAndConflictingNames) {
  EXPECT_EQ(airportAltitudeFeet(3'048'000), 10000);
  EXPECT_EQ(airportAltitudeFeet(3'048'400), 0);
  EXPECT_EQ(airportAltitudeFeet(-3'400), -11) << "Schiphol lies below the sea";
  EXPECT_EQ(airportAltitudeFeet(-7'000), 0);

  AirportSpec airport;
  airport.names = {"Same", "Same"};
  EXPECT_EQ(lf_decodeOne(airport).airportName, "Same");
  airport.names = {"One", "Other"};
  EXPECT_EQ(lf_decodeOne(airport).airportName, "") << "two different names keep none";
  airport.names = {"Z\xFCrich"};
  EXPECT_EQ(lf_decodeOne(airport).airportName, "Z\xC3\xBCrich") << "8-bit names become UTF-8";
}

TEST(BglIdentifier, decodesDigitsAndLetters) {
  for (const std::string code : {"EHAM", "K2A1", "Y0", "LFPG"})
    EXPECT_EQ(decodeIdentifier(test::encodeIdentifier(code)), code);
  EXPECT_EQ(decodeIdentifier(0x1F), "") << "the low five bits carry no digit";
}

TEST(BglFiles, namesAndFoldersThatTheScanPassesBy) {
  EXPECT_TRUE(isBgl("a/b/APX12345.BGL"));
  EXPECT_TRUE(isBgl("EHAM.bgl"));
  EXPECT_FALSE(isBgl("EHAM.Bgl"));
  EXPECT_FALSE(isBgl("EHAM.bgl.off"));
  EXPECT_TRUE(isSkippedFolder("C:\\P3D\\Scenery\\World\\scenery"));
  EXPECT_TRUE(isSkippedFolder("C:\\P3D\\Scenery\\0706\\scenery"));
  EXPECT_TRUE(isSkippedFolder("C:\\P3D\\Scenery\\Bathymetry"));
  EXPECT_FALSE(isSkippedFolder("C:\\P3D\\Scenery\\0101\\scenery"));
  EXPECT_FALSE(isSkippedFolder("D:\\Addons\\FlyTampa\\EHAM\\scenery"));
}

// ---- Damaged files
// ------------------------------------------------------------------------------------------------

// Every prefix of a real file decodes without reading past its end, and finds no stand the whole file lacks.
TEST(BglDamage, everyTruncationOfTheRealFilesCostsOnlyWhatIsCut) {
  for (const char* file : {"KTST_TestAirport_v5.BGL", "KTST_TestAirport_v6.bgl", "LEAB_ADEP5_ARV187.bgl",
                           "LEAR_ADEX_ARV187.bgl", "LEAR_ADEX_ARV187_GA.bgl"}) {
    const std::string bytes = readFile(realData(std::string("bgl/") + file));
    std::vector<std::string> whole;
    for (const Stand& stand : lf_decodeAll(bytes))
      whole.push_back(stand.id);
    std::size_t largest = 0;
    for (std::size_t size = 0; size < bytes.size(); size += 4) {
      const BglWords bgl = bglFromBytes(std::string_view(bytes).substr(0, size));
      std::string damage;
      for (const AirportRecordRef& airport : findAirportRecords(bgl, damage)) {
        try {
          const ScanResult result = decodeAirportRecord(bgl, airport, file);
          for (const Stand& stand : result.stands)
            ASSERT_NE(std::find(whole.begin(), whole.end(), stand.id), whole.end())
                << file << " cut at " << size;
          largest = std::max(largest, result.stands.size());
        } catch (const BglRangeError&) {
        }
      }
    }
    EXPECT_LE(largest, whole.size()) << file;
  }
}

// Whatever the bytes, a stand that comes out is one the parking can use.
void lf_expectUsable(const ScanResult& result) {
  TextSet ids;
  for (const Stand& stand : result.stands) {
    EXPECT_TRUE(ids.insert(stand.id).second) << stand.id;
    EXPECT_FALSE(stand.id.empty());
    EXPECT_TRUE(stand.lat >= -90 && stand.lat <= 90 && stand.lon >= -180 && stand.lon <= 180) << stand.id;
    EXPECT_FALSE(stand.lat >= 0 && stand.lat <= 0.0009 && stand.lon >= 0 && stand.lon <= 0.05) << stand.id;
    EXPECT_TRUE(std::isfinite(stand.heading) && stand.heading != 0) << stand.id;
    EXPECT_TRUE(stand.radius > 0 && stand.radius < 500 * nmPerMetre) << stand.id;
    EXPECT_FALSE(stand.idDoubled) << stand.id;
  }
}

TEST(BglDamage, randomBytesAndFlippedBytesGiveOnlyUsableStands) {
  std::mt19937 random(20260401);
  const std::string real = readFile(realData("bgl/LEAR_ADEX_ARV187.bgl"));
  for (int round = 0; round < 3000; ++round) {
    std::string bytes = real;
    for (int k = 0, flips = 1 + round % 16; k < flips; ++k)
      bytes[random() % bytes.size()] = static_cast<char>(random());
    if (round % 3 == 0) bytes.resize(random() % bytes.size());
    const BglWords bgl = bglFromBytes(bytes);
    std::string damage;
    for (const AirportRecordRef& airport : findAirportRecords(bgl, damage)) {
      try {
        lf_expectUsable(decodeAirportRecord(bgl, airport, "fuzz.bgl"));
      } catch (const BglRangeError&) {
      }
    }
  }
}

} // namespace
} // namespace ory
