#include "base/log.h"
#include "base/parameters.h"
#include "base/text_files.h"
#include "liveries/text_tokens.h"
#include "os/folders.h"
#include "os/utf.h"
#include "scenery/bgl.h"
#include "scenery/scenery_scan.h"

#include <fmt/format.h>
#include <pugixml.hpp>

#include <algorithm>
#include <array>
#include <cctype>
#include <climits>

namespace ory {

namespace {

namespace fs = std::filesystem;

constexpr std::array<std::string_view, 3> activeKeys = {"Active", "ACTIVE", "active"};
constexpr std::array<std::string_view, 3> localKeys = {"Local", "LOCAL", "local"};
constexpr std::array<std::string_view, 2> titleKeys = {"Title", "TITLE"};
constexpr std::array<std::string_view, 2> layerKeys = {"Layer", "LAYER"};
constexpr std::array<std::string_view, 2> requiredKeys = {"Required", "REQUIRED"};
constexpr std::array<std::string_view, 3> areaWords = {"Area", "AREA", "area"};
constexpr std::array<std::string_view, 3> trueWords = {"True", "TRUE", "true"};

template <std::size_t N>
bool lf_isOneOf(std::string_view text, const std::array<std::string_view, N>& words) {
  return std::find(words.begin(), words.end(), text) != words.end();
}

template <std::size_t N>
bool lf_holdsOneOf(std::string_view text, const std::array<std::string_view, N>& words) {
  return std::any_of(words.begin(), words.end(),
                     [&](std::string_view word) { return text.find(word) != std::string_view::npos; });
}

std::string lf_lower(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(), [](unsigned char c) { return std::tolower(c); });
  return text;
}

// The simulator writes Windows paths; the headless build reads them with its own separator.
fs::path lf_nativePath(std::string text) {
  if constexpr (fs::path::preferred_separator == '/') std::replace(text.begin(), text.end(), '\\', '/');
  return utf8ToPath(text);
}

// a path without a drive is relative to the simulator's folder.
fs::path lf_configPath(const std::string& text) {
  const fs::path path = lf_nativePath(text);
  if (text.find(":\\") != std::string::npos || path.is_absolute()) return path;
  return lf_nativePath(SIM_INSTALL_PATH.value) / path;
}

struct CfgArea {
  bool inArea = false;
  bool active = false;
  std::string local;
  SceneryArea area;
};

void lf_closeArea(CfgArea& current, std::vector<SceneryArea>& areas) {
  if (current.inArea && current.active && !current.local.empty() && !isSkippedFolder(current.local)) {
    current.area.path = lf_configPath(current.local);
    logLine(fmt::format("      found:{}", pathText(current.area.path)));
    areas.push_back(std::move(current.area));
  }
  current = {};
}

void lf_takeKey(CfgArea& current, std::string_view key, std::string_view value) {
  if (lf_isOneOf(key, activeKeys))
    current.active = lf_isOneOf(value, trueWords);
  else if (lf_isOneOf(key, localKeys))
    current.local = std::string(value);
  else if (lf_isOneOf(key, titleKeys))
    current.area.title = std::string(value);
  else if (lf_isOneOf(key, layerKeys))
    current.area.layer = std::atoi(std::string(value).c_str());
  else if (lf_isOneOf(key, requiredKeys))
    current.area.required = lf_isOneOf(value, trueWords);
}

void lf_sortByLayer(std::vector<SceneryArea>& areas) {
  std::stable_sort(areas.begin(), areas.end(),
                   [](const SceneryArea& a, const SceneryArea& b) { return a.layer < b.layer; });
}

} // namespace

fs::path simulatorDataFolder(std::int32_t version) {
  return programDataFolder() / "Lockheed Martin" / fmt::format("Prepar3D v{}", version);
}

fs::path stockAirportsPath() {
  if (SIM_INSTALL_PATH.value.empty()) return {};
  return lf_nativePath(SIM_INSTALL_PATH.value) / "Scenery";
}

bool isInStockAirports(const fs::path& path) {
  const fs::path stock = stockAirportsPath();
  if (stock.empty()) return false;
  const std::string stockText = lf_lower(pathText(stock.lexically_normal()));
  std::string text = lf_lower(pathText(path.lexically_normal()));
  if (!text.starts_with(stockText)) return false;
  return text.size() == stockText.size() || text[stockText.size()] == '/' || text[stockText.size()] == '\\' ||
         stockText.ends_with('/') || stockText.ends_with('\\');
}

std::vector<SceneryArea> readSceneryCfg(std::int32_t version) {
  const fs::path file = simulatorDataFolder(version) / "scenery.cfg";
  logLine(fmt::format("\nReading: {} for airport add-ons ...", pathText(file)));
  std::vector<std::string> lines;
  std::vector<SceneryArea> areas;
  if (!gf_readExtTextFileToStringVector(file, lines)) {
    logLine(pathText(file) + " not found!");
    return areas;
  }
  CfgArea current;
  for (const std::string& line : lines) {
    const std::string_view text = trimBlanks(line);
    if (text.starts_with('[')) {
      lf_closeArea(current, areas);
      current.inArea = lf_holdsOneOf(text, areaWords);
      continue;
    }
    const auto equals = text.find('=');
    if (current.inArea && equals != std::string_view::npos)
      lf_takeKey(current, trimBlanks(text.substr(0, equals)), trimBlanks(text.substr(equals + 1)));
  }
  lf_closeArea(current, areas);
  lf_sortByLayer(areas);
  logLine(fmt::format("{} scenery add-on paths found\n", areas.size()));
  return areas;
}

std::vector<SceneryArea> readSceneryAddOns(std::int32_t version) {
  const fs::path file = simulatorDataFolder(version) / "scenery_add-ons.xml";
  logLine(fmt::format("\nReading {} for add-on airport ...", pathText(file)));
  std::vector<SceneryArea> areas;
  pugi::xml_document document;
  const pugi::xml_parse_result loaded = document.load_file(file.c_str());
  if (loaded.status == pugi::status_file_not_found) {
    logLine(pathText(file) + " not found!");
    return areas;
  }
  if (!loaded)
    logLine(fmt::format("{} could not be read completely: {}", pathText(file), loaded.description()));
  for (const pugi::xpath_node& node : document.select_nodes("//AddOn.Component")) {
    const pugi::xml_node component = node.node();
    const std::string path = std::string(trimBlanks(component.child_value("Path")));
    if (lf_lower(std::string(trimBlanks(component.child_value("Category")))) != "scenery" || path.empty())
      continue;
    SceneryArea area;
    area.path = lf_configPath(path);
    area.title = component.child_value("Name");
    const std::string_view layer = trimBlanks(component.child_value("Layer"));
    area.layer = layer.empty() ? INT_MAX : std::atoi(std::string(layer).c_str());
    logLine(fmt::format("      found:{}", pathText(area.path)));
    areas.push_back(std::move(area));
  }
  lf_sortByLayer(areas);
  logLine(fmt::format("{} scenery add-on paths found\n", areas.size()));
  return areas;
}

} // namespace ory
