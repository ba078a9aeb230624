#include "line_fuzz.h"

#include "feed/feed.h"
#include "feed/inbox.h"

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <memory>

namespace ory::test {

namespace {

std::unique_ptr<char[]> lf_exactCopy(const std::uint8_t* data, std::size_t size) {
  auto copy = std::make_unique<char[]>(size == 0 ? 1 : size);
  if (size > 0) std::memcpy(copy.get(), data, size);
  return copy;
}

// What a record on the inbox must always be, whatever the line was.
void lf_checkQueued(const TrafficRecord& record) {
  const PositionSlot& slot = record.slot;
  bool finite = std::isfinite(record.timestamp);
  for (double value : {slot.roll, slot.trueHeading, slot.altitude, slot.groundSpeed, slot.track,
                       slot.verticalSpeed, slot.tas})
    finite = finite && std::isfinite(value);
  const bool sane = finite && record.hexid > 10000 && !record.regcode.empty() && record.regcode.size() < 13 &&
                    slot.lat >= -90 && slot.lat <= 90 && slot.lon >= -180 && slot.lon <= 180 &&
                    (!slot.hasHeading || (slot.trueHeading > 0 && slot.trueHeading <= 6.3)) &&
                    slot.airborne == (slot.altitude != 0) && (slot.airborne || slot.tas == 0);
  if (!sane) std::abort();
}

} // namespace

void feedTrafficLine(const std::uint8_t* data, std::size_t size) {
  const auto copy = lf_exactCopy(data, size);
  trafficReader.line = std::string_view(copy.get(), size);
  trafficReader.processData();
  std::lock_guard lock(feedLock);
  for (const TrafficRecord& record : trafficInbox)
    lf_checkQueued(record);
  trafficInbox.clear();
}

void feedWeatherReport(const std::uint8_t* data, std::size_t size) {
  const auto copy = lf_exactCopy(data, size);
  qnhReader.line = std::string_view(copy.get(), size);
  qnhReader.processData();
  const std::int32_t qnh = qnhForEngine;
  if (qnh < 930 || qnh > 1080) std::abort();
}

} // namespace ory::test
