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

bool lf_isSkippedPackage(std::string_view PATH) {
  return std::any_of(skippedPackages.begin(), skippedPackages.end(),
                     [PATH](std::string_view WORD) { return PATH.find(WORD) != std::string_view::npos; });
}

// The trimmed text behind the first '='.
std::string_view lf_value(std::string_view LINE) {
  const std::size_t equals = LINE.find('=');
  return equals == std::string_view::npos ? std::string_view() : trimBlanks(LINE.substr(equals + 1));
}

std::string lf_upper(std::string_view TEXT) {
  std::string upper(TEXT);
  std::transform(upper.begin(), upper.end(), upper.begin(),
                 [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
  return upper;
}

bool lf_isSection(std::string_view LINE) {
  return trimBlanks(LINE).starts_with('[');
}

// "[Package.3]" or "[Entry.0]": a section line naming WORD.
bool lf_isSection(std::string_view LINE, std::string_view UPPER_WORD) {
  return lf_isSection(LINE) && lf_upper(trimBlanks(LINE)).find(UPPER_WORD) != std::string::npos;
}

bool lf_isKey(std::string_view LINE, std::string_view UPPER_KEY) {
  const std::string_view trimmed = trimBlanks(LINE);
  const std::size_t equals = trimmed.find('=');
  return equals != std::string_view::npos && lf_upper(trimBlanks(trimmed.substr(0, equals))) == UPPER_KEY;
}

bool lf_isStockFolder(std::string_view PATH) {
  return std::any_of(stockFolders.begin(), stockFolders.end(),
                     [PATH](std::string_view WORD) { return PATH.find(WORD) != std::string_view::npos; });
}

// "C:\..." or "\\server\..." (and "/..." for tests on POSIX) stand for themselves.
bool lf_isAbsolute(std::string_view TEXT) {
  return (TEXT.size() >= 2 && TEXT[1] == ':') || TEXT.starts_with("\\\\") || TEXT.starts_with('/');
}

fs::path lf_configFile(const fs::path& BASE, std::int32_t VERSION, std::string_view NAME) {
  return BASE / "Lockheed Martin" / fmt::format("Prepar3D v{}", VERSION) / NAME;
}

// Lines of a configuration file, with its frame lines in the log; empty when it is missing.
std::vector<std::string> lf_readConfig(const fs::path& FILE) {
  logLine(fmt::format("\nReading {} for AI add-on packages...", pathText(FILE)));
  std::vector<std::string> lines;
  if (!fs::exists(FILE) || !gf_readExtTextFileToStringVector(FILE, lines))
    logLine(pathText(FILE) + " not found!");
  return lines;
}

// The SimObjects components of one package, from its add-on.xml.
std::vector<fs::path> lf_packageSimObjects(const fs::path& PACKAGE) {
  logLine(fmt::format("   exploring {}", pathText(PACKAGE)));
  const fs::path file = PACKAGE / "add-on.xml";
  pugi::xml_document document;
  if (!document.load_file(file.c_str())) {
    logLine(pathText(file) + " not found!");
    return {};
  }
  std::vector<fs::path> folders;
  for (const pugi::xml_node component : document.first_child().children("AddOn.Component")) {
    if (lf_upper(trimBlanks(component.child_value("Category"))) != "SIMOBJECTS") continue;
    const std::string_view path = trimBlanks(component.child_value("Path"));
    const fs::path folder = PACKAGE / configPath(path);
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

void lf_examine(const Package& PACKAGE, std::vector<fs::path>& FOLDERS, std::int32_t& FOUND) {
  if (!PACKAGE.active) return;
  for (const std::string& path : PACKAGE.paths) {
    const std::vector<fs::path> folders = lf_packageSimObjects(configPath(path));
    FOUND += folders.empty() ? 0 : 1;
    FOLDERS.insert(FOLDERS.end(), folders.begin(), folders.end());
  }
}

} // namespace

fs::path configPath(std::string_view TEXT) {
  std::string text(TEXT);
  std::replace(text.begin(), text.end(), '\\', '/');
  return fs::path(std::u8string(text.begin(), text.end())).make_preferred();
}

std::vector<fs::path> addOnPackageFolders(std::int32_t VERSION) {
  std::vector<fs::path> folders;
  std::int32_t found = 0;
  // Only [Package.N] sections name packages; a [DiscoveryPath.N] holds packages that have entries of their
  // own.
  Package package;
  bool inPackage = false;
  for (const std::string& line : lf_readConfig(lf_configFile(appDataFolder(), VERSION, "add-ons.cfg"))) {
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

std::vector<fs::path> simObjectsCfgFolders(std::int32_t VERSION, std::string_view INSTALL_PATH) {
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
       lf_readConfig(lf_configFile(programDataFolder(), VERSION, "simobjects.cfg"))) {
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
        entry.push_back(configPath(INSTALL_PATH) / configPath(path));
    }
  }
  close();
  logLine(fmt::format("{} AI add-on packages found", folders.size()));
  return folders;
}

} // namespace ory
