// One engine tick with 300 live aircraft, half in the air and half taxiing, two records of the feed taken
// every tick and the position batch swapped. The budget of the tick is 10 ms; the target is 0.5 % of it.
#include "base/run.h"
#include "engine/engine.h"
#include "engine/geometry.h"
#include "engine/tables.h"
#include "feed/inbox.h"
#include "simlink/batches.h"
#include "simlink/session.h"
#include "support/scratch.h"

#include <benchmark/benchmark.h>

#include <algorithm>

namespace ory {
namespace {

constexpr std::uint32_t fleet = 300;
constexpr std::int32_t reportTicks = 150; // two records a tick: each aircraft reports every 1.5 seconds
constexpr double reportSeconds = 1.5;

struct Flight {
  std::uint32_t hexid = 0;
  double lat = 0, lon = 0; // degrees, the next report's position
  double speed = 0;        // knots
  double track = 0;        // degrees
  bool airborne = false;
  double timestamp = 0; // seconds
};

PositionSlot lf_slot(const Flight& f, std::int32_t time) {
  PositionSlot slot;
  slot.lat = f.lat;
  slot.lon = f.lon;
  slot.altitude = f.airborne ? 8000 : 0;
  slot.airborne = f.airborne;
  slot.groundSpeed = f.speed;
  slot.tas = f.speed;
  slot.track = f.track;
  slot.time = time;
  return slot;
}

void lf_advance(Flight& f) {
  const LatLon next =
      destination(f.lat, f.lon, f.track * degToRad, f.speed * reportSeconds / 3600 * 6076.115);
  f.lat = next.lat;
  f.lon = next.lon;
  f.timestamp += reportSeconds;
  f.track += f.airborne ? 2 : 10; // always turning: curves on the ground, banks in the air
  if (f.track >= 360) f.track -= 360;
}

// The fleet alive in the simulator, each with a few reports queued ahead.
std::vector<Flight> lf_fleet() {
  resetEngine();
  resetBatches();
  clearTrafficInbox();
  linkFailed = true; // no simulator: the engine's requests are not made
  reserveEngineTables();
  std::vector<Flight> flights;
  for (std::uint32_t i = 0; i < fleet; ++i) {
    Flight f{0x400000 + i, 48 + i * 0.01, 11 + (i % 17) * 0.01, i % 2 ? 250.0 : 15.0, (i * 37) % 360 * 1.0,
             i % 2 == 1,   1000};
    LiveAircraft& a = liveAircraft.emplace_back();
    a.hexid = f.hexid;
    a.callsign = "BEN" + std::to_string(i);
    a.category = 2;
    a.state = Alive;
    a.objectId = 100 + i;
    a.phase = f.airborne ? Airborne : Taxi;
    a.onGround = !f.airborne;
    a.lat = f.lat;
    a.lon = f.lon;
    a.heading = f.track * degToRad;
    a.altitude = f.airborne ? 8000 : 0;
    a.groundTurnRate = 7 * degToRad / 100;
    a.climbRate = 0.6;
    a.halfWingSpan = 0.0097;
    a.altitudeAboveGround = f.airborne ? 8000 : 0;
    a.lowLightsSet = true;
    for (std::int32_t k = 0; k < 8; ++k) {
      a.slots.push_back(lf_slot(f, simTick + k * reportTicks + static_cast<std::int32_t>(i)));
      lf_advance(f);
    }
    flights.push_back(f);
  }
  return flights;
}

void engineTickWith300Aircraft(benchmark::State& state) {
  const test::ScratchFolder scratch;
  std::vector<Flight> flights = lf_fleet();
  std::size_t next = 0;
  for (auto _ : state) {
    {
      std::lock_guard lock(feedLock);
      for (int k = 0; k < 2; ++k) {
        Flight& f = flights[next];
        next = (next + 1) % flights.size();
        TrafficRecord record;
        record.hexid = f.hexid;
        record.timestamp = f.timestamp;
        record.slot = lf_slot(f, simTick + 3000);
        trafficInbox.push_back(std::move(record));
        lf_advance(f);
      }
    }
    engineTick();
    std::lock_guard lock(batchLock);
    positionBatch.simulatorHalf.clear(); // what sendBatches does at each frame
    eventBatch.clear();
  }
  state.counters["alive"] = static_cast<double>(std::count_if(
      liveAircraft.begin(), liveAircraft.end(), [](const LiveAircraft& a) { return a.state == Alive; }));
  linkFailed = false;
}
BENCHMARK(engineTickWith300Aircraft)
    ->Unit(benchmark::kMicrosecond)
    ->Iterations(20000)
    ->Repetitions(5)
    ->ReportAggregatesOnly(true);

} // namespace
} // namespace ory

BENCHMARK_MAIN();
