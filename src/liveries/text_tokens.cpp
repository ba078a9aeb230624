#include "liveries/text_tokens.h"

#include <stdexcept>

namespace ory {

namespace {

constexpr std::string_view blanks = " \t\r\n";

// One text for a failed conversion on every platform, whatever the library writes.
template <typename Convert>
auto lf_convert(const std::string& TEXT, std::string_view NAME, Convert CONVERT) {
  try {
    return CONVERT(TEXT);
  } catch (const std::invalid_argument&) {
    throw std::invalid_argument("invalid " + std::string(NAME) + " argument");
  } catch (const std::out_of_range&) {
    throw std::out_of_range(std::string(NAME) + " argument out of range");
  }
}

} // namespace

std::string_view trimBlanks(std::string_view TEXT) {
  const std::size_t first = TEXT.find_first_not_of(blanks);
  if (first == std::string_view::npos) return {};
  return TEXT.substr(first, TEXT.find_last_not_of(blanks) - first + 1);
}

std::vector<std::string_view> splitTrimmed(std::string_view TEXT) {
  std::vector<std::string_view> tokens;
  for (const std::string_view field : splitFields(TEXT, ','))
    if (const std::string_view token = trimBlanks(field); !token.empty()) tokens.push_back(token);
  return tokens;
}

std::vector<std::string_view> splitFields(std::string_view TEXT, char SEPARATOR) {
  std::vector<std::string_view> fields;
  for (std::size_t start = 0;;) {
    const std::size_t end = TEXT.find(SEPARATOR, start);
    fields.push_back(
        TEXT.substr(start, end == std::string_view::npos ? std::string_view::npos : end - start));
    if (end == std::string_view::npos) return fields;
    start = end + 1;
  }
}

bool isTrueText(std::string_view TEXT) {
  return !TEXT.empty() && std::string_view("1tTyY").find(TEXT.front()) != std::string_view::npos;
}

std::string pathText(const std::filesystem::path& PATH) {
  const std::u8string text = PATH.u8string();
  return std::string(text.begin(), text.end());
}

double textToDouble(const std::string& TEXT) {
  return lf_convert(TEXT, "stod", [](const std::string& T) { return std::stod(T); });
}

float textToFloat(const std::string& TEXT) {
  return lf_convert(TEXT, "stof", [](const std::string& T) { return std::stof(T); });
}

} // namespace ory
