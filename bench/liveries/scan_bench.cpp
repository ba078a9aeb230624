// The liveries scan of a generated tree of 5,000 aircraft.cfg and sim.cfg files against merely reading the
// same files with cat, on a warm cache; the matcher's cost per aircraft.
#include "base/display.h"
#include "base/log.h"
#include "base/parameters.h"
#include "base/paths.h"
#include "base/run.h"
#include "liveries/liveries_scan.h"
#include "liveries/livery_table.h"
#include "liveries/matching.h"
#include "liveries_world.h"
#include "support/scratch.h"

#include <benchmark/benchmark.h>
#include <fmt/format.h>

#include <chrono>
#include <cstdlib>
#include <fstream>
#include <thread>

namespace ory {
namespace {

namespace fs = std::filesystem;

constexpr std::size_t fileCount = 5000;

struct World {
  test::ScratchFolder scratch; // the program folder and HOME
  fs::path tree = fs::path(ORY_BENCH_DATA_DIR) / fmt::format("SimObjects{}", fileCount);
  std::size_t bytes = 0;

  World() {
    for (const fs::path& folder : {outputFolder, infoFolder, errorsFolder, myRegcodesFolder})
      fs::create_directories(folder);
    openLog();
    test::installDatabase(test::worldDbase());
    scanWorkerLimit = static_cast<std::int32_t>(std::max(1u, std::thread::hardware_concurrency()));
    const fs::path marker = tree / "complete.txt";
    if (!fs::exists(marker)) {
      fs::remove_all(tree);
      const test::TreeFacts facts = test::generateSimObjects(tree, {.files = fileCount, .seed = 3});
      test::writeBytes(marker, std::to_string(facts.bytes));
    }
    bytes = std::stoull(test::readFile(marker));
  }
};

World& lf_world() {
  static World world;
  return world;
}

void lf_scan() {
  clearLiveries();
  loadLiveries(true, false, false, {lf_world().tree});
}

// A cold pass first: both benchmarks measure the warm cache.
void BM_ScanTree(benchmark::State& state) {
  lf_scan();
  for (auto _ : state)
    lf_scan();
  state.counters["files"] = static_cast<double>(fileCount);
  state.counters["liveries"] = static_cast<double>(display.liveryCount.load());
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * lf_world().bytes));
}
BENCHMARK(BM_ScanTree)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(5);

std::string lf_catCommand() {
  return fmt::format("find '{}' -iname '*.cfg' -print0 | xargs -0 cat > /dev/null", lf_world().tree.string());
}

void BM_CatTree(benchmark::State& state) {
  const std::string command = lf_catCommand();
  if (std::system(command.c_str()) != 0) state.SkipWithError("cat failed");
  for (auto _ : state)
    if (std::system(command.c_str()) != 0) state.SkipWithError("cat failed");
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * lf_world().bytes));
}
BENCHMARK(BM_CatTree)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(5);

// Scan and cat in turns, so that the load of a shared machine weighs on both alike; the ratio is the figure.
void BM_ScanAgainstCat(benchmark::State& state) {
  using Clock = std::chrono::steady_clock;
  const std::string command = lf_catCommand();
  lf_scan();
  Clock::duration scan{};
  Clock::duration cat{};
  for (auto _ : state) {
    const auto start = Clock::now();
    if (std::system(command.c_str()) != 0) state.SkipWithError("cat failed");
    const auto between = Clock::now();
    lf_scan();
    const auto end = Clock::now();
    cat += between - start;
    scan += end - between;
    state.SetIterationTime(std::chrono::duration<double>(end - between).count());
  }
  state.counters["cat_ms"] = std::chrono::duration<double, std::milli>(cat).count() / state.iterations();
  state.counters["ratio"] = std::chrono::duration<double>(scan) / std::chrono::duration<double>(cat);
}
BENCHMARK(BM_ScanAgainstCat)->Unit(benchmark::kMillisecond)->UseManualTime()->Iterations(10);

void BM_ReadStoredLiveries(benchmark::State& state) {
  lf_scan();
  for (auto _ : state) {
    clearLiveries();
    loadLiveries(false, false, false, {});
  }
}
BENCHMARK(BM_ReadStoredLiveries)->Unit(benchmark::kMillisecond);

// Aircraft of the world's airlines and types, most of which have no livery of their own in the tree.
std::vector<MatchAircraft> lf_traffic() {
  const test::DbaseContent dbase = test::worldDbase();
  std::vector<std::string> types;
  for (const auto* category : {&dbase.light, &dbase.buzjets, &dbase.large, &dbase.heavy, &dbase.rotorcraft})
    types.insert(types.end(), category->begin(), category->end());
  std::vector<MatchAircraft> traffic;
  std::uint32_t hexid = 0x400000;
  for (const std::string& airline : dbase.airlines)
    for (const std::string& type : types) {
      MatchAircraft aircraft;
      aircraft.airline = airline;
      aircraft.type = type;
      aircraft.category = modelCategory(type);
      aircraft.regcode = hexid % 3 == 0 ? fmt::format("T-{:05}A", hexid % 5000) : "";
      aircraft.cargo = hexid % 10 == 0;
      aircraft.hexid = ++hexid;
      traffic.push_back(std::move(aircraft));
    }
  return traffic;
}

void BM_MatchLiveAircraft(benchmark::State& state) {
  lf_scan();
  LOG.value = false;
  MATCHING_DEPTH.value = static_cast<std::int32_t>(state.range(0));
  const std::vector<MatchAircraft> traffic = lf_traffic();
  std::size_t matched = 0;
  for (auto _ : state) {
    hexidLiveries.clear();
    for (MatchAircraft aircraft : traffic)
      matched += matchLiveAircraft(aircraft) ? 1 : 0;
  }
  state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * traffic.size()));
  state.counters["matched"] =
      static_cast<double>(matched) / static_cast<double>(state.iterations() * traffic.size());
}
BENCHMARK(BM_MatchLiveAircraft)->Arg(2)->Arg(4);

} // namespace
} // namespace ory

BENCHMARK_MAIN();
