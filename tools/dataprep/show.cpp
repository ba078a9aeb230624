#include "dataprep.h"
#include "liveries/scramble.h"
#include "liveries/text_tokens.h"

#include <fmt/format.h>
#include <pugixml.hpp>

#include <cstring>
#include <stdexcept>

namespace ory {

namespace {

using Unscramble = std::string (*)(std::string_view);

// How each attribute of dbase.xml is stored; the others are plain.
struct StoredForm {
  const char* attribute;
  Unscramble unscramble;
};
constexpr StoredForm storedForms[] = {{"types", unscrambleModel},   {"type", unscrambleModel},
                                      {"codes", unscrambleAirline}, {"airl", unscrambleAirline},
                                      {"opr", unscrambleAirline},   {"reg", unscrambleRegcode}};

Unscramble lf_unscrambleFor(const char* attribute) {
  for (const StoredForm& form : storedForms)
    if (std::strcmp(form.attribute, attribute) == 0) return form.unscramble;
  return nullptr;
}

// A token that doesn't read back is shown as it stands, marked with '?'.
std::string lf_plain(Unscramble unscramble, std::string_view token) {
  try {
    return unscramble(token);
  } catch (const std::exception&) {
    return fmt::format("?{}", token);
  }
}

std::string lf_attributeText(const pugi::xml_attribute attribute) {
  const Unscramble unscramble = lf_unscrambleFor(attribute.name());
  if (!unscramble) return attribute.value();
  std::string text;
  for (const std::string_view token : splitTrimmed(attribute.value()))
    text.append(text.empty() ? "" : ",").append(lf_plain(unscramble, token));
  return text;
}

} // namespace

std::string showDbase(const std::filesystem::path& file) {
  pugi::xml_document document;
  const pugi::xml_parse_result loaded = document.load_file(file.c_str());
  if (!loaded) throw std::runtime_error(fmt::format("{} not read: {}", file.string(), loaded.description()));
  std::string text;
  for (const pugi::xml_node section : document.children()) {
    if (section.type() != pugi::node_element) continue;
    const auto count = std::distance(section.children().begin(), section.children().end());
    text += fmt::format("[{}] {} element{}\n", section.name(), count, count == 1 ? "" : "s");
    for (const pugi::xml_node child : section.children()) {
      text += child.name();
      for (const pugi::xml_attribute attribute : child.attributes())
        text += fmt::format(" {}=\"{}\"", attribute.name(), lf_attributeText(attribute));
      text += '\n';
    }
  }
  return text;
}

} // namespace ory
