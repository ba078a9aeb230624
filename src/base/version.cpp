#include "base/version.h"

#include <fmt/format.h>

#include <charconv>

namespace ory {

Version parseVersion(std::string_view text) {
  std::int32_t numbers[3]{};
  for (auto& number : numbers) {
    const auto point = text.find('.');
    const std::string_view part = text.substr(0, point);
    std::from_chars(part.data(), part.data() + part.size(), number);
    if (point == std::string_view::npos) break;
    text.remove_prefix(point + 1);
  }
  return {numbers[0], numbers[1], numbers[2]};
}

std::string versionText(const Version& version) {
  return fmt::format("{}.{}.{}", version.major, version.minor, version.patch);
}

} // namespace ory
