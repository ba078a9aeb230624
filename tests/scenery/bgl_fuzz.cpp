// libFuzzer entry for the BGL reader: any bytes, read as a scenery file, decode or are refused, never more.

#include "scenery/airport_record.h"
#include "scenery/bgl.h"
#include "scenery/scan_log.h"

#include <cstddef>
#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* DATA, std::size_t SIZE) {
  const ory::BglWords bgl = ory::bglFromBytes({reinterpret_cast<const char*>(DATA), SIZE});
  std::string damage;
  for (const ory::AirportRecordRef& airport : ory::findAirportRecords(bgl, damage)) {
    try {
      ory::decodeAirportRecord(bgl, airport, "fuzz.bgl");
    } catch (const ory::BglRangeError&) {
    }
  }
  ory::clearScanLog();
  return 0;
}
