#include "liveries/dbase.h"

#include "base/exceptions.h"
#include "base/log.h"
#include "base/paths.h"
#include "engine/geometry.h"
#include "liveries/scramble.h"
#include "liveries/text_tokens.h"

#include <fmt/format.h>
#include <pugixml.hpp>

#include <algorithm>
#include <regex>
#include <stdexcept>

namespace ory {

TextOrderedSet aircraftTypes;
TextOrderedSet highPerfTypes;
TextOrderedSet heavyTypes;
TextOrderedSet largeTypes;
TextOrderedSet buzjetTypes;
TextOrderedSet rotorcraftTypes;
TextOrderedSet cargoTypes;
std::vector<std::vector<std::string>> similarGroups;
TextOrderedSet icaoAirlines;
TextOrderedSet cargoOperators;
std::vector<std::vector<std::string>> publisherGroups;
std::map<std::string, double, std::less<>> wingspanTable;
double maxHalfWingspan = 0;
std::array<double, modelCategoryCount> categoryAverageHalfWingspan{};
TextMap<DbaseRecord> dbaseRecords;

namespace {

using Unscramble = std::string (*)(std::string_view);

// publisherGroups compiled once: ".*name.*", ECMAScript, ignoring case.
std::vector<std::vector<std::regex>> lf_publisherPatterns;

std::regex lf_publisherPattern(std::string_view name) {
  return std::regex(fmt::format(".*{}.*", name), std::regex::ECMAScript | std::regex::icase);
}

// A section the file must have, with at least one token.
struct RequiredSection {
  const char* section;
  const char* rawChild;
  const char* attribute;
  TextOrderedSet* target;
  Unscramble unscramble;
};
const RequiredSection requiredSections[] = {
    {"aircrafts", "aircraft", "types", &aircraftTypes, unscrambleModel},
    {"high_performance", "hpf", "types", &highPerfTypes, unscrambleModel},
    {"heavy", "hvy", "types", &heavyTypes, unscrambleModel},
    {"large", "lar", "types", &largeTypes, unscrambleModel},
    {"buzjet", "bzj", "types", &buzjetTypes, unscrambleModel},
    {"rotorcraft", "rot", "types", &rotorcraftTypes, unscrambleModel},
    {"cargo_types", "cargo_type", "types", &cargoTypes, unscrambleModel},
    {"ICAO_airlines", "ICAO", "codes", &icaoAirlines, unscrambleAirline},
    {"cargo_operators", "ICAO", "codes", &cargoOperators, unscrambleAirline},
};

TextOrderedSet lf_sectionTokens(const pugi::xml_document& document, const RequiredSection& required) {
  TextOrderedSet stored;
  for (const pugi::xml_node child : document.child(required.section).children(required.rawChild))
    for (const std::string_view token : splitTrimmed(child.attribute(required.attribute).as_string()))
      stored.emplace(token);
  return stored;
}

void lf_readSection(const pugi::xml_document& document, const RequiredSection& required) {
  const TextOrderedSet stored = lf_sectionTokens(document, required);
  if (stored.empty())
    throw UserErrorException(61, fmt::format("In an xml file section {} {} {} is empty ", required.section,
                                             required.rawChild, required.attribute));
  for (const std::string& token : stored)
    required.target->insert(required.unscramble(token));
}

void lf_readSimilarGroups(const pugi::xml_document& document) {
  similarGroups.reserve(64);
  for (const pugi::xml_node similar : document.child("similar_types").children("similar")) {
    std::vector<std::string> group;
    for (const std::string_view token : splitTrimmed(similar.attribute("types").as_string()))
      group.push_back(unscrambleModel(token));
    std::sort(group.begin(), group.end());
    similarGroups.push_back(std::move(group));
  }
  similarGroups.shrink_to_fit();
}

void lf_readPublishers(const pugi::xml_document& document) {
  std::vector<std::string> texts;
  for (const pugi::xml_node pub : document.child("publishers").children("pub"))
    texts.emplace_back(pub.attribute("names").as_string());
  std::sort(texts.begin(), texts.end());
  texts.erase(std::unique(texts.begin(), texts.end()), texts.end());
  publisherGroups.reserve(640);
  for (const std::string& text : texts) {
    std::vector<std::string> names;
    std::vector<std::regex> patterns;
    for (const std::string_view name : splitTrimmed(text)) {
      names.emplace_back(name);
      patterns.push_back(lf_publisherPattern(name));
    }
    names.shrink_to_fit();
    publisherGroups.push_back(std::move(names));
    lf_publisherPatterns.push_back(std::move(patterns));
  }
  publisherGroups.shrink_to_fit();
}

void lf_computeCategoryAverages() {
  std::array<double, modelCategoryCount> sums{};
  std::array<double, modelCategoryCount> counts{};
  for (const auto& [model, half] : wingspanTable) {
    const auto category = static_cast<std::size_t>(modelCategory(model));
    sums[category] += half;
    counts[category] += 1;
  }
  for (std::size_t category = 0; category < modelCategoryCount; ++category)
    categoryAverageHalfWingspan[category] = sums[category] / counts[category]; // 0/0 is NaN: no span known
}

void lf_readWingspans(const pugi::xml_document& document) {
  bool accepted = false;
  for (const pugi::xml_node wingspan : document.child("wingspans").children("wingspan")) {
    const std::string model = unscrambleModel(wingspan.attribute("type").as_string());
    if (!isValidModel(model)) {
      logWarning(fmt::format("wingspan model {} is no valid model, skipped", model));
      continue;
    }
    const double half = textToDouble(wingspan.attribute("meters").as_string()) * 0.5 * nmPerMetre;
    wingspanTable.emplace(model, half);
    maxHalfWingspan = std::max(maxHalfWingspan, half);
    accepted = true;
  }
  if (accepted) lf_computeCategoryAverages();
}

std::string lf_unscrambledOrEmpty(const pugi::xml_node node, const char* attribute, Unscramble unscramble) {
  const std::string_view text = node.attribute(attribute).as_string();
  return text.empty() ? std::string() : unscramble(text);
}

void lf_readRecords(const pugi::xml_document& document) {
  dbaseRecords.clear();
  for (const pugi::xml_node db : document.child("dbase").children("db")) {
    const std::string regcode = unscrambleRegcode(db.attribute("reg").as_string());
    DbaseRecord record{lf_unscrambledOrEmpty(db, "airl", unscrambleAirline),
                       lf_unscrambledOrEmpty(db, "type", unscrambleModel),
                       lf_unscrambledOrEmpty(db, "opr", unscrambleAirline),
                       isTrueText(db.attribute("cargo").value())};
    if (!dbaseRecords.try_emplace(regcode, std::move(record)).second)
      logWarning(fmt::format("regcode {} already exists", regcode));
  }
}

const DbaseRecord* lf_findRecord(std::string_view regcode) {
  if (regcode.empty()) return nullptr;
  if (const auto it = dbaseRecords.find(regcode); it != dbaseRecords.end()) return &it->second;
  if (regcode.size() < 5 || regcode.find('-') != std::string_view::npos) return nullptr;
  std::string dashed;
  dashed.reserve(regcode.size() + 1);
  dashed.append(regcode.substr(0, 2)).append(1, '-').append(regcode.substr(2)); // XX-YYY
  if (const auto it = dbaseRecords.find(dashed); it != dbaseRecords.end()) return &it->second;
  std::swap(dashed[1], dashed[2]); // X-YYYY
  const auto it = dbaseRecords.find(dashed);
  return it == dbaseRecords.end() ? nullptr : &it->second;
}

} // namespace

std::string_view modelCategoryName(ModelCategory category) {
  static constexpr std::array<std::string_view, modelCategoryCount> names = {
      "Light", "Buzjets", "Large", "Heavy", "HighPerf", "Rotorcraft"};
  return names[static_cast<std::size_t>(category)];
}

void clearDbase() {
  for (TextOrderedSet* set : {&aircraftTypes, &highPerfTypes, &heavyTypes, &largeTypes, &buzjetTypes,
                              &rotorcraftTypes, &cargoTypes, &icaoAirlines, &cargoOperators})
    set->clear();
  similarGroups.clear();
  publisherGroups.clear();
  lf_publisherPatterns.clear();
  wingspanTable.clear();
  maxHalfWingspan = 0;
  categoryAverageHalfWingspan.fill(0);
  dbaseRecords.clear();
}

bool readDbase() {
  clearDbase();
  const std::string path = pathText(dbaseFile);
  pugi::xml_document document;
  const pugi::xml_parse_result loaded = document.load_file(dbaseFile.c_str());
  if (!loaded)
    throw UserErrorException(60, fmt::format("\"{}\" not read because of {}", path, loaded.description()));

  for (const RequiredSection& required : requiredSections)
    lf_readSection(document, required);
  lf_readSimilarGroups(document);
  try {
    lf_readPublishers(document);
  } catch (const std::exception& e) {
    throw SysErrorException(299,
                            fmt::format("exception {} in reading publishers from \"{}\"", e.what(), path));
  }
  try {
    lf_readWingspans(document);
  } catch (const std::exception& e) {
    throw SysErrorException(288,
                            fmt::format("exception {} in reading wingspans from \"{}\"", e.what(), path));
  }
  lf_readRecords(document);
  logLine(fmt::format("{} dbase records from \"{}\" read", dbaseRecords.size(), path));
  return true;
}

bool isDbaseFile(const std::filesystem::path& path) {
  pugi::xml_document document;
  if (!document.load_file(path.c_str())) return false;
  for (const RequiredSection& required : requiredSections)
    if (lf_sectionTokens(document, required).empty()) return false;
  return true;
}

bool isValidModel(std::string_view model) {
  return !model.empty() && aircraftTypes.contains(model);
}

bool isValidAirline(std::string_view airline) {
  return !airline.empty() && icaoAirlines.contains(airline);
}

ModelCategory modelCategory(std::string_view model) {
  if (largeTypes.contains(model)) return ModelCategory::Large;
  if (heavyTypes.contains(model)) return ModelCategory::Heavy;
  if (buzjetTypes.contains(model)) return ModelCategory::Buzjets;
  if (rotorcraftTypes.contains(model)) return ModelCategory::Rotorcraft;
  if (highPerfTypes.contains(model)) return ModelCategory::HighPerf;
  return ModelCategory::Light;
}

double halfWingspan(std::string_view model) {
  if (const auto it = wingspanTable.find(model); it != wingspanTable.end()) return it->second;
  return categoryAverageHalfWingspan[static_cast<std::size_t>(modelCategory(model))];
}

std::optional<DbaseRecord> lookupDbaseRecord(std::string_view regcode) {
  const DbaseRecord* record = lf_findRecord(regcode);
  if (!record) return std::nullopt;
  return *record;
}

std::string lookupDbaseOpr(std::string_view regcode) {
  const DbaseRecord* record = lf_findRecord(regcode);
  return record ? record->opr : std::string();
}

std::string lookupDbaseAirl(std::string_view regcode) {
  const DbaseRecord* record = lf_findRecord(regcode);
  return record ? record->airl : std::string();
}

std::string lookupDbaseType(std::string_view regcode) {
  const DbaseRecord* record = lf_findRecord(regcode);
  return record ? record->type : std::string();
}

bool hasDbaseRecord(std::string_view regcode) {
  return lf_findRecord(regcode) != nullptr;
}

std::string findPublisher(std::string_view text) {
  for (std::size_t group = 0; group < publisherGroups.size(); ++group) {
    const std::vector<std::string>& names = publisherGroups[group];
    for (std::size_t k = 0; k < names.size(); ++k)
      if (text.find(names[k]) != std::string_view::npos ||
          std::regex_match(text.begin(), text.end(), lf_publisherPatterns[group][k]))
        return names.front();
  }
  return "unknown";
}

bool publisherNameMatches(std::string_view name, std::string_view text) {
  return std::regex_match(text.begin(), text.end(), lf_publisherPattern(name));
}

} // namespace ory
