#include "liveries/matching.h"

#include "base/display.h"
#include "base/exceptions.h"
#include "base/log.h"
#include "base/parameters.h"
#include "base/run.h"
#include "liveries/livery_table.h"
#include "liveries/random.h"
#include "liveries/regcodes.h"
#include "liveries/text_tokens.h"

#include <fmt/format.h>

#include <algorithm>
#include <optional>
#include <unordered_set>

namespace ory {

std::array<TextMap<TypeTitles>, 2> airlineLiveries;
std::array<TypeTitles, 2> modelLiveries;
TextMap<TextMap<TypeList>> similarByAirline;
TextMap<TypeList> similarInstalled;
TextMap<TypeList> similarAll;
TypeList lightModels;
TypeList buzjetModels;
TypeList rotorcraftModels;
std::unordered_map<std::uint32_t, std::string_view> hexidLiveries;
TitleViews failedLiveries;
std::vector<std::string> failedAircraft;
std::array<std::uint32_t, 6> matchCounts{};
TextOrderedSet noMatchKeys;

namespace {

constexpr int redraws = 5;
constexpr std::string_view simName = "P3D";
constexpr std::size_t bannerWidth = 100;

// The special titles as a set: the pick asks it for every candidate it draws.
std::unordered_set<std::string_view, TextHash, std::equal_to<>> lf_special;

struct Match {
  std::string_view title;
  int step = 0; // 1 to 6
};

bool lf_isSpecial(std::string_view title) {
  return lf_special.contains(title);
}

bool lf_isFailed(std::string_view title) {
  return std::find(failedLiveries.begin(), failedLiveries.end(), title) != failedLiveries.end();
}

// The tie-break among liveries that fit: a random one that no regcode reserves. Empty when all are reserved.
std::string_view lf_pick(const TitleViews& candidates) {
  std::string_view pick = candidates[randomIndex(candidates.size())];
  for (int draw = 0; draw < redraws; ++draw) {
    if (!lf_isSpecial(pick)) return pick;
    pick = candidates[randomIndex(candidates.size())];
  }
  TitleViews plain;
  std::copy_if(candidates.begin(), candidates.end(), std::back_inserter(plain),
               [](std::string_view title) { return !lf_isSpecial(title); });
  return plain.empty() ? std::string_view() : plain[randomIndex(plain.size())];
}

std::string_view lf_pickIn(const TextMap<TypeTitles>& table, std::string_view rawAirline,
                           std::string_view type) {
  const auto airline = table.find(rawAirline);
  if (airline == table.end()) return {};
  const auto titles = airline->second.find(type);
  return titles == airline->second.end() || titles->second.empty() ? std::string_view()
                                                                   : lf_pick(titles->second);
}

// A freighter may wear a passenger livery of its airline; a passenger aircraft never a cargo livery.
std::string_view lf_pickByAirline(std::string_view airline, std::string_view type, bool cargo) {
  const std::string_view title = lf_pickIn(airlineLiveries[cargo ? 1 : 0], airline, type);
  if (!title.empty() || !cargo) return title;
  return lf_pickIn(airlineLiveries[0], airline, type);
}

std::string_view lf_pickByModel(std::string_view type, bool cargo) {
  const TypeTitles& table = modelLiveries[cargo ? 1 : 0];
  const auto titles = table.find(type);
  return titles == table.end() || titles->second.empty() ? std::string_view() : lf_pick(titles->second);
}

bool lf_isSmall(ModelCategory category) {
  return category == ModelCategory::Light || category == ModelCategory::Buzjets ||
         category == ModelCategory::Rotorcraft;
}

// The airline's installed look-alikes of type, freshly shuffled; null when there are none.
TypeList* lf_airlineSimilar(std::string_view rawAirline, std::string_view type) {
  const auto airline = similarByAirline.find(rawAirline);
  if (airline == similarByAirline.end()) return nullptr;
  const auto similar = airline->second.find(type);
  if (similar == airline->second.end()) return nullptr;
  shuffle(similar->second);
  return &similar->second;
}

// Installed look-alikes of type for any airline; for a small type without a group, one installed type of
// its category.
TypeList lf_genericSimilar(std::string_view type) {
  if (const auto similar = similarInstalled.find(type); similar != similarInstalled.end()) {
    shuffle(similar->second);
    return similar->second;
  }
  const TypeList* models = smallModels(modelCategory(type));
  if (!models || models->empty()) return {};
  return {(*models)[randomIndex(models->size())]};
}

Match lf_regcodeStep(const MatchAircraft& aircraft) {
  if (aircraft.regcode.empty()) return {};
  const auto bound = regcodeLiveries.find(aircraft.regcode);
  return bound == regcodeLiveries.end() ? Match() : Match{bound->second, 1};
}

// Steps 2 to 6 of the ladder, as deep as MATCHING_DEPTH allows. Only small aircraft may wear the colours of
// another airline.
Match lf_searchSteps(const MatchAircraft& aircraft, bool cargo) {
  const std::int32_t depth = MATCHING_DEPTH.value;
  const std::string& airline = aircraft.airline;
  const std::string& type = aircraft.type;
  if (depth < 2) return {};
  if (airline == "PVT")
    if (const auto title = lf_pickByAirline("ZZZ", type, cargo); !title.empty()) return {title, 4};
  const std::optional<DbaseRecord> record = lookupDbaseRecord(aircraft.regcode);
  const std::string opr = record ? record->opr : std::string();
  const std::string owner = record ? record->airl : std::string();
  if (!airline.empty()) {
    if (const auto title = lf_pickByAirline(airline, type, cargo); !title.empty()) return {title, 2};
    if (!opr.empty())
      if (const auto title = lf_pickByAirline(owner, type, cargo); !title.empty()) return {title, 2};
  }
  if (depth >= 3 && !airline.empty()) {
    if (TypeList* similar = lf_airlineSimilar(airline, type)) {
      for (const std::string& other : *similar)
        if (const auto title = lf_pickByAirline(airline, other, cargo); !title.empty()) return {title, 3};
      if (!opr.empty()) {
        shuffle(*similar);
        for (const std::string& other : *similar)
          if (const auto title = lf_pickByAirline(owner, other, cargo); !title.empty()) return {title, 3};
      }
    }
  }
  if (depth == 4)
    if (const auto title = lf_pickByAirline("ZZZ", type, cargo); !title.empty()) return {title, 4};
  if (depth < 3 || !lf_isSmall(aircraft.category)) return {};
  if (airline != "PVT")
    if (const auto title = lf_pickByAirline("ZZZ", type, cargo); !title.empty()) return {title, 4};
  if (const auto title = lf_pickByModel(type, cargo); !title.empty()) return {title, 5};
  for (const std::string& other : lf_genericSimilar(type))
    if (const auto title = lf_pickByModel(other, cargo); !title.empty()) return {title, 6};
  return {};
}

// A refused title found by the ladder ends the search without a match.
Match lf_unlessFailed(Match match) {
  return match.title.empty() || lf_isFailed(match.title) ? Match() : match;
}

void lf_setTitle(MatchAircraft& aircraft, std::string_view title) {
  aircraft.liveryTitle = title;
  aircraft.fsltlLivery = title.find("FSLTL_") != std::string_view::npos;
}

std::string lf_banner(std::string_view text) {
  std::string line = fmt::format("===== {} ", text);
  line.resize(std::max(line.size(), bannerWidth), '=');
  return line;
}

} // namespace

bool matchLiveAircraft(MatchAircraft& aircraft) {
  if (!aircraft.liveryTitle.empty()) return true;
  if (const auto known = hexidLiveries.find(aircraft.hexid); known != hexidLiveries.end()) {
    if (!lf_isFailed(known->second)) {
      lf_setTitle(aircraft, known->second);
      if (LOG.value && !aircraft.quiet)
        logLine(fmt::format("          {} =c= {}", aircraft.text, known->second));
      return true;
    }
    hexidLiveries.erase(known);
  }
  Match match = lf_regcodeStep(aircraft);
  if (match.title.empty()) match = lf_searchSteps(aircraft, aircraft.cargo);
  match = lf_unlessFailed(match);
  if (match.title.empty()) return false;
  ++matchCounts[static_cast<std::size_t>(match.step - 1)];
  if (LOG.value) logLine(fmt::format("          {} ={}= {}", aircraft.text, match.step, match.title));
  lf_setTitle(aircraft, match.title);
  hexidLiveries.insert_or_assign(aircraft.hexid, match.title);
  return true;
}

bool matchParkedAircraft(MatchAircraft& aircraft, std::string_view standName, bool cargoStand) {
  if (!aircraft.liveryTitle.empty()) {
    if (LOG.value) logLine(fmt::format("          {} =s= {}", aircraft.text, aircraft.liveryTitle));
    return true;
  }
  Match match = lf_regcodeStep(aircraft);
  if (match.title.empty()) {
    aircraft.cargo = cargoStand;
    match = lf_searchSteps(aircraft, cargoStand);
  }
  match = lf_unlessFailed(match);
  if (match.title.empty()) {
    if (LOG.value)
      logLine(fmt::format("{:8}: {} {} {} {} no livery match ...", standName, aircraft.text, aircraft.airline,
                          aircraft.type, aircraft.regcode));
    return false;
  }
  if (LOG.value) logLine(fmt::format("          {} ={}= {}", aircraft.text, match.step, match.title));
  aircraft.liveryTitle = match.title;
  return true;
}

void reportNotCreated(const MatchAircraft& aircraft) {
  showMessage(
      fmt::format("{} \"{}\" could not be created by your Sim!", timeOfDay(), aircraft.liveryTitle),
      true);
  if (!aircraft.liveryTitle.empty() && !lf_isFailed(aircraft.liveryTitle))
    failedLiveries.push_back(aircraft.liveryTitle);
  failedAircraft.push_back(fmt::format("{} {}", aircraft.type, aircraft.airline));
  if (failedLiveries.size() < maxFailedLiveries) return;
  const std::string text =
      fmt::format("there are too many liveries that could not be created by {}!", simName);
  logLine(fmt::format("\n{}Error 81, {}\n", warningPrefix, text));
  throw UserErrorException(81, fmt::format("{}, see Log.txt", text));
}

std::string noMatchKey(std::string_view airline, std::string_view type) {
  return fmt::format("{:3} {:4}", airline, type);
}

void addNoMatch(const MatchAircraft& aircraft) {
  std::string key = noMatchKey(aircraft.airline, aircraft.type);
  if (!aircraft.regcode.empty()) key += " " + aircraft.regcode;
  noMatchKeys.insert(std::move(key));
}

bool isNoMatch(std::string_view airline, std::string_view type) {
  return noMatchKeys.contains(noMatchKey(airline, type));
}

void writeNoMatchList() {
  if (noMatchKeys.empty()) return;
  logLine("\nNo match found for: ");
  for (const std::string& key : noMatchKeys)
    logLine(key);
  logLine("");
}

void serveNoMatchClear() {
  if (!clearNoMatchPending) return;
  if (!noMatchKeys.empty()) {
    writeNoMatchList();
    logLine(fmt::format("{} No-matches cleared because of matching parameter change\n", noMatchKeys.size()));
    noMatchKeys.clear();
  }
  clearNoMatchPending = false;
}

void buildSimilarTables() {
  const auto installed = [](std::string_view type) {
    return modelLiveries[0].contains(type) || modelLiveries[1].contains(type);
  };
  std::vector<std::string> allLines;
  std::vector<std::string> installedLines;
  for (const std::vector<std::string>& group : similarGroups)
    for (std::size_t i = 0; i < group.size(); ++i) {
      std::string all = group[i];
      std::string withLivery = group[i];
      for (std::size_t j = 0; j < group.size(); ++j) {
        if (j == i) continue;
        all += "," + group[j];
        if (installed(group[j])) withLivery += "," + group[j];
      }
      if (all.find(',') != std::string::npos) allLines.push_back(std::move(all));
      if (withLivery.find(',') != std::string::npos) installedLines.push_back(std::move(withLivery));
    }
  for (auto [lines, table] : {std::pair{&allLines, &similarAll}, {&installedLines, &similarInstalled}}) {
    std::sort(lines->begin(), lines->end());
    lines->erase(std::unique(lines->begin(), lines->end()), lines->end());
    for (const std::string& line : *lines) {
      const std::vector<std::string_view> tokens = splitFields(line, ',');
      table->try_emplace(std::string(tokens.front()), tokens.begin() + 1, tokens.end());
    }
  }
  for (const auto& entry : liveryTable) {
    const TextMap<std::vector<LiveryTitle>>& installedTypes = entry.second.liveries;
    TextMap<TypeList> types;
    for (const auto& [type, similar] : similarInstalled) {
      if (installedTypes.contains(type)) continue;
      TypeList owned;
      std::copy_if(similar.begin(), similar.end(), std::back_inserter(owned),
                   [&installedTypes](const std::string& other) { return installedTypes.contains(other); });
      if (!owned.empty()) types.emplace(type, std::move(owned));
    }
    if (!types.empty()) similarByAirline.emplace(entry.first.substr(0, 3), std::move(types));
  }
  logLine(fmt::format("{} similar model definitions", similarInstalled.size()));
}

void indexSpecialLiveries() {
  lf_special = {specialLiveries.begin(), specialLiveries.end()};
}

void writeMatchingSummary() {
  std::vector<std::string> lines{lf_banner("live traffic livery matching summary"), "Matches at step: "};
  for (std::size_t step = 1; step <= matchCounts.size(); ++step)
    lines.push_back(fmt::format("  {}: {}", step, matchCounts[step - 1]));
  std::vector<std::string> failed = failedAircraft;
  std::sort(failed.begin(), failed.end());
  failed.erase(std::unique(failed.begin(), failed.end()), failed.end());
  if (!failed.empty()) {
    lines.push_back(fmt::format("\nCould not be created by {}:", simName));
    lines.insert(lines.end(), failed.begin(), failed.end());
  }
  lines.push_back(std::string(bannerWidth, '='));
  std::string text;
  for (const std::string& line : lines)
    text.append(text.empty() ? "" : "\n").append(line);
  logLine(text);
}

void clearMatching() {
  for (std::size_t cargo = 0; cargo < 2; ++cargo) {
    airlineLiveries[cargo].clear();
    modelLiveries[cargo].clear();
  }
  similarByAirline.clear();
  similarInstalled.clear();
  similarAll.clear();
  lightModels.clear();
  buzjetModels.clear();
  rotorcraftModels.clear();
  hexidLiveries.clear();
  failedLiveries.clear();
  failedAircraft.clear();
  matchCounts = {};
  noMatchKeys.clear();
  lf_special.clear();
}

TypeList* smallModels(ModelCategory category) {
  switch (category) {
  case ModelCategory::Light:
    return &lightModels;
  case ModelCategory::Buzjets:
    return &buzjetModels;
  case ModelCategory::Rotorcraft:
    return &rotorcraftModels;
  default:
    return nullptr;
  }
}

} // namespace ory
