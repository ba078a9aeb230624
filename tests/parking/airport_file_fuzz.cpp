// libFuzzer entry for airport files: any text read as an archived file, then merged as a learned one.

#include "base/exceptions.h"
#include "parking/airport_file.h"

#include <pugixml.hpp>

#include <cstddef>
#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* DATA, std::size_t SIZE) {
  pugi::xml_document document;
  if (!document.load_buffer(DATA, SIZE)) return 0;
  std::vector<ory::Stand> stands;
  try {
    ory::readParkPositions(document, stands);
  } catch (const ory::UserErrorException&) {
  }
  if (stands.empty()) stands.emplace_back();
  for (const pugi::xml_node parkpos : document.child("parkpositions").children("parkpos"))
    ory::mergeLearnedStand(stands.front(), parkpos);
  ory::findOverlaps(stands);
  ory::computeQualityFactors(stands);
  return 0;
}
