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

void lf_watch(const UdpReader& READER, std::atomic<FeedMark>& MARK, ReaderWatch& WATCH) {
  const std::int32_t count = READER.packetCount;
  if (count == WATCH.lastCount) {
    MARK = FeedMark::stale;
    WATCH.notedStale = true;
  } else if (WATCH.notedStale) {
    WATCH.notedStale = false;
    MARK = FeedMark::running;
  }
  WATCH.lastCount = count;
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

void setReaderUserPosition(double LAT, double LON) {
  trafficReader.userLat = LAT;
  trafficReader.userLon = LON;
}

void setReaderParkAirport(double LAT, double LON, double ELEVATION_FT) {
  trafficReader.parkLat = LAT;
  trafficReader.parkLon = LON;
  trafficReader.parkElevation = ELEVATION_FT;
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
