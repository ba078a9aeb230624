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

bool lf_isSpecial(std::string_view TITLE) {
  return lf_special.contains(TITLE);
}

bool lf_isFailed(std::string_view TITLE) {
  return std::find(failedLiveries.begin(), failedLiveries.end(), TITLE) != failedLiveries.end();
}

// The tie-break among liveries that fit: a random one that no regcode reserves. Empty when all are reserved.
std::string_view lf_pick(const TitleViews& CANDIDATES) {
  std::string_view pick = CANDIDATES[randomIndex(CANDIDATES.size())];
  for (int draw = 0; draw < redraws; ++draw) {
    if (!lf_isSpecial(pick)) return pick;
    pick = CANDIDATES[randomIndex(CANDIDATES.size())];
  }
  TitleViews plain;
  std::copy_if(CANDIDATES.begin(), CANDIDATES.end(), std::back_inserter(plain),
               [](std::string_view TITLE) { return !lf_isSpecial(TITLE); });
  return plain.empty() ? std::string_view() : plain[randomIndex(plain.size())];
}

std::string_view lf_pickIn(const TextMap<TypeTitles>& TABLE, std::string_view AIRLINE,
                           std::string_view TYPE) {
  const auto airline = TABLE.find(AIRLINE);
  if (airline == TABLE.end()) return {};
  const auto titles = airline->second.find(TYPE);
  return titles == airline->second.end() || titles->second.empty() ? std::string_view()
                                                                   : lf_pick(titles->second);
}

// A freighter may wear a passenger livery of its airline; a passenger aircraft never a cargo livery.
std::string_view lf_pickByAirline(std::string_view AIRLINE, std::string_view TYPE, bool CARGO) {
  const std::string_view title = lf_pickIn(airlineLiveries[CARGO ? 1 : 0], AIRLINE, TYPE);
  if (!title.empty() || !CARGO) return title;
  return lf_pickIn(airlineLiveries[0], AIRLINE, TYPE);
}

std::string_view lf_pickByModel(std::string_view TYPE, bool CARGO) {
  const TypeTitles& table = modelLiveries[CARGO ? 1 : 0];
  const auto titles = table.find(TYPE);
  return titles == table.end() || titles->second.empty() ? std::string_view() : lf_pick(titles->second);
}

bool lf_isSmall(ModelCategory CATEGORY) {
  return CATEGORY == ModelCategory::Light || CATEGORY == ModelCategory::Buzjets ||
         CATEGORY == ModelCategory::Rotorcraft;
}

// The airline's installed look-alikes of TYPE, freshly shuffled; null when there are none.
TypeList* lf_airlineSimilar(std::string_view AIRLINE, std::string_view TYPE) {
  const auto airline = similarByAirline.find(AIRLINE);
  if (airline == similarByAirline.end()) return nullptr;
  const auto similar = airline->second.find(TYPE);
  if (similar == airline->second.end()) return nullptr;
  shuffle(similar->second);
  return &similar->second;
}

// Installed look-alikes of TYPE for any airline; for a small type without a group, one installed type of
// its category.
TypeList lf_genericSimilar(std::string_view TYPE) {
  if (const auto similar = similarInstalled.find(TYPE); similar != similarInstalled.end()) {
    shuffle(similar->second);
    return similar->second;
  }
  const TypeList* models = smallModels(modelCategory(TYPE));
  if (!models || models->empty()) return {};
  return {(*models)[randomIndex(models->size())]};
}

Match lf_regcodeStep(const MatchAircraft& AIRCRAFT) {
  if (AIRCRAFT.regcode.empty()) return {};
  const auto bound = regcodeLiveries.find(AIRCRAFT.regcode);
  return bound == regcodeLiveries.end() ? Match() : Match{bound->second, 1};
}

// Steps 2 to 6 of the ladder, as deep as MATCHING_DEPTH allows. Only small aircraft may wear the colours of
// another airline.
Match lf_searchSteps(const MatchAircraft& AIRCRAFT, bool CARGO) {
  const std::int32_t depth = MATCHING_DEPTH.value;
  const std::string& airline = AIRCRAFT.airline;
  const std::string& type = AIRCRAFT.type;
  if (depth < 2) return {};
  if (airline == "PVT")
    if (const auto title = lf_pickByAirline("ZZZ", type, CARGO); !title.empty()) return {title, 4};
  const std::optional<DbaseRecord> record = lookupDbaseRecord(AIRCRAFT.regcode);
  const std::string opr = record ? record->opr : std::string();
  const std::string owner = record ? record->airl : std::string();
  if (!airline.empty()) {
    if (const auto title = lf_pickByAirline(airline, type, CARGO); !title.empty()) return {title, 2};
    if (!opr.empty())
      if (const auto title = lf_pickByAirline(owner, type, CARGO); !title.empty()) return {title, 2};
  }
  if (depth >= 3 && !airline.empty()) {
    if (TypeList* similar = lf_airlineSimilar(airline, type)) {
      for (const std::string& other : *similar)
        if (const auto title = lf_pickByAirline(airline, other, CARGO); !title.empty()) return {title, 3};
      if (!opr.empty()) {
        shuffle(*similar);
        for (const std::string& other : *similar)
          if (const auto title = lf_pickByAirline(owner, other, CARGO); !title.empty()) return {title, 3};
      }
    }
  }
  if (depth == 4)
    if (const auto title = lf_pickByAirline("ZZZ", type, CARGO); !title.empty()) return {title, 4};
  if (depth < 3 || !lf_isSmall(AIRCRAFT.category)) return {};
  if (airline != "PVT")
    if (const auto title = lf_pickByAirline("ZZZ", type, CARGO); !title.empty()) return {title, 4};
  if (const auto title = lf_pickByModel(type, CARGO); !title.empty()) return {title, 5};
  for (const std::string& other : lf_genericSimilar(type))
    if (const auto title = lf_pickByModel(other, CARGO); !title.empty()) return {title, 6};
  return {};
}

// A refused title found by the ladder ends the search without a match.
Match lf_unlessFailed(Match MATCH) {
  return MATCH.title.empty() || lf_isFailed(MATCH.title) ? Match() : MATCH;
}

void lf_setTitle(MatchAircraft& AIRCRAFT, std::string_view TITLE) {
  AIRCRAFT.liveryTitle = TITLE;
  AIRCRAFT.fsltlLivery = TITLE.find("FSLTL_") != std::string_view::npos;
}

std::string lf_banner(std::string_view TEXT) {
  std::string line = fmt::format("===== {} ", TEXT);
  line.resize(std::max(line.size(), bannerWidth), '=');
  return line;
}

} // namespace

bool matchLiveAircraft(MatchAircraft& AIRCRAFT) {
  if (!AIRCRAFT.liveryTitle.empty()) return true;
  if (const auto known = hexidLiveries.find(AIRCRAFT.hexid); known != hexidLiveries.end()) {
    if (!lf_isFailed(known->second)) {
      lf_setTitle(AIRCRAFT, known->second);
      if (LOG.value && !AIRCRAFT.quiet)
        logLine(fmt::format("          {} =c= {}", AIRCRAFT.text, known->second));
      return true;
    }
    hexidLiveries.erase(known);
  }
  Match match = lf_regcodeStep(AIRCRAFT);
  if (match.title.empty()) match = lf_searchSteps(AIRCRAFT, AIRCRAFT.cargo);
  match = lf_unlessFailed(match);
  if (match.title.empty()) return false;
  ++matchCounts[static_cast<std::size_t>(match.step - 1)];
  if (LOG.value) logLine(fmt::format("          {} ={}= {}", AIRCRAFT.text, match.step, match.title));
  lf_setTitle(AIRCRAFT, match.title);
  hexidLiveries.insert_or_assign(AIRCRAFT.hexid, match.title);
  return true;
}

bool matchParkedAircraft(MatchAircraft& AIRCRAFT, std::string_view STAND_NAME, bool CARGO_STAND) {
  if (!AIRCRAFT.liveryTitle.empty()) {
    if (LOG.value) logLine(fmt::format("          {} =s= {}", AIRCRAFT.text, AIRCRAFT.liveryTitle));
    return true;
  }
  Match match = lf_regcodeStep(AIRCRAFT);
  if (match.title.empty()) {
    AIRCRAFT.cargo = CARGO_STAND;
    match = lf_searchSteps(AIRCRAFT, CARGO_STAND);
  }
  match = lf_unlessFailed(match);
  if (match.title.empty()) {
    if (LOG.value)
      logLine(fmt::format("{:8}: {} {} {} {} no livery match ...", STAND_NAME, AIRCRAFT.text,
                          AIRCRAFT.airline, AIRCRAFT.type, AIRCRAFT.regcode));
    return false;
  }
  if (LOG.value) logLine(fmt::format("          {} ={}= {}", AIRCRAFT.text, match.step, match.title));
  AIRCRAFT.liveryTitle = match.title;
  return true;
}

void reportNotCreated(const MatchAircraft& AIRCRAFT) {
  showMessage(
      fmt::format("{} \"{}\" could not be created by your Sim!", AIRCRAFT.callsign, AIRCRAFT.liveryTitle),
      true);
  if (!AIRCRAFT.liveryTitle.empty() && !lf_isFailed(AIRCRAFT.liveryTitle))
    failedLiveries.push_back(AIRCRAFT.liveryTitle);
  failedAircraft.push_back(fmt::format("{} {}", AIRCRAFT.type, AIRCRAFT.airline));
  if (failedLiveries.size() < maxFailedLiveries) return;
  const std::string text =
      fmt::format("there are too many liveries that could not be created by {}!", simName);
  logLine(fmt::format("\n{}Error 81, {}\n", warningPrefix, text));
  throw UserErrorException(81, fmt::format("{}, see Log.txt", text));
}

std::string noMatchKey(std::string_view AIRLINE, std::string_view TYPE) {
  return fmt::format("{:3} {:4}", AIRLINE, TYPE);
}

void addNoMatch(const MatchAircraft& AIRCRAFT) {
  std::string key = noMatchKey(AIRCRAFT.airline, AIRCRAFT.type);
  if (!AIRCRAFT.regcode.empty()) key += " " + AIRCRAFT.regcode;
  noMatchKeys.insert(std::move(key));
}

bool isNoMatch(std::string_view AIRLINE, std::string_view TYPE) {
  return noMatchKeys.contains(noMatchKey(AIRLINE, TYPE));
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
  const auto installed = [](std::string_view TYPE) {
    return modelLiveries[0].contains(TYPE) || modelLiveries[1].contains(TYPE);
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
                   [&installedTypes](const std::string& OTHER) { return installedTypes.contains(OTHER); });
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

TypeList* smallModels(ModelCategory CATEGORY) {
  switch (CATEGORY) {
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
