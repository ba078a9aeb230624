// dataprep build --out DIR [options], dataprep serve-tree DIR [options], dataprep show FILE
#include "base/version.h"
#include "dataprep.h"
#include "updates/server_paths.h"

#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <ctime>
#include <iostream>
#include <iterator>
#include <map>
#include <optional>

namespace ory {

namespace {

namespace fs = std::filesystem;

constexpr const char* usage =
    "usage: dataprep build --out DIR [--sources DIR] [--rules DIR] [--registrations FILE] [--aig FILE]\n"
    "                      [--version X.Y.Z]\n"
    "       dataprep serve-tree DIR [--sources DIR] [--rules DIR] [--registrations FILE] [--aig FILE]\n"
    "                      [--version X.Y.Z] [--bgl DIR] [--program-version X.Y.Z] [--installer FILE]\n"
    "       dataprep show FILE\n";

constexpr std::string_view knownOptions[] = {"--out",      "--sources", "--rules", "--registrations",
                                             "--aig",      "--version", "--bgl",   "--program-version",
                                             "--installer"};

using Options = std::map<std::string, std::string>;

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

std::string lf_option(const Options& options, const std::string& key, std::string_view otherwise) {
  return options.contains(key) ? options.at(key) : std::string(otherwise);
}

Version lf_dataVersion(const Options& options) {
  return options.contains("--version") ? parseVersion(options.at("--version")) : lf_versionNow();
}

PreparedData lf_prepare(const Options& options) {
  const fs::path sourcesFolder = lf_option(options, "--sources", DATAPREP_SOURCES_DIR);
  const fs::path rules = lf_option(options, "--rules", DATAPREP_RULES_DIR);
  Sources sources;
  readTypeSources(sourcesFolder, sources);
  readWingspanSources(sourcesFolder, sources);
  readAirlineSources(sourcesFolder, sources);
  readAirportSources(sourcesFolder, rules, sources);
  if (options.contains("--registrations")) readRegistrationSource(options.at("--registrations"), sources);
  if (options.contains("--aig")) readAigSource(options.at("--aig"), sources);
  return prepareData(sources, rules);
}

void lf_printWarnings() {
  for (const std::string& warning : prepWarnings)
    std::cerr << "dataprep: " << warning << '\n';
}

void lf_writeVersion(const Version& version, const fs::path& file) {
  writeVersionJson(version.major, version.minor, version.patch, file);
}

int lf_build(const Options& options) {
  const fs::path out = options.at("--out");
  const Version version = lf_dataVersion(options);
  const PreparedData data = lf_prepare(options);
  writeDbaseXml(data, out / "dbase" / "dbase.xml");
  lf_writeVersion(version, out / "dbase" / "version.json");
  writeAigRegcodesXml(data, out / "aig" / "AIG-regcodes.xml");
  lf_writeVersion(version, out / "aig" / "version.json");
  writeFixesXml(data, out / "fixes.xml");
  writeAirportsXml(data, out / "airports_p3d.xml");

  lf_printWarnings();
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

// The files of the update server, each where the program looks for it below the server's address.
int lf_serveTree(const fs::path& root, const Options& options) {
  const fs::path rules = lf_option(options, "--rules", DATAPREP_RULES_DIR);
  const Version version = lf_dataVersion(options);
  const PreparedData data = lf_prepare(options);
  const auto place = [&](std::string_view serverPath) { return root / fs::path(serverPath.substr(1)); };
  writeDbaseXml(data, place(dbasePayloadPath));
  lf_writeVersion(version, place(dbaseVersionPath));
  writeAigRegcodesXml(data, place(regcodesPayloadPath));
  lf_writeVersion(version, place(regcodesVersionPath));
  writeArchive(lf_option(options, "--bgl", DATAPREP_BGL_DIR), rules, place(archivePayloadPath),
               place(docsPath));
  lf_writeVersion(version, place(archiveVersionPath));
  const Version program = parseVersion(lf_option(options, "--program-version", programVersion));
  lf_writeVersion(program, place(programVersionPath));
  if (options.contains("--installer"))
    writeInstallerZip(options.at("--installer"), place(releasePath) / installerName(program));
  lf_printWarnings();
  std::cout << fmt::format("served tree in {}: data version {}, program version {}{}\n", root.string(),
                           versionText(version), versionText(program),
                           options.contains("--installer") ? " with its installer" : "");
  return 0;
}

// "--key value" pairs from first on; nothing else is accepted.
std::optional<Options> lf_options(int argc, char** argv, int first) {
  Options options;
  for (int i = first; i < argc; i += 2) {
    const std::string key = argv[i];
    if (i + 1 >= argc ||
        std::find(std::begin(knownOptions), std::end(knownOptions), key) == std::end(knownOptions))
      return std::nullopt;
    options[key] = argv[i + 1];
  }
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
      if (const auto options = lf_options(argc, argv, 2); options && options->contains("--out"))
        return lf_build(*options);
    if (command == "serve-tree" && argc >= 3)
      if (const auto options = lf_options(argc, argv, 3); options && !options->contains("--out"))
        return lf_serveTree(argv[2], *options);
  } catch (const std::exception& e) {
    std::cerr << "dataprep: " << e.what() << '\n';
    return 1;
  }
  std::cerr << usage;
  return 2;
}
