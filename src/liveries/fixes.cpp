#include "liveries/fixes.h"

#include "base/exceptions.h"
#include "base/log.h"
#include "base/paths.h"
#include "liveries/text_tokens.h"

#include <fmt/format.h>
#include <pugixml.hpp>

namespace ory {

TextMap<std::string> modelFixes;
TextOrderedSet pvtFixes;
TextOrderedSet govFixes;

namespace {

void lf_readModelFixes(const pugi::xml_node section) {
  for (const pugi::xml_node fix : section.children("fix")) {
    const std::string_view wrong = fix.attribute("wrong").as_string();
    const std::string_view correct = fix.attribute("correct").as_string();
    if (!isValidModel(correct)) {
      logWarning(fmt::format("wrong fix {}->{}, the latter is not a valid model", wrong, correct));
      continue;
    }
    if (!modelFixes.try_emplace(std::string(wrong), correct).second)
      logWarning(fmt::format("wrong part of fix: {}, already exists, skipped", wrong));
  }
}

// An operator code that is a real airline stays an airline: such an entry is refused.
void lf_readOperatorFixes(const pugi::xml_node section, TextOrderedSet& target, std::string_view kind) {
  for (const pugi::xml_node fix : section.children("fix")) {
    const std::string_view wrong = fix.attribute("wrong").as_string();
    if (isValidAirline(wrong)) {
      logWarning(fmt::format("{} fix {} is an ICAO airline code? ", kind, wrong));
      continue;
    }
    if (!target.emplace(wrong).second) logWarning(fmt::format("wrong: {}, already exists, skipped", wrong));
  }
}

} // namespace

void clearFixes() {
  modelFixes.clear();
  pvtFixes.clear();
  govFixes.clear();
}

bool readFixes() {
  clearFixes();
  const std::string path = pathText(fixesFile);
  pugi::xml_document document;
  if (!document.load_file(fixesFile.c_str()))
    throw UserErrorException(3, fmt::format("{} (or sections of it) not found?", path));
  lf_readModelFixes(document.child("fixes"));
  lf_readOperatorFixes(document.child("PVT_fixes"), pvtFixes, "PVT");
  lf_readOperatorFixes(document.child("GOV_fixes"), govFixes, "GOV");
  logLine(fmt::format("\"{}\" read", path));
  return !modelFixes.empty() && !pvtFixes.empty() && !govFixes.empty();
}

} // namespace ory
