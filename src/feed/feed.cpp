#include "feed/feed.h"

#include "base/display.h"
#include "base/run.h"

#include <mutex>

namespace ory {

TrafficReader trafficReader;
QnhReader qnhReader;

namespace {

// The watchdog's memory of one reader.
struct ReaderWatch {
  std::int32_t lastCount = 0;
  bool notedStale = false;
};
ReaderWatch lf_qnhWatch;
ReaderWatch lf_trafficWatch;
std::mutex lf_watchLock; // the watchdog runs on the main loop, its reset also on the exit thread

void lf_watch(const UdpReader& reader, std::atomic<FeedMark>& mark, ReaderWatch& watch) {
  const std::int32_t count = reader.packetCount;
  if (count == watch.lastCount) {
    mark = FeedMark::stale;
    watch.notedStale = true;
  } else if (watch.notedStale) {
    watch.notedStale = false;
    mark = FeedMark::running;
  }
  watch.lastCount = count;
}

} // namespace

void resetFeed() {
  lastFeedTime = 0;
  qnhReader.lastQnh = standardQnh;
  trafficReader.qnhShadow = standardQnh;
  qnhForEngine = standardQnh;
  display.qnh = standardQnh;
  {
    std::lock_guard lock(trafficReader.callsignLock);
    trafficReader.feedCallsigns.clear();
  }
  for (UdpReader* reader : {static_cast<UdpReader*>(&trafficReader), static_cast<UdpReader*>(&qnhReader)}) {
    reader->stopFlag = false;
    reader->packetCount = 0;
  }
  std::lock_guard lock(lf_watchLock);
  lf_qnhWatch = {};
  lf_trafficWatch = {};
  // With its note gone the watchdog would never take a stale mark back.
  for (std::atomic<FeedMark>* mark : {&display.weatherMark, &display.trafficMark}) {
    FeedMark stale = FeedMark::stale;
    mark->compare_exchange_strong(stale, FeedMark::running);
  }
}

void setReaderUserPosition(double lat, double lon) {
  trafficReader.userLat = lat;
  trafficReader.userLon = lon;
}

void setReaderParkAirport(double lat, double lon, double elevationFt) {
  trafficReader.parkLat = lat;
  trafficReader.parkLon = lon;
  trafficReader.parkElevation = elevationFt;
  trafficReader.hasParkAirport = true;
}

void clearReaderParkAirport() {
  trafficReader.hasParkAirport = false;
}

void stopReaders() {
  stopReader(qnhReader);
  stopReader(trafficReader);
}

void feedWatchdog() {
  if (!display.rtLinkUp) return;
  std::lock_guard lock(lf_watchLock);
  lf_watch(qnhReader, display.weatherMark, lf_qnhWatch);
  lf_watch(trafficReader, display.trafficMark, lf_trafficWatch);
  repaintWindow();
}

} // namespace ory
