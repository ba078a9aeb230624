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

using TypeTest = std::function<bool(const std::string& code, const TypeSource& type)>;

struct CategoryRule {
  std::string category;
  std::vector<TypeTest> tests; // all must hold
};

std::vector<std::string_view> lf_alternatives(std::string_view value) {
  return splitFields(value, '|');
}

bool lf_oneOf(std::string_view text, std::string_view alternatives) {
  const auto options = lf_alternatives(alternatives);
  return std::find(options.begin(), options.end(), text) != options.end();
}

std::string_view lf_descriptionPart(const TypeSource& type, std::size_t index) {
  return index < type.description.size() ? std::string_view(type.description).substr(index, 1)
                                         : std::string_view();
}

// The two trimmed sides of line around its first SEPARATOR; the second is empty without one.
std::pair<std::string, std::string> lf_twoSides(std::string_view line, std::string_view separators) {
  const std::size_t at = line.find_first_of(separators);
  if (at == std::string_view::npos) return {std::string(trimBlanks(line)), {}};
  return {std::string(trimBlanks(line.substr(0, at))), std::string(trimBlanks(line.substr(at + 1)))};
}

std::regex lf_nameRegex(std::string_view pattern) {
  return std::regex(std::string(pattern), std::regex::ECMAScript | std::regex::icase);
}

// "key=a|b" or "name~regex", optionally negated by a leading '!'.
TypeTest lf_parseTest(std::string_view condition, const fs::path& file) {
  const bool negated = condition.starts_with('!');
  if (negated) condition.remove_prefix(1);
  const std::size_t op = condition.find_first_of("=~");
  if (op == std::string_view::npos)
    throw std::runtime_error(fmt::format("{}: bad condition {}", file.string(), condition));
  const std::string key(trimBlanks(condition.substr(0, op)));
  const std::string value(trimBlanks(condition.substr(op + 1)));
  TypeTest test;
  if (condition[op] == '~' && key == "name") {
    test = [pattern = lf_nameRegex(value)](const std::string&, const TypeSource& t) {
      return std::regex_search(t.name, pattern);
    };
  } else if (key == "type") {
    test = [value](const std::string& code, const TypeSource&) { return lf_oneOf(code, value); };
  } else if (key == "wake") {
    test = [value](const std::string&, const TypeSource& t) { return lf_oneOf(t.wake, value); };
  } else if (key == "class" || key == "engines" || key == "engine") {
    const std::size_t index = key == "class" ? 0 : key == "engines" ? 1 : 2;
    test = [value, index](const std::string&, const TypeSource& t) {
      return lf_oneOf(lf_descriptionPart(t, index), value);
    };
  } else {
    throw std::runtime_error(fmt::format("{}: unknown condition {}", file.string(), condition));
  }
  if (!negated) return test;
  return [test](const std::string& code, const TypeSource& t) { return !test(code, t); };
}

std::vector<CategoryRule> lf_readCategoryRules(const fs::path& file) {
  std::vector<CategoryRule> rules;
  for (const std::string& line : ruleLines(file)) {
    const std::size_t colon = line.find(':');
    CategoryRule rule{std::string(trimBlanks(std::string_view(line).substr(0, colon))), {}};
    if (colon == std::string::npos || std::find(std::begin(categorySections), std::end(categorySections),
                                                rule.category) == std::end(categorySections))
      throw std::runtime_error(fmt::format("{}: no category in \"{}\"", file.string(), line));
    for (const std::string_view condition : splitFields(std::string_view(line).substr(colon + 1), ';'))
      if (!trimBlanks(condition).empty()) rule.tests.push_back(lf_parseTest(trimBlanks(condition), file));
    rules.push_back(std::move(rule));
  }
  return rules;
}

void lf_applyCategories(const Sources& sources, const fs::path& rawRules, PreparedData& data) {
  const std::vector<CategoryRule> rules = lf_readCategoryRules(rawRules / "categories.txt");
  for (const std::string_view section : categorySections)
    data.categories[std::string(section)];
  for (const std::string& code : data.types) {
    const TypeSource& type = sources.types.at(code);
    const auto fits = [&](const CategoryRule& rule) {
      return std::all_of(rule.tests.begin(), rule.tests.end(),
                         [&](const TypeTest& t) { return t(code, type); });
    };
    if (const auto rule = std::find_if(rules.begin(), rules.end(), fits); rule != rules.end())
      data.categories[rule->category].insert(code);
  }
}

// Lines of codes (blank or comma separated), or "name~regex" for every name that matches.
template <typename Names>
std::set<std::string> lf_readCodeList(const fs::path& file, const std::set<std::string>& valid,
                                      Names nameOf) {
  std::set<std::string> codes;
  for (const std::string& line : ruleLines(file)) {
    if (line.starts_with("name~")) {
      const std::regex pattern = lf_nameRegex(std::string_view(line).substr(5));
      for (const std::string& code : valid)
        if (std::regex_search(nameOf(code), pattern)) codes.insert(code);
      continue;
    }
    for (const std::string_view field : splitFields(line, ' '))
      for (const std::string_view code : splitTrimmed(field)) {
        if (valid.contains(std::string(code)))
          codes.emplace(code);
        else
          prepWarning(fmt::format("{}: {} is unknown, skipped", file.filename().string(), code));
      }
  }
  return codes;
}

std::string lf_categoryOf(const PreparedData& data, const std::string& code) {
  for (const auto& [category, codes] : data.categories)
    if (codes.contains(code)) return category;
  return "light";
}

void lf_readSimilarGroups(const fs::path& file, PreparedData& data) {
  for (const std::string& line : ruleLines(file)) {
    std::vector<std::string> group;
    for (const std::string_view field : splitFields(line, ' '))
      for (const std::string_view code : splitTrimmed(field)) {
        if (!data.types.contains(std::string(code)))
          prepWarning(fmt::format("similar.txt: {} is unknown, skipped", code));
        else if (std::find(group.begin(), group.end(), code) == group.end())
          group.emplace_back(code);
      }
    if (group.size() < 2) {
      prepWarning(fmt::format("similar.txt: \"{}\" has fewer than two known types, skipped", line));
      continue;
    }
    for (const std::string& code : group)
      if (lf_categoryOf(data, code) != lf_categoryOf(data, group.front()))
        prepWarning(fmt::format("similar.txt: {} and {} are of different categories", group.front(), code));
    data.similarGroups.push_back(std::move(group));
  }
}

// The program uses each name as a regular expression ".*name.*", ignoring case; a name it can't compile would
// stop its start.
void lf_readPublishers(const fs::path& file, PreparedData& data) {
  std::set<std::string> seen;
  for (const std::string& line : ruleLines(file)) {
    std::vector<std::string_view> names = splitTrimmed(line);
    std::erase_if(names, [&](std::string_view name) {
      try {
        lf_nameRegex(fmt::format(".*{}.*", name));
        return false;
      } catch (const std::regex_error& e) {
        prepWarning(
            fmt::format("publishers.txt: name \"{}\" is no valid expression ({}), skipped", name, e.what()));
        return true;
      }
    });
    if (names.empty()) continue;
    std::string text;
    for (const std::string_view name : names)
      text.append(text.empty() ? "" : ",").append(name);
    if (seen.insert(text).second) data.publishers.push_back(std::move(text));
  }
}

// Curated spans first, then the FAA's for the types without one.
void lf_prepareWingspans(const Sources& sources, const fs::path& file, PreparedData& data) {
  std::map<std::string, double> spans;
  for (const std::string& line : ruleLines(file)) {
    const auto [code, meters] = lf_twoSides(line, " \t");
    try {
      spans.try_emplace(code, std::stod(meters));
    } catch (const std::exception&) {
      prepWarning(fmt::format("wingspans.txt: \"{}\" is no type and span, skipped", line));
    }
  }
  for (const auto& [code, meters] : sources.wingspanMeters)
    spans.try_emplace(code, meters);
  for (const auto& [code, meters] : spans) {
    if (!data.types.contains(code))
      prepWarning(fmt::format("wingspan of {}: unknown type, skipped", code));
    else if (!(meters > 0 && meters < 150))
      prepWarning(fmt::format("wingspan of {}: {} m is no real span, skipped", code, meters));
    else
      data.wingspans[code] = meters;
  }
}

bool lf_isStorableRegcode(std::string_view regcode) {
  return !regcode.empty() && regcode.size() <= maxRegcodeLength && isScrambleSafe(regcode, true);
}

// An unknown code is dropped from the record, not the record itself.
std::string lf_knownOrEmpty(const std::string& code, const std::set<std::string>& valid,
                            std::string_view what, std::string_view regcode) {
  if (code.empty() || valid.contains(code)) return code;
  prepWarning(fmt::format("registration {}: unknown {} {} left out", regcode, what, code));
  return {};
}

void lf_prepareRegistrations(const Sources& sources, PreparedData& data) {
  std::set<std::string> seen;
  for (RegistrationSource record : sources.registrations) {
    if (!lf_isStorableRegcode(record.regcode)) {
      prepWarning(fmt::format("registration \"{}\" is no storable regcode, skipped", record.regcode));
      continue;
    }
    if (!seen.insert(record.regcode).second) {
      prepWarning(fmt::format("registration {} twice, the first one kept", record.regcode));
      continue;
    }
    record.type = lf_knownOrEmpty(record.type, data.types, "type", record.regcode);
    record.airline = lf_knownOrEmpty(record.airline, data.airlines, "airline", record.regcode);
    record.opr = lf_knownOrEmpty(record.opr, data.airlines, "operator", record.regcode);
    if (record.opr == record.airline) record.opr.clear();
    data.registrations.push_back(std::move(record));
  }
}

void lf_readFixes(const fs::path& file, PreparedData& data) {
  std::string section;
  std::set<std::string> wrongs;
  for (const std::string& line : ruleLines(file)) {
    if (line.starts_with('[')) {
      section = line;
      continue;
    }
    if (section == "[fixes]") {
      const auto [wrong, correct] = lf_twoSides(line, "=");
      if (wrong.empty() || correct.empty())
        prepWarning(fmt::format("fixes.txt: \"{}\" is no wrong = correct pair, skipped", line));
      else if (!data.types.contains(correct))
        prepWarning(fmt::format("fixes.txt: {} is no valid type, fix of {} skipped", correct, wrong));
      else if (data.types.contains(wrong))
        prepWarning(fmt::format("fixes.txt: {} is a valid type itself, fix skipped", wrong));
      else if (!wrongs.insert(wrong).second)
        prepWarning(fmt::format("fixes.txt: {} twice, the first one kept", wrong));
      else
        data.modelFixes.emplace_back(wrong, correct);
      continue;
    }
    std::vector<std::string>* target = section == "[PVT_fixes]"   ? &data.pvtFixes
                                       : section == "[GOV_fixes]" ? &data.govFixes
                                                                  : nullptr;
    if (!target)
      throw std::runtime_error(fmt::format("{}: \"{}\" outside a known section", file.string(), line));
    if (data.airlines.contains(line))
      prepWarning(fmt::format("fixes.txt: {} is an ICAO airline code, skipped", line));
    else if (std::find(target->begin(), target->end(), line) != target->end())
      prepWarning(fmt::format("fixes.txt: {} twice in {}", line, section));
    else
      target->push_back(line);
  }
}

void lf_prepareAig(const Sources& sources, PreparedData& data) {
  for (AigSource livery : sources.aigLiveries) {
    const bool binds = !livery.regcodes.empty();
    std::erase_if(livery.regcodes, [&](const std::string& regcode) {
      if (regcode.size() <= maxRegcodeLength) return false;
      prepWarning(fmt::format("AIG title \"{}\": regcode {} too long, left out", livery.title, regcode));
      return true;
    });
    if (livery.title.empty()) continue;
    // Without regcodes the element would read as a title not to use: a binding line must keep one.
    if (binds && livery.regcodes.empty()) {
      prepWarning(fmt::format("AIG title \"{}\": no regcode left, skipped", livery.title));
      continue;
    }
    data.aigLiveries.push_back(std::move(livery));
  }
}

void lf_requireEntries(std::string_view section, std::size_t count) {
  if (count == 0)
    throw std::runtime_error(fmt::format("section {} would be empty: the program would refuse it", section));
}

} // namespace

PreparedData prepareData(const Sources& sources, const fs::path& rules) {
  PreparedData data;
  for (const auto& [code, type] : sources.types) {
    if (code.size() >= 2 && code.size() <= 4 && isScrambleSafe(code, false))
      data.types.insert(code);
    else
      prepWarning(fmt::format("type code \"{}\" can't be stored, skipped", code));
  }
  for (const auto& [code, airline] : sources.airlines)
    data.airlines.insert(code);
  lf_applyCategories(sources, rules, data);
  data.cargoTypes = lf_readCodeList(rules / "cargo_types.txt", data.types,
                                    [&](const std::string& code) { return sources.types.at(code).name; });
  lf_readSimilarGroups(rules / "similar.txt", data);
  data.cargoOperators =
      lf_readCodeList(rules / "cargo_operators.txt", data.airlines,
                      [&](const std::string& code) { return sources.airlines.at(code).name; });
  lf_readPublishers(rules / "publishers.txt", data);
  lf_prepareWingspans(sources, rules / "wingspans.txt", data);
  lf_prepareRegistrations(sources, data);
  lf_readFixes(rules / "fixes.txt", data);
  data.airports = sources.airports;
  lf_prepareAig(sources, data);

  lf_requireEntries("aircrafts", data.types.size());
  for (const auto& [category, codes] : data.categories)
    lf_requireEntries(category, codes.size());
  lf_requireEntries("cargo_types", data.cargoTypes.size());
  lf_requireEntries("ICAO_airlines", data.airlines.size());
  lf_requireEntries("cargo_operators", data.cargoOperators.size());
  return data;
}

} // namespace ory
