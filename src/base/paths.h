#pragma once
// The data tree, relative to the program's folder (the current directory), and the folder words the scans
// look for. Joined from separate words at static initialisation.

#include <filesystem>
#include <string_view>

namespace ory {

extern const std::filesystem::path docsFolder;          // must exist: proof of the right current directory
extern const std::filesystem::path inputFolder;         // data delivered with the program
extern const std::filesystem::path dbaseFile;           // input\dbase.xml
extern const std::filesystem::path fixesFile;           // input\fixes.xml
extern const std::filesystem::path regcodesAigFolder;   // input\regcodesAIG
extern const std::filesystem::path aigRegcodesFile;     // input\regcodesAIG\AIG-regcodes.xml
extern const std::filesystem::path myRegcodesFolder;    // input\my_regcodes
extern const std::filesystem::path outputFolder;        // what the program makes
extern const std::filesystem::path liveriesScannedFile; // output\LiveriesScanned.xml
extern const std::filesystem::path infoFolder;          // output\info
extern const std::filesystem::path errorsFolder;        // output\errors
extern const std::filesystem::path airportsFolder;
extern const std::filesystem::path archiveFolder;      // airports\archive
extern const std::filesystem::path learnedFolder;      // airports\learned
extern const std::filesystem::path myOrbxFolder;       // airports\my_ORBX
extern const std::filesystem::path myThirdpartyFolder; // airports\my_thirdparty
extern const std::filesystem::path myParkAirportsFile; // airports\my_park_airports.txt
extern const std::filesystem::path airportsP3dFile;
extern const std::filesystem::path airportsMsfsFile;
extern const std::filesystem::path versionJsonFile;
extern const std::filesystem::path archiveZipFile;
extern const std::filesystem::path installNewVersionFile;
extern const std::filesystem::path logFile;

// Folder words.
inline constexpr std::string_view stockWord = "stock";
inline constexpr std::string_view orbxWord = "ORBX";
inline constexpr std::string_view thirdpartyWord = "thirdparty";
inline constexpr std::string_view toBeLearnedOfflineWord = "TO_BE_LEARNED_OFFLINE";
inline constexpr std::string_view fsBaseWord = "fs-base";
inline constexpr std::string_view fsBaseGenericAirportsWord = "fs-base-genericairports";
inline constexpr std::string_view steamWord = "Steam";
inline constexpr std::string_view oneStoreWord = "OneStore";

std::filesystem::path appDataProgramFolder(); // %APPDATA%\Trovalyn_P3D
std::filesystem::path realTrafficMark();      // %APPDATA%\InsideSystems\RealTraffic.jar

} // namespace ory
