// The processing step of the liveries scan: from the sorted records to the livery table and the tables of
// the matcher, with the summary of what is installed per airline, type and category.
#include "base/display.h"
#include "base/log.h"
#include "base/parameters.h"
#include "base/paths.h"
#include "base/text_files.h"
#include "liveries/dbase.h"
#include "liveries/liveries_scan.h"
#include "liveries/livery_table.h"
#include "liveries/matching.h"
#include "liveries/regcodes.h"
#include "liveries/text_tokens.h"

#include <fmt/format.h>

#include <algorithm>

namespace ory {

namespace {

namespace fs = std::filesystem;

const fs::path inlineRegcodesFile = errorsFolder / "InlineRegcodes.txt";
constexpr std::size_t typesPerLine = 20;

std::string_view lf_plural(std::size_t count) {
  return count > 1 ? "s" : "";
}

std::vector<std::string> lf_sortedAirlines() {
  std::vector<std::string> airlines;
  for (const auto& [airline, types] : liveryTable)
    airlines.push_back(airline);
  std::sort(airlines.begin(), airlines.end());
  return airlines;
}

void lf_buildAirlineLiveries() {
  for (const auto& [airline, types] : liveryTable)
    for (const auto& [type, titles] : types.liveries)
      for (const LiveryTitle& title : titles)
        airlineLiveries[title.cargo ? 1 : 0][airline][type].push_back(title.title);
}

// The first record in list order keeps a regcode that two titles claim.
void lf_bindInlineRegcodes() {
  std::vector<std::string> clashes;
  for (LiveryData& livery : scannedLiveries) {
    if (livery.regcode.empty()) continue;
    const std::string key = noMatchKey(livery.airline, livery.type);
    const std::string_view title = installedTitle(livery.title);
    if (title.empty()) {
      logWarning(fmt::format("sys error: livery \"{}\" for a [{}] with regcode {} not available",
                             livery.title, key, livery.regcode));
      continue;
    }
    const auto [place, added] = regcodeLiveries.try_emplace(livery.regcode, title);
    if (added || place->second == title) continue;
    clashes.push_back(
        fmt::format("[{}] {} \"{}\" => in use by \"{}\"", key, livery.regcode, title, place->second));
    livery.regcode.clear();
  }
  std::error_code ignored;
  fs::remove(inlineRegcodesFile, ignored);
  if (clashes.empty()) return;
  std::sort(clashes.begin(), clashes.end());
  std::string text;
  for (const std::string& line : clashes)
    text.append(text.empty() ? "" : "\n").append(line);
  writeText(text, inlineRegcodesFile);
  logLine(
      fmt::format("{} in-line regcode clashes, see \"{}\"", clashes.size(), pathText(inlineRegcodesFile)));
}

// Every title under its type, whatever the airline; within a type in the order of airline and table.
void lf_buildModelLiveries() {
  struct Entry {
    std::string_view type;
    std::string_view title;
    bool cargo;
  };
  std::vector<Entry> entries;
  entries.reserve(15000);
  for (const std::string& airline : lf_sortedAirlines()) {
    const AirlineLiveries& types = liveryTable.at(airline);
    for (const std::string& type : types.types)
      for (const LiveryTitle& title : types.liveries.at(type))
        entries.push_back({type, title.title, title.cargo});
  }
  std::stable_sort(entries.begin(), entries.end(),
                   [](const Entry& a, const Entry& b) { return a.type < b.type; });
  for (const Entry& entry : entries)
    modelLiveries[entry.cargo ? 1 : 0][std::string(entry.type)].push_back(entry.title);
}

// "  A320,B738,..." 20 to a line; every type but the last followed by a comma.
void lf_logTypes(const std::vector<std::string>& types) {
  std::string line = "  ";
  for (std::size_t i = 0; i < types.size(); ++i) {
    line += types[i];
    if (i + 1 == types.size()) break;
    line += ',';
    if ((i + 1) % typesPerLine != 0) continue;
    logLine(line);
    line = "  ";
  }
  logLine(line);
}

void lf_logGenericLiveries() {
  const auto zzz = liveryTable.find("ZZZ");
  if (zzz == liveryTable.end() || zzz->second.types.empty()) {
    logLine("No generic liveries");
    return;
  }
  std::vector<std::string> types = zzz->second.types;
  std::sort(types.begin(), types.end());
  logLine(fmt::format("{} model{} have a generic livery", types.size(), lf_plural(types.size())));
  lf_logTypes(types);
}

// Without a livery of its category the program does not ask for such aircraft at all in this run.
void lf_switchOff(ModelCategory rawCategory) {
  struct Switch {
    ModelCategory category;
    BoolParameter* parameter;
    std::string_view what;
  };
  static const std::array<Switch, 3> switches{
      Switch{ModelCategory::Light, &LIGHT_AIRCRAFT, "light aircraft"},
      {ModelCategory::HighPerf, &HIGH_PERF_AIRCRAFT, "High Perf aircraft"},
      {ModelCategory::Rotorcraft, &HELICOPTERS, "Helicopters"}};
  for (const Switch& entry : switches) {
    if (entry.category != rawCategory) continue;
    if (entry.parameter->value) {
      entry.parameter->value = false;
      logLine(fmt::format("{} temporary switched off because you do not have {} installed",
                          entry.parameter->name, entry.what));
      showBool(*entry.parameter);
    }
    enableControl(*entry.parameter, false);
  }
}

void lf_categorySummary(ModelCategory category) {
  std::array<std::size_t, 2> counts{};
  std::vector<std::string> types;
  for (std::size_t cargo = 0; cargo < 2; ++cargo)
    for (const auto& [type, titles] : modelLiveries[cargo]) {
      if (modelCategory(type) != category) continue;
      counts[cargo] += titles.size();
      types.push_back(type);
    }
  const std::string_view name = modelCategoryName(category);
  if (counts[0] + counts[1] == 0) {
    logLine(fmt::format("Category {}: No livery found", name));
    lf_switchOff(category);
    return;
  }
  std::string line = fmt::format("Category {}: {} pax liverie{}", name, counts[0], lf_plural(counts[0]));
  if (counts[1] > 0) line += fmt::format(" and {} cargo liverie{}", counts[1], lf_plural(counts[1]));
  logLine(line);
  std::sort(types.begin(), types.end());
  types.erase(std::unique(types.begin(), types.end()), types.end());
  lf_logTypes(types);
  if (TypeList* models = smallModels(category)) *models = types;
}

} // namespace

void processLiveries() {
  logLine("\nProcessing scanned liveries");
  display.liveryCount = static_cast<std::int32_t>(scannedLiveries.size());
  buildLiveryTable(scannedLiveries);
  lf_buildAirlineLiveries();
  lf_bindInlineRegcodes();
  readRegcodeFiles();
  indexSpecialLiveries();
  logLine(fmt::format("{} registration codes", regcodeLiveries.size()));
  lf_buildModelLiveries();
  logLine(fmt::format("{} airlines, {} pax aircraft models and {} cargo aircraft models", liveryTable.size(),
                      modelLiveries[0].size(), modelLiveries[1].size()));
  buildSimilarTables();
  lf_logGenericLiveries();
  for (TypeList* models : {&lightModels, &buzjetModels, &rotorcraftModels}) {
    models->clear();
    models->reserve(32);
  }
  for (std::int32_t category = 0; category < static_cast<std::int32_t>(modelCategoryCount); ++category)
    lf_categorySummary(static_cast<ModelCategory>(category));
}

} // namespace ory
