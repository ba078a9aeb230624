#include "base/paths.h"

#include "base/version.h"
#include "os/folders.h"

namespace ory {

namespace {
const std::filesystem::path input = "input";
const std::filesystem::path output = "output";
const std::filesystem::path airports = "airports";
} // namespace

const std::filesystem::path docsFolder = "docs";
const std::filesystem::path inputFolder = input;
const std::filesystem::path dbaseFile = input / "dbase.xml";
const std::filesystem::path fixesFile = input / "fixes.xml";
const std::filesystem::path regcodesAigFolder = input / "regcodesAIG";
const std::filesystem::path aigRegcodesFile = regcodesAigFolder / "AIG-regcodes.xml";
const std::filesystem::path myRegcodesFolder = input / "my_regcodes";
const std::filesystem::path outputFolder = output;
const std::filesystem::path liveriesScannedFile = output / "LiveriesScanned.xml";
const std::filesystem::path infoFolder = output / "info";
const std::filesystem::path errorsFolder = output / "errors";
const std::filesystem::path airportsFolder = airports;
const std::filesystem::path archiveFolder = airports / "archive";
const std::filesystem::path learnedFolder = airports / "learned";
const std::filesystem::path myOrbxFolder = airports / "my_ORBX";
const std::filesystem::path myThirdpartyFolder = airports / "my_thirdparty";
const std::filesystem::path myParkAirportsFile = airports / "my_park_airports.txt";
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
