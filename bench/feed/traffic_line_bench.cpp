// processLine's throughput on one core over real tracks converted to traffic lines; the reader must keep up
// with a busy region's feed with recvfrom as its only buffer.
#include "base/parameters.h"
#include "capture.h"
#include "convert.h"
#include "feed/feed.h"
#include "feed/inbox.h"
#include "support/scratch.h"

#include <benchmark/benchmark.h>

#include <filesystem>

namespace ory {
namespace {

// Every line of the real samples, all of them within range: nothing is refused early.
const std::vector<std::string>& realLines() {
  static const std::vector<std::string> lines = [] {
    const auto capture = std::filesystem::temp_directory_path() / "trovalyn_feed_bench.cap";
    ConvertOptions options;
    for (const char* source : {"trace_full_ac671b.json", "belevingsvlucht.json.gz", "elal747.json.gz",
                               "noisy_ground.json.gz", "noisy_takeoff.json.gz", "noisy_landing.json.gz",
                               "rega_zh.json.gz", "rega_sg.json.gz", "samu31.json.gz"})
      options.inputs.push_back(test::realData(std::string("adsb/") + source).string());
    options.output = capture.string();
    options.registry = test::realData("adsb/sample_hex_registry_subset.csv").string();
    options.types = test::realData("reference/tar1090-db/icao_aircraft_types2.json").string();
    convertTracks(options);
    std::vector<std::string> result;
    for (const CaptureEntry& entry : readCapture(capture.string()))
      if (entry.kind == CaptureKind::traffic) result.push_back(entry.payload);
    std::filesystem::remove(capture);
    return result;
  }();
  return lines;
}

void lf_prepare(bool queueOpen) {
  setRange(1e6);
  setReaderUserPosition(47.4581, 8.5481);
  setReaderParkAirport(47.4581, 8.5481, 1416);
  setQueueOpen(queueOpen);
  clearTrafficInbox();
}

void BM_processLine(benchmark::State& state) {
  const bool queueing = state.range(0) != 0;
  const std::vector<std::string>& lines = realLines();
  lf_prepare(queueing);
  std::size_t taken = 0;
  for (auto _ : state) {
    for (const std::string& line : lines) {
      trafficReader.line = line;
      trafficReader.processData();
    }
    if (queueing) {
      std::lock_guard lock(feedLock);
      taken += trafficInbox.size();
      trafficInbox.clear();
    }
  }
  state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * lines.size()));
  state.counters["lines"] = static_cast<double>(lines.size());
  state.counters["taken"] =
      queueing ? static_cast<double>(taken) / static_cast<double>(state.iterations()) : 0;
  setQueueOpen(false);
}
BENCHMARK(BM_processLine)->Arg(0)->Arg(1)->ArgName("queueOpen")->Unit(benchmark::kMillisecond);

} // namespace
} // namespace ory

BENCHMARK_MAIN();
