#include "base/paths.h"
#include "dataprep.h"
#include "liveries/text_tokens.h"
#include "parking/airport_file.h"
#include "scenery/airport_record.h"
#include "scenery/bgl.h"
#include "updates/zip_file.h"

#include <fmt/format.h>

#include <fstream>
#include <iterator>
#include <sstream>
#include <stdexcept>

namespace ory {

namespace {

namespace fs = std::filesystem;

struct ArchiveRule {
  std::string bglFile;
  std::string folder;    // stock, ORBX or thirdparty
  std::string publisher; // thirdparty only
};

std::vector<ArchiveRule> lf_rules(const fs::path& file) {
  std::vector<ArchiveRule> rules;
  for (const std::string& line : ruleLines(file)) {
    std::istringstream words(line);
    ArchiveRule rule;
    words >> rule.bglFile >> rule.folder >> rule.publisher;
    const bool thirdparty = rule.folder == thirdpartyWord;
    if (rule.folder != stockWord && rule.folder != orbxWord && !thirdparty)
      throw std::runtime_error(fmt::format("{}: no archive folder in \"{}\"", file.string(), line));
    if (thirdparty == rule.publisher.empty())
      throw std::runtime_error(
          fmt::format("{}: a publisher for thirdparty only, in \"{}\"", file.string(), line));
    rules.push_back(rule);
  }
  return rules;
}

// An airport file as the program writes a generated one, as bytes.
std::string lf_airportFileBytes(const AirportFile& airport, const fs::path& scratch) {
  const fs::path file = scratch / (airport.code + ".xml");
  if (!writeAirportFile(airport, file, false))
    throw std::runtime_error(fmt::format("can't write {}", file.string()));
  return readWholeFile(file);
}

} // namespace

void writeArchive(const fs::path& bglFolder, const fs::path& rules, const fs::path& zip,
                  const fs::path& docs) {
  const fs::path scratch = zip.parent_path() / "archive.parts";
  fs::create_directories(scratch);
  std::vector<std::pair<std::string, std::string>> entries;
  std::string text = "Airport archive for Prepar3D: folder, publisher, airport, name, stands\n";
  std::string csv = "folder,publisher,code,name,stands\n";
  for (const ArchiveRule& rule : lf_rules(rules / "archive.txt")) {
    const fs::path path = bglFolder / rule.bglFile;
    BglWords bgl;
    if (!readBglFile(path, bgl)) throw std::runtime_error(fmt::format("can't read {}", path.string()));
    std::string damage;
    for (const AirportRecordRef& record : findAirportRecords(bgl, damage)) {
      AirportFile airport = decodeAirportRecord(bgl, record, path);
      airport.publisher = rule.publisher.empty() ? rule.folder : rule.publisher;
      const std::string folder =
          rule.publisher.empty() ? rule.folder : fmt::format("{}/{}", rule.folder, rule.publisher);
      entries.emplace_back(fmt::format("archive/{}/{}.xml", folder, airport.code),
                           lf_airportFileBytes(airport, scratch));
      text += fmt::format("{:<12}{:<12}{:<6}{:<40}{}\n", rule.folder, rule.publisher, airport.code,
                          airport.airportName, airport.stands.size());
      csv += fmt::format("{},{},{},\"{}\",{}\n", rule.folder, rule.publisher, airport.code,
                         airport.airportName, airport.stands.size());
    }
    if (!damage.empty()) prepWarning(fmt::format("{}: {}", path.string(), damage));
  }
  fs::remove_all(scratch);
  fs::create_directories(zip.parent_path());
  writeZip(zip, entries);
  fs::create_directories(docs);
  std::ofstream(docs / "P3D_archive.txt", std::ios::binary) << text;
  std::ofstream(docs / "P3D_archive.csv", std::ios::binary) << csv;
}

void writeInstallerZip(const fs::path& installer, const fs::path& zip) {
  const std::string bytes = readWholeFile(installer);
  if (bytes.empty())
    throw std::runtime_error(fmt::format("{} is empty or can't be read", installer.string()));
  fs::create_directories(zip.parent_path());
  writeZip(zip, {{pathText(installer.filename()), bytes}});
}

} // namespace ory
