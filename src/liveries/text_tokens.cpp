#include "liveries/text_tokens.h"

#include <stdexcept>

namespace ory {

namespace {

constexpr std::string_view blanks = " \t\r\n";

// One text for a failed conversion on every platform, whatever the library writes.
template <typename Convert>
auto lf_convert(const std::string& text, std::string_view name, Convert convert) {
  try {
    return convert(text);
  } catch (const std::invalid_argument&) {
    throw std::invalid_argument("invalid " + std::string(name) + " argument");
  } catch (const std::out_of_range&) {
    throw std::out_of_range(std::string(name) + " argument out of range");
  }
}

} // namespace

std::string_view trimBlanks(std::string_view text) {
  const std::size_t first = text.find_first_not_of(blanks);
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

std::vector<std::string_view> splitTrimmed(std::string_view text) {
  std::vector<std::string_view> tokens;
  for (const std::string_view field : splitFields(text, ','))
    if (const std::string_view token = trimBlanks(field); !token.empty()) tokens.push_back(token);
  return tokens;
}

std::vector<std::string_view> splitFields(std::string_view text, char separator) {
  std::vector<std::string_view> fields;
  for (std::size_t start = 0;;) {
    const std::size_t end = text.find(separator, start);
    fields.push_back(
        text.substr(start, end == std::string_view::npos ? std::string_view::npos : end - start));
    if (end == std::string_view::npos) return fields;
    start = end + 1;
  }
}

bool isTrueText(std::string_view text) {
  return !text.empty() && std::string_view("1tTyY").find(text.front()) != std::string_view::npos;
}

std::string pathText(const std::filesystem::path& path) {
  const std::u8string text = path.u8string();
  return std::string(text.begin(), text.end());
}

double textToDouble(const std::string& text) {
  return lf_convert(text, "stod", [](const std::string& t) { return std::stod(t); });
}

float textToFloat(const std::string& text) {
  return lf_convert(text, "stof", [](const std::string& t) { return std::stof(t); });
}

} // namespace ory
