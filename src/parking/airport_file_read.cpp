#include "base/display.h"
#include "base/exceptions.h"
#include "base/log.h"
#include "base/parameters.h"
#include "base/paths.h"
#include "base/text_files.h"
#include "base/text_hash.h"
#include "engine/geometry.h"
#include "liveries/text_tokens.h"
#include "os/utf.h"
#include "parking/airport_file.h"
#include "parking/airport_xml.h"
#include "parking/static_parking.h"

#include <fmt/format.h>
#include <pugixml.hpp>

#include <cmath>

namespace ory {

namespace {

namespace fs = std::filesystem;

// The link file's first line names the archived file it stands for.
fs::path lf_linkTarget(const fs::path& link) {
  std::error_code error;
  if (!fs::is_regular_file(link, error)) return {};
  std::vector<std::string> lines;
  if (!gf_readExtTextFileToStringVector(link, lines) || lines.empty() || lines.front().empty()) return {};
  const fs::path target = utf8ToPath(lines.front());
  return fs::is_regular_file(target, error) ? target : fs::path();
}

bool lf_exists(const fs::path& path) {
  std::error_code error;
  return fs::exists(path, error);
}

// Replaces the first component word of path by the components of replacement; false when there is none.
bool lf_replaceComponent(const fs::path& path, std::string_view word, const fs::path& replacement,
                         fs::path& out) {
  fs::path result;
  bool replaced = false;
  for (const fs::path& part : path) {
    if (!replaced && part == word) {
      result /= replacement;
      replaced = true;
    } else {
      result /= part;
    }
  }
  if (replaced) out = result;
  return replaced;
}

void lf_logValue(std::string_view label, const auto& value) {
  logLine(fmt::format("{:24}: {}", label, value));
}

void lf_numberStands(std::vector<Stand>& stands) {
  for (std::size_t i = 0; i < stands.size(); ++i)
    stands[i].standId = static_cast<std::uint32_t>(i + 1);
}

// Without a learned file the airport has no parking parameters of its own.
void lf_defaultParkingPercentage() {
  parking_percentage.value = 30;
  enableControl(parking_percentage, false);
  if (CUSTOM_PARKING_PERCENTAGE.value >= 0) {
    parking_percentage.value = CUSTOM_PARKING_PERCENTAGE.value.load();
    logLine(fmt::format("parking percentage overruled by {}", CUSTOM_PARKING_PERCENTAGE.name));
  }
  showInt(parking_percentage);
  logLine(fmt::format("{:24}: {}%", parking_percentage.name, parking_percentage.value.load()));
}

void lf_logAirport(const fs::path& path, std::string_view name, std::size_t standCount,
                   const QualityFactors& quality, std::uint32_t trafficWeek) {
  logLine(fmt::format("Airport file read from \"{}\" for {}", pathText(path), name));
  lf_logValue("publisher", parkPublisher);
  logLine(fmt::format("{:24}: {} ft", "altitude", parkAltitudeFeet));
  lf_logValue("num_parkpos", standCount);
  lf_logValue("quality factor", formatQualityFactors(quality));
  lf_logValue("RT traffic week", trafficWeek);
}

std::string lf_readApf(const fs::path& path, std::string& name, std::vector<Stand>& stands,
                       QualityFactors& quality) {
  handmadeFile = false;
  pugi::xml_document document;
  const pugi::xml_parse_result loaded = document.load_file(path.c_str());
  if (!loaded)
    return fmt::format("{} found, but could not be loaded: {}", pathText(path), loaded.description());
  const auto trafficWeek = static_cast<std::uint32_t>(fileInt(document, "RT_traffic_week").value_or(0));
  parkPublisher = fileParameter(document, "publisher").value_or("");
  parkBglPath = fileParameter(document, "BGLpath").value_or("");
  const auto altitude = fileInt(document, "altitude");
  if (!altitude) throw UserErrorException(65, "Parameter altitude not found");
  parkAltitudeFeet = *altitude;
  parkAltitude = *altitude;
  name = fileParameter(document, "airport_name").value_or("");
  stands.clear();
  readParkPositions(document, stands);
  quality = {fileInt(document, "Qf_real").value_or(-1), fileInt(document, "Qf_soft").value_or(-1)};

  learnedFilePath = learnedPathFor(path);
  if (lf_exists(learnedFilePath)) {
    enableControl(parking_percentage, true);
    readLearned(learnedFilePath, name, stands);
    quality = computeQualityFactors(stands);
    if (handmadeFile) logLine("A handmade airport file overruled the archived file!");
    if (PARK_FAKE.value) addFakeOptions(stands, path.stem().string(), currentSlot());
  } else {
    lf_defaultParkingPercentage();
  }
  lf_numberStands(stands);
  findOverlaps(stands);
  lf_logAirport(handmadeFile ? learnedFilePath : path, name, stands.size(), quality, trafficWeek);
  parkingSessionOpen.exchange(true);
  enableControl(flushStaticButton, true);
  parameterChanged = false;
  return stands.empty() ? "no stands found" : "";
}

pugi::xml_document lf_loadOrEmpty(const fs::path& path) {
  pugi::xml_document document;
  if (!document.load_file(path.c_str())) document.reset();
  return document;
}

} // namespace

fs::path findAirportFile(std::string_view rawCode) {
  const std::string code(rawCode);
  for (const fs::path& folder : {myThirdpartyFolder, myOrbxFolder}) {
    if (fs::path target = lf_linkTarget(folder / (code + ".txt")); !target.empty()) return target;
    if (const fs::path file = folder / (code + ".xml"); lf_exists(file)) return file;
  }
  const fs::path stock = archiveFolder / stockWord / (code + ".xml");
  return lf_exists(stock) ? stock : fs::path();
}

bool airportHasFile(std::string_view rawCode) {
  const std::string code(rawCode);
  for (const fs::path& folder : {myThirdpartyFolder, myOrbxFolder})
    if (lf_exists(folder / (code + ".xml")) || lf_exists(folder / (code + ".txt"))) return true;
  return lf_exists(archiveFolder / stockWord / (code + ".xml"));
}

fs::path learnedPathFor(const fs::path& path) {
  fs::path learned;
  if (lf_replaceComponent(path, "archive", "learned", learned)) return learned;
  if (lf_replaceComponent(path, myOrbxFolder.filename().string(), fs::path("learned") / orbxWord, learned))
    return learned;
  const fs::path thirdparty = fs::path("learned") / thirdpartyWord / utf8ToPath(readPublisher(path));
  if (lf_replaceComponent(path, myThirdpartyFolder.filename().string(), thirdparty, learned)) return learned;
  return path;
}

HalfHours hours2bitset(std::string_view text) {
  HalfHours bits;
  try {
    for (const std::string_view item : splitFields(text, ','))
      if (!trimBlanks(item).empty()) bits |= readSlots(item);
  } catch (const std::exception& error) {
    logLine(fmt::format("exception {} in lf_hours2bitset", error.what()));
  }
  return bits;
}

void readParkPositions(const pugi::xml_document& document, std::vector<Stand>& stands) {
  const pugi::xml_node parkpositions = document.child("parkpositions");
  if (!parkpositions) return;
  TextSet ids;
  for (const Stand& stand : stands)
    ids.insert(stand.id);
  for (const pugi::xml_node parkpos : parkpositions.children("parkpos")) {
    Stand stand;
    stand.id = parkpos.attribute("id").value();
    if (!ids.insert(stand.id).second)
      throw UserErrorException(94, fmt::format("Parking position {} appears more than once?", stand.id));
    readStandPlace(parkpos, stand);
    stand.options.reserve(128);
    std::int32_t optionId = 1;
    for (const pugi::xml_node opt : parkpos.children("opt")) {
      std::optional<StandOption> option = readStandOption(opt, false, true);
      if (!option) continue;
      option->optionId = optionId++;
      stand.options.push_back(std::move(*option));
    }
    readStandKind(parkpos, stand);
    stands.push_back(std::move(stand));
  }
}

void findOverlaps(std::vector<Stand>& stands) {
  for (Stand& stand : stands) {
    stand.neighbours.clear();
    stand.neighbours.reserve(8);
  }
  for (std::size_t i = 0; i < stands.size(); ++i)
    for (std::size_t j = 0; j < stands.size(); ++j) {
      if (i == j) continue;
      const double distance = distanceNm(stands[i].lat, stands[i].lon, stands[j].lat, stands[j].lon);
      if (stands[i].radius + stands[j].radius > distance * 1.1)
        stands[i].neighbours.push_back(stands[j].standId);
    }
  for (Stand& stand : stands)
    stand.neighbours.shrink_to_fit();
}

std::string gf_readApf(const fs::path& path, std::string& name, std::vector<Stand>& stands,
                       QualityFactors& quality) {
  if (parkAirportCode.empty()) return "gf_readApf, no park airport set";
  try {
    return lf_readApf(path, name, stands, quality);
  } catch (const UserErrorException&) {
    throw;
  } catch (const std::exception& error) {
    return fmt::format("exception in readApf: {}", error.what());
  }
}

bool gf_readApfForGateCheck(std::string_view code, std::string_view standId) {
  try {
    const fs::path path = findAirportFile(code);
    if (path.empty()) return false;
    const pugi::xml_document document = lf_loadOrEmpty(path);
    for (const pugi::xml_node parkpos : document.child("parkpositions").children("parkpos"))
      if (standId == parkpos.attribute("id").value()) return true;
    return false;
  } catch (const std::exception& error) {
    logLine(fmt::format("exception in gf_readApfForGateCheck: {}", error.what()));
  } catch (...) {
    logLine("exception in gf_readApfForGateCheck: unknown");
  }
  return false;
}

std::int32_t readStandCount(const fs::path& path) {
  return fileInt(lf_loadOrEmpty(path), "num_parkpos").value_or(0);
}

std::string readPublisher(const fs::path& path) {
  return fileParameter(lf_loadOrEmpty(path), "publisher").value_or("");
}

bool hasQualityFactors(const fs::path& path) {
  const pugi::xml_document document = lf_loadOrEmpty(path);
  return fileInt(document, "Qf_real").value_or(-1) >= 0 || fileInt(document, "Qf_soft").value_or(-1) >= 0;
}

} // namespace ory
