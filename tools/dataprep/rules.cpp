#include "dataprep.h"
#include "liveries/regcodes.h"
#include "liveries/scramble.h"
#include "liveries/text_tokens.h"

#include <fmt/format.h>

#include <algorithm>
#include <functional>
#include <regex>
#include <stdexcept>

namespace ory {

namespace {

namespace fs = std::filesystem;

using TypeTest = std::function<bool(const std::string& CODE, const TypeSource& TYPE)>;

struct CategoryRule {
  std::string category;
  std::vector<TypeTest> tests; // all must hold
};

std::vector<std::string_view> lf_alternatives(std::string_view VALUE) {
  return splitFields(VALUE, '|');
}

bool lf_oneOf(std::string_view TEXT, std::string_view ALTERNATIVES) {
  const auto options = lf_alternatives(ALTERNATIVES);
  return std::find(options.begin(), options.end(), TEXT) != options.end();
}

std::string_view lf_descriptionPart(const TypeSource& TYPE, std::size_t INDEX) {
  return INDEX < TYPE.description.size() ? std::string_view(TYPE.description).substr(INDEX, 1)
                                         : std::string_view();
}

// The two trimmed sides of LINE around its first SEPARATOR; the second is empty without one.
std::pair<std::string, std::string> lf_twoSides(std::string_view LINE, std::string_view SEPARATORS) {
  const std::size_t at = LINE.find_first_of(SEPARATORS);
  if (at == std::string_view::npos) return {std::string(trimBlanks(LINE)), {}};
  return {std::string(trimBlanks(LINE.substr(0, at))), std::string(trimBlanks(LINE.substr(at + 1)))};
}

std::regex lf_nameRegex(std::string_view PATTERN) {
  return std::regex(std::string(PATTERN), std::regex::ECMAScript | std::regex::icase);
}

// "key=a|b" or "name~regex", optionally negated by a leading '!'.
TypeTest lf_parseTest(std::string_view CONDITION, const fs::path& FILE) {
  const bool negated = CONDITION.starts_with('!');
  if (negated) CONDITION.remove_prefix(1);
  const std::size_t op = CONDITION.find_first_of("=~");
  if (op == std::string_view::npos)
    throw std::runtime_error(fmt::format("{}: bad condition {}", FILE.string(), CONDITION));
  const std::string key(trimBlanks(CONDITION.substr(0, op)));
  const std::string value(trimBlanks(CONDITION.substr(op + 1)));
  TypeTest test;
  if (CONDITION[op] == '~' && key == "name") {
    test = [pattern = lf_nameRegex(value)](const std::string&, const TypeSource& T) {
      return std::regex_search(T.name, pattern);
    };
  } else if (key == "type") {
    test = [value](const std::string& CODE, const TypeSource&) { return lf_oneOf(CODE, value); };
  } else if (key == "wake") {
    test = [value](const std::string&, const TypeSource& T) { return lf_oneOf(T.wake, value); };
  } else if (key == "class" || key == "engines" || key == "engine") {
    const std::size_t index = key == "class" ? 0 : key == "engines" ? 1 : 2;
    test = [value, index](const std::string&, const TypeSource& T) {
      return lf_oneOf(lf_descriptionPart(T, index), value);
    };
  } else {
    throw std::runtime_error(fmt::format("{}: unknown condition {}", FILE.string(), CONDITION));
  }
  if (!negated) return test;
  return [test](const std::string& CODE, const TypeSource& T) { return !test(CODE, T); };
}

std::vector<CategoryRule> lf_readCategoryRules(const fs::path& FILE) {
  std::vector<CategoryRule> rules;
  for (const std::string& line : ruleLines(FILE)) {
    const std::size_t colon = line.find(':');
    CategoryRule rule{std::string(trimBlanks(std::string_view(line).substr(0, colon))), {}};
    if (colon == std::string::npos || std::find(std::begin(categorySections), std::end(categorySections),
                                                rule.category) == std::end(categorySections))
      throw std::runtime_error(fmt::format("{}: no category in \"{}\"", FILE.string(), line));
    for (const std::string_view condition : splitFields(std::string_view(line).substr(colon + 1), ';'))
      if (!trimBlanks(condition).empty()) rule.tests.push_back(lf_parseTest(trimBlanks(condition), FILE));
    rules.push_back(std::move(rule));
  }
  return rules;
}

void lf_applyCategories(const Sources& SOURCES, const fs::path& RULES, PreparedData& DATA) {
  const std::vector<CategoryRule> rules = lf_readCategoryRules(RULES / "categories.txt");
  for (const std::string_view section : categorySections)
    DATA.categories[std::string(section)];
  for (const std::string& code : DATA.types) {
    const TypeSource& type = SOURCES.types.at(code);
    const auto fits = [&](const CategoryRule& RULE) {
      return std::all_of(RULE.tests.begin(), RULE.tests.end(),
                         [&](const TypeTest& T) { return T(code, type); });
    };
    if (const auto rule = std::find_if(rules.begin(), rules.end(), fits); rule != rules.end())
      DATA.categories[rule->category].insert(code);
  }
}

// Lines of codes (blank or comma separated), or "name~regex" for every name that matches.
template <typename Names>
std::set<std::string> lf_readCodeList(const fs::path& FILE, const std::set<std::string>& VALID,
                                      Names NAME_OF) {
  std::set<std::string> codes;
  for (const std::string& line : ruleLines(FILE)) {
    if (line.starts_with("name~")) {
      const std::regex pattern = lf_nameRegex(std::string_view(line).substr(5));
      for (const std::string& code : VALID)
        if (std::regex_search(NAME_OF(code), pattern)) codes.insert(code);
      continue;
    }
    for (const std::string_view field : splitFields(line, ' '))
      for (const std::string_view code : splitTrimmed(field)) {
        if (VALID.contains(std::string(code)))
          codes.emplace(code);
        else
          prepWarning(fmt::format("{}: {} is unknown, skipped", FILE.filename().string(), code));
      }
  }
  return codes;
}

std::string lf_categoryOf(const PreparedData& DATA, const std::string& CODE) {
  for (const auto& [category, codes] : DATA.categories)
    if (codes.contains(CODE)) return category;
  return "light";
}

void lf_readSimilarGroups(const fs::path& FILE, PreparedData& DATA) {
  for (const std::string& line : ruleLines(FILE)) {
    std::vector<std::string> group;
    for (const std::string_view field : splitFields(line, ' '))
      for (const std::string_view code : splitTrimmed(field)) {
        if (!DATA.types.contains(std::string(code)))
          prepWarning(fmt::format("similar.txt: {} is unknown, skipped", code));
        else if (std::find(group.begin(), group.end(), code) == group.end())
          group.emplace_back(code);
      }
    if (group.size() < 2) {
      prepWarning(fmt::format("similar.txt: \"{}\" has fewer than two known types, skipped", line));
      continue;
    }
    for (const std::string& code : group)
      if (lf_categoryOf(DATA, code) != lf_categoryOf(DATA, group.front()))
        prepWarning(fmt::format("similar.txt: {} and {} are of different categories", group.front(), code));
    DATA.similarGroups.push_back(std::move(group));
  }
}

// The program uses each name as a regular expression ".*name.*", ignoring case; a name it can't compile would
// stop its start.
void lf_readPublishers(const fs::path& FILE, PreparedData& DATA) {
  std::set<std::string> seen;
  for (const std::string& line : ruleLines(FILE)) {
    std::vector<std::string_view> names = splitTrimmed(line);
    std::erase_if(names, [&](std::string_view NAME) {
      try {
        lf_nameRegex(fmt::format(".*{}.*", NAME));
        return false;
      } catch (const std::regex_error& e) {
        prepWarning(
            fmt::format("publishers.txt: name \"{}\" is no valid expression ({}), skipped", NAME, e.what()));
        return true;
      }
    });
    if (names.empty()) continue;
    std::string text;
    for (const std::string_view name : names)
      text.append(text.empty() ? "" : ",").append(name);
    if (seen.insert(text).second) DATA.publishers.push_back(std::move(text));
  }
}

// Curated spans first, then the FAA's for the types without one.
void lf_prepareWingspans(const Sources& SOURCES, const fs::path& FILE, PreparedData& DATA) {
  std::map<std::string, double> spans;
  for (const std::string& line : ruleLines(FILE)) {
    const auto [code, meters] = lf_twoSides(line, " \t");
    try {
      spans.try_emplace(code, std::stod(meters));
    } catch (const std::exception&) {
      prepWarning(fmt::format("wingspans.txt: \"{}\" is no type and span, skipped", line));
    }
  }
  for (const auto& [code, meters] : SOURCES.wingspanMeters)
    spans.try_emplace(code, meters);
  for (const auto& [code, meters] : spans) {
    if (!DATA.types.contains(code))
      prepWarning(fmt::format("wingspan of {}: unknown type, skipped", code));
    else if (!(meters > 0 && meters < 150))
      prepWarning(fmt::format("wingspan of {}: {} m is no real span, skipped", code, meters));
    else
      DATA.wingspans[code] = meters;
  }
}

bool lf_isStorableRegcode(std::string_view REGCODE) {
  return !REGCODE.empty() && REGCODE.size() <= maxRegcodeLength && isScrambleSafe(REGCODE, true);
}

// An unknown code is dropped from the record, not the record itself.
std::string lf_knownOrEmpty(const std::string& CODE, const std::set<std::string>& VALID,
                            std::string_view WHAT, std::string_view REGCODE) {
  if (CODE.empty() || VALID.contains(CODE)) return CODE;
  prepWarning(fmt::format("registration {}: unknown {} {} left out", REGCODE, WHAT, CODE));
  return {};
}

void lf_prepareRegistrations(const Sources& SOURCES, PreparedData& DATA) {
  std::set<std::string> seen;
  for (RegistrationSource record : SOURCES.registrations) {
    if (!lf_isStorableRegcode(record.regcode)) {
      prepWarning(fmt::format("registration \"{}\" is no storable regcode, skipped", record.regcode));
      continue;
    }
    if (!seen.insert(record.regcode).second) {
      prepWarning(fmt::format("registration {} twice, the first one kept", record.regcode));
      continue;
    }
    record.type = lf_knownOrEmpty(record.type, DATA.types, "type", record.regcode);
    record.airline = lf_knownOrEmpty(record.airline, DATA.airlines, "airline", record.regcode);
    record.opr = lf_knownOrEmpty(record.opr, DATA.airlines, "operator", record.regcode);
    if (record.opr == record.airline) record.opr.clear();
    DATA.registrations.push_back(std::move(record));
  }
}

void lf_readFixes(const fs::path& FILE, PreparedData& DATA) {
  std::string section;
  std::set<std::string> wrongs;
  for (const std::string& line : ruleLines(FILE)) {
    if (line.starts_with('[')) {
      section = line;
      continue;
    }
    if (section == "[fixes]") {
      const auto [wrong, correct] = lf_twoSides(line, "=");
      if (wrong.empty() || correct.empty())
        prepWarning(fmt::format("fixes.txt: \"{}\" is no wrong = correct pair, skipped", line));
      else if (!DATA.types.contains(correct))
        prepWarning(fmt::format("fixes.txt: {} is no valid type, fix of {} skipped", correct, wrong));
      else if (DATA.types.contains(wrong))
        prepWarning(fmt::format("fixes.txt: {} is a valid type itself, fix skipped", wrong));
      else if (!wrongs.insert(wrong).second)
        prepWarning(fmt::format("fixes.txt: {} twice, the first one kept", wrong));
      else
        DATA.modelFixes.emplace_back(wrong, correct);
      continue;
    }
    std::vector<std::string>* target = section == "[PVT_fixes]"   ? &DATA.pvtFixes
                                       : section == "[GOV_fixes]" ? &DATA.govFixes
                                                                  : nullptr;
    if (!target)
      throw std::runtime_error(fmt::format("{}: \"{}\" outside a known section", FILE.string(), line));
    if (DATA.airlines.contains(line))
      prepWarning(fmt::format("fixes.txt: {} is an ICAO airline code, skipped", line));
    else if (std::find(target->begin(), target->end(), line) != target->end())
      prepWarning(fmt::format("fixes.txt: {} twice in {}", line, section));
    else
      target->push_back(line);
  }
}

void lf_prepareAig(const Sources& SOURCES, PreparedData& DATA) {
  for (AigSource livery : SOURCES.aigLiveries) {
    const bool binds = !livery.regcodes.empty();
    std::erase_if(livery.regcodes, [&](const std::string& REGCODE) {
      if (REGCODE.size() <= maxRegcodeLength) return false;
      prepWarning(fmt::format("AIG title \"{}\": regcode {} too long, left out", livery.title, REGCODE));
      return true;
    });
    if (livery.title.empty()) continue;
    // Without regcodes the element would read as a title not to use: a binding line must keep one.
    if (binds && livery.regcodes.empty()) {
      prepWarning(fmt::format("AIG title \"{}\": no regcode left, skipped", livery.title));
      continue;
    }
    DATA.aigLiveries.push_back(std::move(livery));
  }
}

void lf_requireEntries(std::string_view SECTION, std::size_t COUNT) {
  if (COUNT == 0)
    throw std::runtime_error(fmt::format("section {} would be empty: the program would refuse it", SECTION));
}

} // namespace

PreparedData prepareData(const Sources& SOURCES, const fs::path& RULES) {
  PreparedData data;
  for (const auto& [code, type] : SOURCES.types) {
    if (code.size() >= 2 && code.size() <= 4 && isScrambleSafe(code, false))
      data.types.insert(code);
    else
      prepWarning(fmt::format("type code \"{}\" can't be stored, skipped", code));
  }
  for (const auto& [code, airline] : SOURCES.airlines)
    data.airlines.insert(code);
  lf_applyCategories(SOURCES, RULES, data);
  data.cargoTypes = lf_readCodeList(RULES / "cargo_types.txt", data.types,
                                    [&](const std::string& CODE) { return SOURCES.types.at(CODE).name; });
  lf_readSimilarGroups(RULES / "similar.txt", data);
  data.cargoOperators =
      lf_readCodeList(RULES / "cargo_operators.txt", data.airlines,
                      [&](const std::string& CODE) { return SOURCES.airlines.at(CODE).name; });
  lf_readPublishers(RULES / "publishers.txt", data);
  lf_prepareWingspans(SOURCES, RULES / "wingspans.txt", data);
  lf_prepareRegistrations(SOURCES, data);
  lf_readFixes(RULES / "fixes.txt", data);
  data.airports = SOURCES.airports;
  lf_prepareAig(SOURCES, data);

  lf_requireEntries("aircrafts", data.types.size());
  for (const auto& [category, codes] : data.categories)
    lf_requireEntries(category, codes.size());
  lf_requireEntries("cargo_types", data.cargoTypes.size());
  lf_requireEntries("ICAO_airlines", data.airlines.size());
  lf_requireEntries("cargo_operators", data.cargoOperators.size());
  return data;
}

} // namespace ory
