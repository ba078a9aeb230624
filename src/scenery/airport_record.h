#pragma once
// One airport record of a bgl file turned into stands: its taxi parkings and helipads, with its name and
// altitude.

#include "parking/stands.h"
#include "scenery/bgl.h"

#include <cstdint>
#include <filesystem>
#include <vector>

namespace ory {

// Decodes the sub-records in file order. Broken entries are skipped with a line in the scan log (path names
// the file there); a read beyond the file throws BglRangeError. The result has no publisher yet.
ScanResult decodeAirportRecord(const BglWords& bgl, const AirportRecordRef& airport,
                               const std::filesystem::path& path);

// Millimetres above sea level to feet; outside -20 to 10000 feet gives 0.
std::int32_t airportAltitudeFeet(std::int32_t millimetres);

// Stands whose names had to be made unique get the shared name and its suffixes a to f by size, largest
// first, so that the names don't depend on the order in the file.
void renumberDoubledIds(std::vector<Stand>& stands);

} // namespace ory
