#pragma once
// The engine's test world: the aircraft database and liveries of the liveries tests, a user, and the engine
// driven tick by tick with records queued as the reader queues them and the simulator's answers as commands.
#include "base/log.h"
#include "base/parameters.h"
#include "base/paths.h"
#include "base/run.h"
#include "engine/engine.h"
#include "engine/geometry.h"
#include "engine/tables.h"
#include "feed/inbox.h"
#include "liveries/liveries_scan.h"
#include "liveries/matching.h"
#include "liveries_world.h"
#include "simlink/session.h"
#include "simlink/user_aircraft.h"
#include "support/scratch.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

namespace ory::test {

constexpr double userLat = 52.0;
constexpr double userLon = 4.0;
constexpr std::uint32_t firstObject = 100;

// One report of the feed, as the reader stamps it at the present tick.
struct Report {
  std::uint32_t hexid = 0x484001;
  std::string callsign = "KLM601";
  std::string type = "B738";
  double lat = userLat + 0.1; // degrees
  double lon = userLon;       // degrees
  double altitude = 5000;     // feet; 0 on the ground
  double speed = 250;         // knots
  double track = 0;           // degrees
  double verticalSpeed = 0;   // feet per minute
  double timestamp = 1000;    // seconds
  std::string regcode;
};

class EngineTest : public test::InScratchFolder {
protected:
  void SetUp() override {
    for (const std::filesystem::path& folder : {outputFolder, infoFolder, errorsFolder, myRegcodesFolder})
      std::filesystem::create_directories(folder);
    openLog();
    test::installDatabase(test::worldDbase());
    installLiveries(
        {{"KLM", "B738", "KLM 737"}, {"DLH", "A320", "Lufthansa A320"}, {"PVT", "EC35", "Rega EC135"}});
    RANDOM.value = false;
    LOG.value = true;
    linkFailed = true; // no simulator here: the engine's own requests are not made
    HELICOPTERS.value = true;
    MAX_LIVE.set(MAX_LIVE.maximum);
    UserAircraft user;
    user.lat = userLat;
    user.lon = userLon;
    writeUserAircraft(user);
    resetEngine();
    resetBatches();
    clearTrafficInbox();
  }
  void TearDown() override {
    resetEngine();
    resetBatches();
    clearTrafficInbox();
    clearLiveries();
    test::clearDatabase();
    closeLog();
    linkFailed = false;
    RANDOM.value = true;
    LOG.value = false;
    GUID_CHANGES.value = false;
    BLOCK_CALLSIGN.value.clear();
    blockedCallsign.clear();
  }

  struct Livery {
    std::string airline, type, title;
  };
  static void installLiveries(const std::vector<Livery>& liveries) {
    clearLiveries();
    for (const Livery& livery : liveries) {
      LiveryData data;
      data.airline = livery.airline;
      data.type = livery.type;
      data.title = livery.title;
      scannedLiveries.push_back(data);
    }
    processLiveries();
    scannedLiveries.clear();
  }

  static void queue(const Report& report) {
    TrafficRecord record;
    record.hexid = report.hexid;
    record.callsign = report.callsign;
    record.type = report.type;
    record.regcode = report.regcode;
    record.timestamp = report.timestamp;
    record.slot.lat = report.lat;
    record.slot.lon = report.lon;
    record.slot.altitude = report.altitude;
    record.slot.airborne = report.altitude > 0;
    record.slot.groundSpeed = report.speed;
    record.slot.tas = report.speed;
    record.slot.track = report.track;
    record.slot.verticalSpeed = report.verticalSpeed;
    record.slot.time = simTick + 3000;
    std::lock_guard lock(feedLock);
    trafficInbox.push_back(record);
  }
  static void ticks(std::int32_t count) {
    for (std::int32_t i = 0; i < count; ++i)
      engineTick();
  }
  // A flight north at speed, one report every seconds, count reports, queued over the ticks between them.
  static void fly(Report report, std::int32_t count, double seconds = 4) {
    for (std::int32_t i = 0; i < count; ++i) {
      queue(report);
      ticks(static_cast<std::int32_t>(seconds * 100));
      const LatLon next = destination(report.lat, report.lon, report.track * degToRad,
                                      report.speed * seconds / 3600 * 6076.115);
      report.lat = next.lat;
      report.lon = next.lon;
      report.timestamp += seconds;
    }
  }
  // The simulator thread's side: what the engine released to be created, answered with objects.
  static std::vector<CreateRequest> createAll() {
    std::vector<CreateRequest> created;
    {
      std::lock_guard lock(batchLock);
      created.swap(createBatch);
    }
    for (const CreateRequest& request : created)
      pushSimCommand({nextObject++, request.hexid, 0, commandLiveAdded, 0, 3000});
    return created;
  }
  static std::vector<ObjectEvent> takeEvents() {
    std::lock_guard lock(batchLock);
    std::vector<ObjectEvent> events;
    events.swap(eventBatch);
    return events;
  }
  static std::vector<std::uint32_t> takeRemovals() {
    std::lock_guard lock(batchLock);
    std::vector<std::uint32_t> removed;
    removed.swap(removeBatch);
    return removed;
  }
  // Up to limit ticks until an aircraft of hexid is alive in the simulator; its object id or 0.
  static std::uint32_t bringAlive(std::uint32_t hexid, std::int32_t limit = 6000) {
    for (std::int32_t i = 0; i < limit; ++i) {
      engineTick();
      createAll();
      const LiveAircraft* aircraft = findLive(hexid);
      if (aircraft != nullptr && aircraft->state == Alive) return aircraft->objectId;
    }
    return 0;
  }
  static inline std::uint32_t nextObject = firstObject;
};

} // namespace ory::test
