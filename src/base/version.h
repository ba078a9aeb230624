#pragma once

#include <compare>
#include <cstdint>
#include <string>
#include <string_view>

namespace ory {

inline constexpr std::string_view programName = "Trovalyn_P3D";
inline constexpr std::string_view programVersion = "8.8.0";
inline constexpr std::string_view simulatorFamily = "Prepar3D v5/v6";

// Three numbers, text form "1.2.3"; all zero means not known.
struct Version {
  std::int32_t major = 0;
  std::int32_t minor = 0;
  std::int32_t patch = 0;
  auto operator<=>(const Version&) const = default;
};

// "1.2.3", or a JSON object with the numbers major, minor and patch; empty text gives zero. Anything else
// throws a standard exception.
Version parseVersion(std::string_view text);
// parseVersion, with zero for a text it refuses: for versions the program stored itself.
Version versionOrZero(std::string_view text);
std::string versionText(const Version& version);

} // namespace ory
