// libFuzzer entry: a datagram that opens with "{" goes to the weather parser, any other to the traffic line.
#include "base/parameters.h"
#include "feed/feed.h"
#include "feed/inbox.h"
#include "line_fuzz.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* DATA, std::size_t SIZE) {
  static const bool prepared = [] {
    ory::setRange(1e6);
    ory::setReaderParkAirport(47.4581, 8.5481, 1416);
    ory::setQueueOpen(true);
    return true;
  }();
  (void)prepared;
  if (SIZE > 0 && DATA[0] == '{')
    ory::test::feedWeatherReport(DATA, SIZE);
  else
    ory::test::feedTrafficLine(DATA, SIZE);
  return 0;
}
