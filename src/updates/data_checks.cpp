#include "base/display.h"
#include "base/log.h"
#include "base/parameters.h"
#include "base/paths.h"
#include "base/version.h"
#include "liveries/dbase.h"
#include "liveries/scramble.h"
#include "updates/download.h"
#include "updates/server_paths.h"
#include "updates/updates.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <cctype>
#include <vector>

namespace ory {

namespace {

namespace fs = std::filesystem;

// A data file of the input folder that the server keeps current.
struct DataFile {
  std::string_view name;           // file name, as the messages show it
  std::string_view versionPath;    // on the server
  std::string_view payloadPath;    // on the server
  std::string_view noVersionText;  // the warning when the server tells no version
  FileCheck check;                 // what a download must pass
  TextParameter& installedVersion; // of the file in place
  const fs::path& target;          // in the program folder
};

const DataFile dbaseItem{.name = "dbase.xml",
                         .versionPath = dbaseVersionPath,
                         .payloadPath = dbasePayloadPath,
                         .noVersionText = "No dbase version info found at the Trovalyn server?",
                         .check = isDbaseFile,
                         .installedVersion = DBASE_VERSION,
                         .target = dbaseFile};
const DataFile regcodesItem{.name = "AIG-regcodes.xml",
                            .versionPath = regcodesVersionPath,
                            .payloadPath = regcodesPayloadPath,
                            .noVersionText = "No AIG regcodes version info found at the Trovalyn server?",
                            .check = isXmlDocument,
                            .installedVersion = AIG_VERSION,
                            .target = aigRegcodesFile};

void lf_checkDataFile(std::string_view server, const DataFile& item) {
  const Version offered = fetchVersion(serverUrl(server, item.versionPath));
  if (offered == Version{}) {
    logWarning(item.noVersionText);
    return;
  }
  if (!(offered > versionOrZero(item.installedVersion.value)) && fs::exists(item.target)) return;
  showMessage(fmt::format("Downloading {} version {} ...", item.name, versionText(offered)), true);
  const DownloadOutcome outcome = downloadFile(serverUrl(server, item.payloadPath), item.target, item.check);
  if (outcome != DownloadOutcome::done) {
    logFailedDownload(outcome, item.name);
    return;
  }
  item.installedVersion.value = versionText(offered);
  storeText(item.installedVersion);
}

bool lf_newer(std::string_view server, std::string_view versionPath, std::string_view installed) {
  return fetchVersion(serverUrl(server, versionPath)) > versionOrZero(installed);
}

void lf_scanAirportsNext() {
  SCAN_AIRPORTS.value = true;
  storeBool(SCAN_AIRPORTS);
  showBool(SCAN_AIRPORTS);
}

} // namespace

void checkDbase(std::string_view server) {
  lf_checkDataFile(server, dbaseItem);
}

void checkRegcodes(std::string_view server) {
  fs::create_directories(regcodesAigFolder);
  lf_checkDataFile(server, regcodesItem);
}

std::string newVersionsText(std::string_view server) {
  std::vector<std::string_view> names;
  if (lf_newer(server, programVersionPath, programVersion)) names.push_back(programName);
  if (lf_newer(server, dbaseVersionPath, DBASE_VERSION.value)) names.push_back(dbaseItem.name);
  if (lf_newer(server, archiveVersionPath, ARCHIVE_VERSION.value)) names.push_back("archive");
  if (lf_newer(server, regcodesVersionPath, AIG_VERSION.value)) names.push_back(regcodesItem.name);
  if (names.empty()) return {};
  return fmt::format("==> New version{} for: {}", names.size() > 1 ? "s" : "", fmt::join(names, ", "));
}

void checkVersionNow(std::string_view server) {
  const std::string text = newVersionsText(server);
  if (text.empty()) {
    showMessage(fmt::format("{} is up to date", programName), false);
  } else {
    showMessage(fmt::format("{}  ( exit {} and restart )", text, programName), false);
    DATA_CHECKED_AT_DATE.value.clear();
    storeText(DATA_CHECKED_AT_DATE);
  }
  enableControl(checkVersionButton, false);
}

std::string serverUrl(std::string_view server, std::string_view path, std::string_view name) {
  return fmt::format("{}{}{}", server, path, name);
}

std::string checkDateText(std::time_t time) {
  // Read by position from the asctime text, "Www Mmm dd hh:mm:ss yyyy".
  const std::string text = utcText(time);
  std::string date = text.substr(4, 3);
  for (char& c : date)
    c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  date += text[8] == ' ' ? text.substr(9, 1) : text.substr(8, 2);
  date += text.substr(20, 4);
  return scrambleRegcode(date);
}

void checkDataAtStart(std::string_view server) {
  checkRegcodes(server);
  if (DATA_CHECKED_AT_DATE.value != checkDateText(std::time(nullptr)) || !fs::exists(dbaseFile))
    checkDbase(server);
}

void checkDataOfTheDay(std::string_view server) {
  const std::string today = checkDateText(std::time(nullptr));
  if (DATA_CHECKED_AT_DATE.value == today) {
    if (!fs::exists(regcodesAigFolder) || !fs::exists(aigRegcodesFile)) checkRegcodes(server);
    if (archiveFoldersMissing() && checkArchive(server)) lf_scanAirportsNext();
    return;
  }
  checkProgram(server, PROGRAM_INSTALL_PATH.value);
  checkRegcodes(server);
  if (checkArchive(server)) lf_scanAirportsNext();
  DATA_CHECKED_AT_DATE.value = today;
  storeText(DATA_CHECKED_AT_DATE);
  enableControl(checkVersionButton, false);
}

} // namespace ory
