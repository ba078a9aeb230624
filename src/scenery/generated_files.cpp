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
Link lf_linkToArchive(const fs::path& archive, const fs::path& userFolder, const std::string& code,
                      std::string_view label) {
  std::error_code error;
  if (!fs::is_directory(archive, error)) {
    scanLog(fmt::format("\n{} folder does not exist\n", pathText(archive)));
    return {};
  }
  const fs::path archived = archive / (code + ".xml");
  if (!fs::exists(archived, error)) {
    scanLog(fmt::format("{} does not exist", pathText(archived)));
    return {};
  }
  {
    const std::lock_guard hold(lf_writeLock);
    fs::create_directories(userFolder, error);
    if (!writeText(pathText(archived), userFolder / (code + ".txt"))) {
      scanLog(fmt::format("{}link {} to {} could not be written", warningPrefix, code, pathText(archived)));
      return {};
    }
  }
  scanLog(label == orbxWord ? fmt::format("{} airport {} linked to {}", orbxWord, code, pathText(archived))
                            : fmt::format("thirdparty {} linked to {}", code, pathText(archived)));
  ++linkedAirports;
  return {true, readStandCount(archived)};
}

void lf_generate(const ScanResult& result) {
  const fs::path folder = result.publisher == orbxWord ? myOrbxFolder : myThirdpartyFolder;
  const fs::path path = folder / (result.code + ".xml");
  bool written = false;
  {
    const std::lock_guard hold(lf_writeLock);
    std::error_code error;
    fs::create_directories(folder, error);
    if (error) scanLog(fmt::format("create_directory {}: {}", pathText(folder), error.message()));
    written = writeAirportFile(result, path, false);
  }
  if (!written) {
    scanLog(fmt::format("{}Generating {} did not succeed", warningPrefix, pathText(path)));
    return;
  }
  const auto helipads =
      std::count_if(result.stands.begin(), result.stands.end(), [](const Stand& s) { return s.heli; });
  const auto plural = [](auto count) { return count == 1 ? "" : "s"; };
  std::string line = fmt::format("Generated {}: {} position{}", pathText(path), result.stands.size(),
                                 plural(result.stands.size()));
  if (helipads > 0) line += fmt::format(", of which {} helipad{}", helipads, plural(helipads));
  scanLog(std::move(line));
}

void lf_toParkingPositions(const BglWords& bgl, const AirportRecordRef& airport, const fs::path& path) {
  const std::string publisher = findPublisher(pathText(path));
  if (publisher == orbxWord && findPublisher(pathText(path.filename())) == orbxWord)
    scanLog(fmt::format("from filename => publisher  {}", publisher));
  Link link;
  if (publisher == orbxWord)
    link = lf_linkToArchive(archiveFolder / orbxWord, myOrbxFolder, airport.code, orbxWord);
  else if (publisher != "unknown")
    link = lf_linkToArchive(archiveFolder / thirdpartyWord / utf8ToPath(publisher), myThirdpartyFolder,
                            airport.code, thirdpartyWord);

  ScanResult result = decodeAirportRecord(bgl, airport, path);
  result.publisher = publisher;
  const auto found = static_cast<std::int32_t>(result.stands.size());
  if (link.linked && link.archivedStands < found)
    scanLog(fmt::format("{}{} has {} parkpos while archived one has {}", warningPrefix, airport.code, found,
                        link.archivedStands));
  if (found > 0 && (!link.linked || found > link.archivedStands)) lf_generate(result);
}

} // namespace

void toParkingPositions(const BglWords& bgl, const AirportRecordRef& airport, const fs::path& path) {
  try {
    lf_toParkingPositions(bgl, airport, path);
  } catch (const std::exception& error) {
    scanLog(fmt::format("{}!? Exception in lf_toParkingPositions: {}", airport.code, error.what()));
  }
}

} // namespace ory
