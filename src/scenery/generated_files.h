#pragma once
// What the parking reads for an airport found in the user's scenery: a link to the archived file of that
// scenery when the archive has one, else (or when the scenery has more stands) a generated file of its
// stands.

#include "scenery/bgl.h"

#include <atomic>
#include <cstdint>
#include <filesystem>

namespace ory {

extern std::atomic<std::int32_t> linkedAirports; // airports of this scan that found an archived file

// One airport record of a bgl file, on a scan worker. Never throws: a failure costs this airport, with a line
// in the scan log.
void toParkingPositions(const BglWords& bgl, const AirportRecordRef& airport,
                        const std::filesystem::path& path);

} // namespace ory
