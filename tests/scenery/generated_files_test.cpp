#include "base/log.h"
#include "bgl_builder.h"
#include "liveries/dbase.h"
#include "liveries_world.h"
#include "parking/airport_file.h"
#include "scenery/bgl.h"
#include "scenery/generated_files.h"
#include "scenery/scan_log.h"
#include "support/scratch.h"

#include <fmt/format.h>
#include <gtest/gtest.h>
#include <pugixml.hpp>

#include <algorithm>

namespace ory {
namespace {

namespace fs = std::filesystem;
using test::AirportSpec;
using test::ParkingSpec;
using test::readFile;
using test::writeBytes;

class GeneratedFilesTest : public test::InScratchFolder {
protected:
  void SetUp() override {
    openLog();
    test::installDatabase(
        {.rotorcraft = {"EC35"}, .airlines = {"KLM"}, .publishers = {"ORBX, Orbx", "FlyTampa, Fly Tampa"}});
    clearScanLog();
    linkedAirports = 0;
  }
  void TearDown() override {
    closeLog();
    test::clearDatabase();
  }
  static bool logged(std::string_view text) {
    const auto lines = scanLogLines();
    return std::any_of(lines.begin(), lines.end(),
                       [&](const std::string& l) { return l.find(text) != std::string::npos; });
  }
  static void scan(const fs::path& path, const std::vector<AirportSpec>& airports) {
    writeBytes(path, test::buildBgl(airports));
    readBgl(path);
  }
  static std::vector<std::string> ids(const fs::path& file) {
    pugi::xml_document document;
    EXPECT_TRUE(document.load_file(file.c_str())) << file;
    std::vector<std::string> result;
    for (const pugi::xml_node parkpos : document.child("parkpositions").children("parkpos"))
      result.push_back(parkpos.attribute("id").value());
    return result;
  }
  static std::string parameter(const fs::path& file, const char* name) {
    pugi::xml_document document;
    document.load_file(file.c_str());
    return document.select_node(fmt::format("/parameters/parameter[@name='{}']", name).c_str())
        .node()
        .attribute("value")
        .value();
  }
};

AirportSpec lf_airport(std::string code, int stands) {
  AirportSpec airport;
  airport.code = std::move(code);
  for (int k = 1; k <= stands; ++k)
    airport.parkings.push_back({10, 8, static_cast<std::uint32_t>(k), 20.0f, 90.0f, 52.0 + k * 0.001, 4.0});
  return airport;
}

TEST_F(GeneratedFilesTest, anUnknownPublishersAirportIsGeneratedWithItsBglPath) {
  AirportSpec airport = lf_airport("KTST", 2);
  airport.helipads = {{52.1, 4.1, 20.0f, 0.0f}};
  scan("Addons/Somebody/scenery/KTST.bgl", {airport});
  const fs::path generated = "airports/my_thirdparty/KTST.xml";
  EXPECT_EQ(ids(generated), (std::vector<std::string>{"helipad1", "g1", "g2"}));
  EXPECT_EQ(parameter(generated, "publisher"), "unknown");
  EXPECT_EQ(parameter(generated, "BGLpath"), "Addons/Somebody/scenery/KTST.bgl");
  EXPECT_EQ(parameter(generated, "altitude"), "33");
  EXPECT_EQ(parameter(generated, "airport_name"), "Test Field");
  EXPECT_TRUE(logged("Generated airports/my_thirdparty/KTST.xml: 3 positions, of which 1 helipad"));
  EXPECT_EQ(findAirportFile("KTST"), generated);
  EXPECT_EQ(linkedAirports, 0);
}

TEST_F(GeneratedFilesTest, aFullDiskLeavesNoHalfGeneratedFile) {
  fs::create_directories("airports/my_thirdparty");
  fs::create_symlink("/dev/full", "airports/my_thirdparty/KTST.xml"); // every write there fails
  scan("Addons/Somebody/scenery/KTST.bgl", {lf_airport("KTST", 2)});
  EXPECT_FALSE(fs::exists(fs::symlink_status("airports/my_thirdparty/KTST.xml")));
  EXPECT_TRUE(logged("===> Generating airports/my_thirdparty/KTST.xml did not succeed"));
  EXPECT_EQ(findAirportFile("KTST"), fs::path());
}

TEST_F(GeneratedFilesTest, anAirportOfHelipadsOnlyAndRenumberedDoublesAreGenerated) {
  AirportSpec pads;
  pads.code = "EHHP";
  pads.helipads = {{52.1, 4.1, 20.0f, 0.0f}, {52.2, 4.2, 20.0f, 0.0f}};
  AirportSpec doubles = lf_airport("EHDB", 0);
  doubles.parkings = {{10, 8, 12, 15.0f}, {10, 8, 12, 24.0f}};
  AirportSpec empty = lf_airport("EHMT", 0);
  scan("Addons/FlyTampa/scenery/three.bgl", {pads, doubles, empty});
  EXPECT_EQ(ids("airports/my_thirdparty/EHHP.xml"), (std::vector<std::string>{"helipad1", "helipad2"}));
  EXPECT_EQ(ids("airports/my_thirdparty/EHDB.xml"), (std::vector<std::string>{"g12a", "g12"}));
  EXPECT_FALSE(fs::exists("airports/my_thirdparty/EHMT.xml")) << "an airport without stands gets no file";
  EXPECT_EQ(parameter("airports/my_thirdparty/EHHP.xml", "BGLpath"), "") << "a known publisher needs no path";
  EXPECT_TRUE(logged("airports/archive/thirdparty/FlyTampa folder does not exist"));
  EXPECT_TRUE(logged("Generated airports/my_thirdparty/EHHP.xml: 2 positions, of which 2 helipads"));
}

TEST_F(GeneratedFilesTest, anArchivedAirportIsLinkedAndGeneratedOnlyWhenTheSceneryHasMore) {
  writeBytes("airports/archive/ORBX/YBBN.xml", R"(<parameters><parameter name="num_parkpos" value="2"/>
<parameter name="publisher" value="ORBX"/><parameter name="altitude" value="13"/></parameters>
<parkpositions><parkpos id="g1" latitude="52.001" longitude="4" radius="20"/></parkpositions>)");
  scan("ORBX/FTX_AU/YBBN/scenery/ADE_ORBX_YBBN.bgl", {lf_airport("YBBN", 2)});
  EXPECT_EQ(test::fileLines("airports/my_ORBX/YBBN.txt"),
            (std::vector<std::string>{"airports/archive/ORBX/YBBN.xml"}));
  EXPECT_FALSE(fs::exists("airports/my_ORBX/YBBN.xml"));
  EXPECT_EQ(linkedAirports, 1);
  EXPECT_TRUE(logged("ORBX airport YBBN linked to airports/archive/ORBX/YBBN.xml"));
  EXPECT_TRUE(logged("from filename => publisher  ORBX"));

  scan("ORBX/FTX_AU/YBBN/scenery/ADE_ORBX_YBBN.bgl", {lf_airport("YBBN", 3)});
  EXPECT_EQ(ids("airports/my_ORBX/YBBN.xml"), (std::vector<std::string>{"g1", "g2", "g3"}));
  EXPECT_TRUE(logged("===> YBBN has 3 parkpos while archived one has 2"));
  EXPECT_EQ(findAirportFile("YBBN"), fs::path("airports/archive/ORBX/YBBN.xml")) << "the link is preferred";

  writeBytes("airports/archive/thirdparty/FlyTampa/EHAM.xml",
             R"(<parameters><parameter name="num_parkpos" value="9"/></parameters>)");
  scan("Addons/FlyTampa/EHAM/scenery/EHAM.bgl", {lf_airport("EHAM", 4)});
  EXPECT_TRUE(logged("thirdparty EHAM linked to airports/archive/thirdparty/FlyTampa/EHAM.xml"));
  EXPECT_TRUE(fs::exists("airports/my_thirdparty/EHAM.txt"));
  EXPECT_FALSE(fs::exists("airports/my_thirdparty/EHAM.xml"));
}

TEST_F(GeneratedFilesTest, realSceneryIsGeneratedAndATruncatedFileKeepsTheAirportsBeforeTheCut) {
  for (const char* file : {"LEAB_ADEP5_ARV187.bgl", "LEAR_ADEX_ARV187.bgl", "KTST_TestAirport_v6.bgl"})
    fs::copy_file(test::realData(std::string("bgl/") + file), file);
  for (const char* file : {"LEAB_ADEP5_ARV187.bgl", "LEAR_ADEX_ARV187.bgl", "KTST_TestAirport_v6.bgl"})
    readBgl(file);
  EXPECT_EQ(ids("airports/my_thirdparty/LEAB.xml").size(), 69u);
  EXPECT_EQ(ids("airports/my_thirdparty/LEAR.xml").size(), 21u);
  EXPECT_EQ(ids("airports/my_thirdparty/KTST.xml"), (std::vector<std::string>{"helipad1", "g1", "r2"}));

  // Two airports; the cut takes the last parking of the second one.
  const std::string bytes = test::buildBgl({lf_airport("EHAA", 2), lf_airport("EHBB", 5)});
  writeBytes("cut.bgl", bytes.substr(0, bytes.size() - 40));
  readBgl("cut.bgl");
  EXPECT_EQ(ids("airports/my_thirdparty/EHAA.xml").size(), 2u);
  EXPECT_EQ(ids("airports/my_thirdparty/EHBB.xml").size(), 4u);
  EXPECT_TRUE(logged("parking list of EHBB runs past its record after 4 of 5 entries, in cut.bgl"));
  writeBytes("cut.bgl", bytes.substr(0, 84)); // within the sub-section table
  EXPECT_THROW(readBgl("cut.bgl"), BglRangeError);
}

} // namespace
} // namespace ory
