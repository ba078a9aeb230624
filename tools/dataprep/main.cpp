// dataprep build --out DIR [--sources DIR] [--rules DIR] [--registrations FILE] [--aig FILE] [--version
// X.Y.Z] dataprep show FILE
#include "base/version.h"
#include "dataprep.h"

#include <fmt/format.h>

#include <chrono>
#include <cstdio>
#include <ctime>
#include <iostream>
#include <map>
#include <optional>

namespace ory {

namespace {

namespace fs = std::filesystem;

constexpr const char* usage =
    "usage: dataprep build --out DIR [--sources DIR] [--rules DIR] [--registrations FILE] [--aig FILE]\n"
    "                      [--version X.Y.Z]\n"
    "       dataprep show FILE\n";

// The build's UTC date and time as a version that grows from build to build: year, month and day, hour and
// minute.
Version lf_versionNow() {
  const std::time_t now = std::time(nullptr);
  std::tm utc{};
#ifdef _WIN32
  gmtime_s(&utc, &now);
#else
  gmtime_r(&now, &utc);
#endif
  return {utc.tm_year + 1900, (utc.tm_mon + 1) * 100 + utc.tm_mday, utc.tm_hour * 100 + utc.tm_min};
}

int lf_build(const std::map<std::string, std::string>& options) {
  const fs::path out = options.at("--out");
  const fs::path sourcesFolder =
      options.contains("--sources") ? options.at("--sources") : DATAPREP_SOURCES_DIR;
  const fs::path rules = options.contains("--rules") ? options.at("--rules") : DATAPREP_RULES_DIR;
  const Version version =
      options.contains("--version") ? parseVersion(options.at("--version")) : lf_versionNow();

  Sources sources;
  readTypeSources(sourcesFolder, sources);
  readWingspanSources(sourcesFolder, sources);
  readAirlineSources(sourcesFolder, sources);
  readAirportSources(sourcesFolder, rules, sources);
  if (options.contains("--registrations")) readRegistrationSource(options.at("--registrations"), sources);
  if (options.contains("--aig")) readAigSource(options.at("--aig"), sources);
  const PreparedData data = prepareData(sources, rules);

  writeDbaseXml(data, out / "dbase" / "dbase.xml");
  writeVersionJson(version.major, version.minor, version.patch, out / "dbase" / "version.json");
  writeAigRegcodesXml(data, out / "aig" / "AIG-regcodes.xml");
  writeVersionJson(version.major, version.minor, version.patch, out / "aig" / "version.json");
  writeFixesXml(data, out / "fixes.xml");
  writeAirportsXml(data, out / "airports_p3d.xml");

  for (const std::string& warning : prepWarnings)
    std::cerr << "dataprep: " << warning << '\n';
  std::size_t categorized = 0;
  for (const auto& [category, codes] : data.categories)
    categorized += codes.size();
  std::cout << fmt::format(
      "version {}: {} types ({} in a category, {} similar groups, {} wingspans), {} airlines "
      "({} cargo), {} publishers, {} registrations, {} fixes, {} airports, {} AIG liveries, "
      "{} warnings\n",
      versionText(version), data.types.size(), categorized, data.similarGroups.size(), data.wingspans.size(),
      data.airlines.size(), data.cargoOperators.size(), data.publishers.size(), data.registrations.size(),
      data.modelFixes.size() + data.pvtFixes.size() + data.govFixes.size(), data.airports.size(),
      data.aigLiveries.size(), prepWarnings.size());
  return 0;
}

// "--key value" pairs; nothing else is accepted.
std::optional<std::map<std::string, std::string>> lf_options(int argc, char** argv) {
  std::map<std::string, std::string> options;
  for (int i = 2; i < argc; i += 2) {
    const std::string key = argv[i];
    if (i + 1 >= argc || !key.starts_with("--")) return std::nullopt;
    options[key] = argv[i + 1];
  }
  for (const auto& [key, value] : options)
    if (key != "--out" && key != "--sources" && key != "--rules" && key != "--registrations" &&
        key != "--aig" && key != "--version")
      return std::nullopt;
  if (!options.contains("--out")) return std::nullopt;
  return options;
}

} // namespace

} // namespace ory

int main(int argc, char** argv) {
  using namespace ory;
  const std::string command = argc > 1 ? argv[1] : "";
  try {
    if (command == "show" && argc == 3) {
      std::cout << showDbase(argv[2]);
      return 0;
    }
    if (command == "build")
      if (const auto options = lf_options(argc, argv)) return lf_build(*options);
  } catch (const std::exception& e) {
    std::cerr << "dataprep: " << e.what() << '\n';
    return 1;
  }
  std::cerr << usage;
  return 2;
}
