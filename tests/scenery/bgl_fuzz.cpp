// libFuzzer entry for the BGL reader: any bytes, read as a scenery file, decode or are refused, never more,
// and every stand that comes out is one the parking can use.

#include "scenery/airport_record.h"
#include "scenery/bgl.h"
#include "scenery/scan_log.h"

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdlib>

namespace {

bool lf_usable(const ory::Stand& STAND) {
  const bool onGlobe = STAND.lat >= -90 && STAND.lat <= 90 && STAND.lon >= -180 && STAND.lon <= 180;
  const bool nullBox = STAND.lat >= 0 && STAND.lat <= 0.0009 && STAND.lon >= 0 && STAND.lon <= 0.05;
  return !STAND.id.empty() && onGlobe && !nullBox && std::isfinite(STAND.heading) && STAND.heading != 0 &&
         STAND.radius > 0 && STAND.radius < 500 * ory::nmPerMetre && !STAND.idDoubled;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* DATA, std::size_t SIZE) {
  const ory::BglWords bgl = ory::bglFromBytes({reinterpret_cast<const char*>(DATA), SIZE});
  std::string damage;
  for (const ory::AirportRecordRef& airport : ory::findAirportRecords(bgl, damage)) {
    try {
      for (const ory::Stand& stand : ory::decodeAirportRecord(bgl, airport, "fuzz.bgl").stands)
        if (!lf_usable(stand)) std::abort();
    } catch (const ory::BglRangeError&) {
    }
  }
  ory::clearScanLog();
  return 0;
}
