#include "base/version.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <regex>
#include <string>

namespace ory {

Version parseVersion(std::string_view text) {
  if (text.empty()) return {};
  static const std::regex dotted(R"((\d+)\.(\d+)\.(\d+))");
  std::match_results<std::string_view::const_iterator> groups;
  if (std::regex_match(text.begin(), text.end(), groups, dotted))
    return {std::stoi(groups[1].str()), std::stoi(groups[2].str()), std::stoi(groups[3].str())};
  const nlohmann::json json = nlohmann::json::parse(text);
  return {json.at("major").get<std::int32_t>(), json.at("minor").get<std::int32_t>(),
          json.at("patch").get<std::int32_t>()};
}

Version versionOrZero(std::string_view text) {
  try {
    return parseVersion(text);
  } catch (const std::exception&) {
    return {};
  }
}

std::string versionText(const Version& version) {
  return fmt::format("{}.{}.{}", version.major, version.minor, version.patch);
}

} // namespace ory
