#pragma once
// The pieces of an airport file that its readers share: parameters, stand attributes and options.

#include "parking/stands.h"

#include <pugixml.hpp>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace ory {

// The value of "/parameters/parameter[@name='name']", or nothing when absent.
std::optional<std::string> fileParameter(const pugi::xml_document& document, std::string_view name);
std::optional<std::int32_t> fileInt(const pugi::xml_document& document, std::string_view name);
std::optional<bool> fileBool(const pugi::xml_document& document, std::string_view name);

// Latitude, longitude (degrees) and radius (metres in the file, nautical miles in the stand).
void readStandPlace(const pugi::xml_node& parkpos, Stand& stand);
// heli, ramp, cargo and heading (degrees in the file, radians in the stand).
void readStandKind(const pugi::xml_node& parkpos, Stand& stand);
// One opt element; nothing for a towed movement when skipTowed, or for a weekday outside 1 to 7. The
// registration's database record, when there is one, gives airline and type.
std::optional<StandOption> readStandOption(const pugi::xml_node& opt, bool learned, bool skipTowed);

} // namespace ory
