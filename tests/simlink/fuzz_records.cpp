// libFuzzer entry: arbitrary bytes from the simulator through reassembly, checks and dispatch (`make fuzz`).
#include "record_feed.h"

#include <cstddef>
#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* DATA, std::size_t SIZE) {
  static const bool prepared = (ory::test::prepareRecordFeed(), true);
  (void)prepared;
  ory::test::feedRecords(DATA, SIZE);
  return 0;
}
