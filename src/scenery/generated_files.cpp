#include "scenery/generated_files.h"

#include "base/log.h"
#include "base/paths.h"
#include "base/text_files.h"
#include "liveries/dbase.h"
#include "liveries/text_tokens.h"
#include "os/utf.h"
#include "parking/airport_file.h"
#include "scenery/airport_record.h"
#include "scenery/scan_log.h"

#include <fmt/format.h>

#include <algorithm>
#include <mutex>

namespace ory {

std::atomic<std::int32_t> linkedAirports{0};

namespace {

namespace fs = std::filesystem;

// Two workers may meet one airport in two files; their files are written one at a time, the last one wins.
std::mutex lf_writeLock;

struct Link {
  bool linked = false;
  std::int32_t archivedStands = 0;
};

// The archived file of this scenery, if the archive has one, stands in for the airport: a link file names it.
Link lf_linkToArchive(const fs::path& ARCHIVE, const fs::path& USER_FOLDER, const std::string& CODE,
                      std::string_view LABEL) {
  std::error_code error;
  if (!fs::is_directory(ARCHIVE, error)) {
    scanLog(fmt::format("\n{} folder does not exist\n", pathText(ARCHIVE)));
    return {};
  }
  const fs::path archived = ARCHIVE / (CODE + ".xml");
  if (!fs::exists(archived, error)) {
    scanLog(fmt::format("{} does not exist", pathText(archived)));
    return {};
  }
  {
    const std::lock_guard hold(lf_writeLock);
    fs::create_directories(USER_FOLDER, error);
    if (!writeText(pathText(archived), USER_FOLDER / (CODE + ".txt"))) {
      scanLog(fmt::format("{}link {} to {} could not be written", warningPrefix, CODE, pathText(archived)));
      return {};
    }
  }
  scanLog(LABEL == orbxWord ? fmt::format("{} airport {} linked to {}", orbxWord, CODE, pathText(archived))
                            : fmt::format("thirdparty {} linked to {}", CODE, pathText(archived)));
  ++linkedAirports;
  return {true, readStandCount(archived)};
}

void lf_generate(const ScanResult& RESULT) {
  const fs::path folder = RESULT.publisher == orbxWord ? myOrbxFolder : myThirdpartyFolder;
  const fs::path path = folder / (RESULT.code + ".xml");
  bool written = false;
  {
    const std::lock_guard hold(lf_writeLock);
    std::error_code error;
    fs::create_directories(folder, error);
    if (error) scanLog(fmt::format("create_directory {}: {}", pathText(folder), error.message()));
    written = writeAirportFile(RESULT, path, false);
  }
  if (!written) {
    scanLog(fmt::format("{}Generating {} did not succeed", warningPrefix, pathText(path)));
    return;
  }
  const auto helipads =
      std::count_if(RESULT.stands.begin(), RESULT.stands.end(), [](const Stand& S) { return S.heli; });
  const auto plural = [](auto COUNT) { return COUNT == 1 ? "" : "s"; };
  std::string line = fmt::format("Generated {}: {} position{}", pathText(path), RESULT.stands.size(),
                                 plural(RESULT.stands.size()));
  if (helipads > 0) line += fmt::format(", of which {} helipad{}", helipads, plural(helipads));
  scanLog(std::move(line));
}

void lf_toParkingPositions(const BglWords& BGL, const AirportRecordRef& AIRPORT, const fs::path& PATH) {
  const std::string publisher = findPublisher(pathText(PATH));
  if (publisher == orbxWord && findPublisher(pathText(PATH.filename())) == orbxWord)
    scanLog(fmt::format("from filename => publisher  {}", publisher));
  Link link;
  if (publisher == orbxWord)
    link = lf_linkToArchive(archiveFolder / orbxWord, myOrbxFolder, AIRPORT.code, orbxWord);
  else if (publisher != "unknown")
    link = lf_linkToArchive(archiveFolder / thirdpartyWord / utf8ToPath(publisher), myThirdpartyFolder,
                            AIRPORT.code, thirdpartyWord);

  ScanResult result = decodeAirportRecord(BGL, AIRPORT, PATH);
  result.publisher = publisher;
  const auto found = static_cast<std::int32_t>(result.stands.size());
  if (link.linked && link.archivedStands < found)
    scanLog(fmt::format("{}{} has {} parkpos while archived one has {}", warningPrefix, AIRPORT.code, found,
                        link.archivedStands));
  if (found > 0 && (!link.linked || found > link.archivedStands)) lf_generate(result);
}

} // namespace

void toParkingPositions(const BglWords& BGL, const AirportRecordRef& AIRPORT, const fs::path& PATH) {
  try {
    lf_toParkingPositions(BGL, AIRPORT, PATH);
  } catch (const std::exception& error) {
    scanLog(fmt::format("{}!? Exception in lf_toParkingPositions: {}", AIRPORT.code, error.what()));
  }
}

} // namespace ory
