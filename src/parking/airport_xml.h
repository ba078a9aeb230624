#pragma once
// The pieces of an airport file that its readers share: parameters, stand attributes and options.

#include "parking/stands.h"

#include <pugixml.hpp>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace ory {

// The value of "/parameters/parameter[@name='NAME']", or nothing when absent.
std::optional<std::string> fileParameter(const pugi::xml_document& DOCUMENT, std::string_view NAME);
std::optional<std::int32_t> fileInt(const pugi::xml_document& DOCUMENT, std::string_view NAME);
std::optional<bool> fileBool(const pugi::xml_document& DOCUMENT, std::string_view NAME);

// Latitude, longitude (degrees) and radius (metres in the file, nautical miles in the stand).
void readStandPlace(const pugi::xml_node& PARKPOS, Stand& STAND);
// heli, ramp, cargo and heading (degrees in the file, radians in the stand).
void readStandKind(const pugi::xml_node& PARKPOS, Stand& STAND);
// One opt element; nothing for a towed movement when SKIP_TOWED, or for a weekday outside 1 to 7. The
// registration's database record, when there is one, gives airline and type.
std::optional<StandOption> readStandOption(const pugi::xml_node& OPT, bool LEARNED, bool SKIP_TOWED);

// The location of a parkpos for messages: the stand's id.
std::string standIdOf(const pugi::xml_node& PARKPOS);

} // namespace ory
