#include "base/paths.h"

#include "base/version.h"
#include "os/folders.h"

namespace ory {

namespace {
const std::filesystem::path lf_input = "input";
const std::filesystem::path lf_output = "output";
const std::filesystem::path lf_airports = "airports";
} // namespace

const std::filesystem::path docsFolder = "docs";
const std::filesystem::path inputFolder = lf_input;
const std::filesystem::path dbaseFile = lf_input / "dbase.xml";
const std::filesystem::path fixesFile = lf_input / "fixes.xml";
const std::filesystem::path regcodesAigFolder = lf_input / "regcodesAIG";
const std::filesystem::path aigRegcodesFile = regcodesAigFolder / "AIG-regcodes.xml";
const std::filesystem::path myRegcodesFolder = lf_input / "my_regcodes";
const std::filesystem::path outputFolder = lf_output;
const std::filesystem::path liveriesScannedFile = lf_output / "LiveriesScanned.xml";
const std::filesystem::path infoFolder = lf_output / "info";
const std::filesystem::path errorsFolder = lf_output / "errors";
const std::filesystem::path airportsFolder = lf_airports;
const std::filesystem::path archiveFolder = lf_airports / "archive";
const std::filesystem::path learnedFolder = lf_airports / "learned";
const std::filesystem::path myOrbxFolder = lf_airports / "my_ORBX";
const std::filesystem::path myThirdpartyFolder = lf_airports / "my_thirdparty";
const std::filesystem::path myParkAirportsFile = lf_airports / "my_park_airports.txt";
const std::filesystem::path airportsP3dFile = "airports_p3d.xml";
const std::filesystem::path airportsMsfsFile = "airports_msfs.xml";
const std::filesystem::path versionJsonFile = "version.json";
const std::filesystem::path archiveZipFile = "archive.zip";
const std::filesystem::path installNewVersionFile = "install_new_version.exe";
const std::filesystem::path logFile = "Log.txt";

std::filesystem::path appDataProgramFolder() {
  return appDataFolder() / programName;
}
std::filesystem::path realTrafficMark() {
  return appDataFolder() / "InsideSystems" / "RealTraffic.jar";
}

} // namespace ory
