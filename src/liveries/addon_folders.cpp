#include "liveries/addon_folders.h"

#include "base/log.h"
#include "base/text_files.h"
#include "liveries/text_tokens.h"
#include "os/folders.h"

#include <fmt/format.h>
#include <pugixml.hpp>

#include <algorithm>
#include <array>

namespace ory {

namespace {

namespace fs = std::filesystem;

// The simulator's own SimObjects folders: they hold no AI liveries.
constexpr std::array<std::string_view, 10> stockFolders{
    "Airplanes", "Avatars", "Rotorcraft",  "GroundVehicles", "Boats",
    "Animals",   "Misc",    "Submersible", "Weapons",        "Countermeasures"};
// Packages with SimObjects that are no aircraft.
constexpr std::array<std::string_view, 2> skippedPackages{"Lights Reborn", "Aerosoft Geneva Professional"};

bool lf_isSkippedPackage(std::string_view path) {
  return std::any_of(skippedPackages.begin(), skippedPackages.end(),
                     [path](std::string_view word) { return path.find(word) != std::string_view::npos; });
}

// The trimmed text behind the first '='.
std::string_view lf_value(std::string_view line) {
  const std::size_t equals = line.find('=');
  return equals == std::string_view::npos ? std::string_view() : trimBlanks(line.substr(equals + 1));
}

std::string lf_upper(std::string_view text) {
  std::string upper(text);
  std::transform(upper.begin(), upper.end(), upper.begin(),
                 [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
  return upper;
}

bool lf_isSection(std::string_view line) {
  return trimBlanks(line).starts_with('[');
}

// "[Package.3]" or "[Entry.0]": a section line naming word.
bool lf_isSection(std::string_view line, std::string_view upperWord) {
  return lf_isSection(line) && lf_upper(trimBlanks(line)).find(upperWord) != std::string::npos;
}

bool lf_isKey(std::string_view line, std::string_view upperKey) {
  const std::string_view trimmed = trimBlanks(line);
  const std::size_t equals = trimmed.find('=');
  return equals != std::string_view::npos && lf_upper(trimBlanks(trimmed.substr(0, equals))) == upperKey;
}

bool lf_isStockFolder(std::string_view path) {
  return std::any_of(stockFolders.begin(), stockFolders.end(),
                     [path](std::string_view word) { return path.find(word) != std::string_view::npos; });
}

// "C:\..." or "\\server\..." (and "/..." for tests on POSIX) stand for themselves.
bool lf_isAbsolute(std::string_view text) {
  return (text.size() >= 2 && text[1] == ':') || text.starts_with("\\\\") || text.starts_with('/');
}

fs::path lf_configFile(const fs::path& base, std::int32_t version, std::string_view name) {
  return base / "Lockheed Martin" / fmt::format("Prepar3D v{}", version) / name;
}

// Lines of a configuration file, with its frame lines in the log; empty when it is missing.
std::vector<std::string> lf_readConfig(const fs::path& file) {
  logLine(fmt::format("\nReading {} for AI add-on packages...", pathText(file)));
  std::vector<std::string> lines;
  if (!fs::exists(file) || !gf_readExtTextFileToStringVector(file, lines))
    logLine(pathText(file) + " not found!");
  return lines;
}

// The SimObjects components of one package, from its add-on.xml.
std::vector<fs::path> lf_packageSimObjects(const fs::path& package) {
  logLine(fmt::format("   exploring {}", pathText(package)));
  const fs::path file = package / "add-on.xml";
  pugi::xml_document document;
  if (!document.load_file(file.c_str())) {
    logLine(pathText(file) + " not found!");
    return {};
  }
  std::vector<fs::path> folders;
  for (const pugi::xml_node component : document.first_child().children("AddOn.Component")) {
    if (lf_upper(trimBlanks(component.child_value("Category"))) != "SIMOBJECTS") continue;
    const std::string_view path = trimBlanks(component.child_value("Path"));
    const fs::path folder = package / configPath(path);
    if (path.empty() || lf_isSkippedPackage(pathText(folder))) continue;
    logLine(fmt::format("      Simobjects found:{}", path));
    folders.push_back(folder);
  }
  return folders;
}

struct Package {
  std::vector<std::string> paths;
  bool active = true; // the simulator loads an inactive package's folders no more
};

void lf_examine(const Package& package, std::vector<fs::path>& rawFolders, std::int32_t& found) {
  if (!package.active) return;
  for (const std::string& path : package.paths) {
    const std::vector<fs::path> folders = lf_packageSimObjects(configPath(path));
    found += folders.empty() ? 0 : 1;
    rawFolders.insert(rawFolders.end(), folders.begin(), folders.end());
  }
}

} // namespace

fs::path configPath(std::string_view rawText) {
  std::string text(rawText);
  std::replace(text.begin(), text.end(), '\\', '/');
  return fs::path(std::u8string(text.begin(), text.end())).make_preferred();
}

std::vector<fs::path> addOnPackageFolders(std::int32_t version) {
  std::vector<fs::path> folders;
  std::int32_t found = 0;
  // Only [Package.N] sections name packages; a [DiscoveryPath.N] holds packages that have entries of their
  // own.
  Package package;
  bool inPackage = false;
  for (const std::string& line : lf_readConfig(lf_configFile(appDataFolder(), version, "add-ons.cfg"))) {
    if (lf_isSection(line)) {
      lf_examine(package, folders, found);
      package = {};
      inPackage = lf_isSection(line, "PACKAGE");
    } else if (!inPackage) {
      continue;
    } else if (lf_isKey(line, "ACTIVE")) {
      package.active = isTrueText(lf_value(line));
    } else if (lf_isKey(line, "PATH")) {
      logLine(fmt::format("path found:{}", lf_value(line)));
      package.paths.emplace_back(lf_value(line));
    }
  }
  lf_examine(package, folders, found);
  logLine(fmt::format("{} AI add-on packages found", found));
  return folders;
}

std::vector<fs::path> simObjectsCfgFolders(std::int32_t version, std::string_view installPath) {
  std::vector<fs::path> folders;
  std::vector<fs::path> entry;
  bool active = true;
  bool inEntry = false;
  const auto close = [&] {
    if (active) folders.insert(folders.end(), entry.begin(), entry.end());
    entry.clear();
    active = true;
  };
  for (const std::string& line :
       lf_readConfig(lf_configFile(programDataFolder(), version, "simobjects.cfg"))) {
    if (lf_isSection(line)) {
      close();
      inEntry = lf_isSection(line, "ENTRY");
    } else if (!inEntry) {
      continue;
    } else if (lf_isKey(line, "ACTIVE")) {
      active = isTrueText(lf_value(line));
    } else if (lf_isKey(line, "PATH")) {
      const std::string_view path = lf_value(line);
      if (lf_isAbsolute(path))
        entry.push_back(configPath(path));
      else if (!lf_isStockFolder(path))
        entry.push_back(configPath(installPath) / configPath(path));
    }
  }
  close();
  logLine(fmt::format("{} AI add-on packages found", folders.size()));
  return folders;
}

} // namespace ory
