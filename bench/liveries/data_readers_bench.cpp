// readDbase and readAirports on the prepared real data (budget: both together under half a second), and the
// lookups that run for every new aircraft and in the search for the airport under the user.
#include "base/paths.h"
#include "liveries/dbase.h"
#include "parking/airport_database.h"
#include "support/scratch.h"

#include <benchmark/benchmark.h>

namespace ory {
namespace {

// One scratch program folder with the prepared files, for the whole run.
void lf_programFolder() {
  static test::ScratchFolder scratch;
  static const bool installed = (test::installPreparedData(scratch.path()), true);
  (void)installed;
}

void BM_readDbase(benchmark::State& state) {
  lf_programFolder();
  for (auto _ : state)
    benchmark::DoNotOptimize(readDbase());
  state.counters["types"] = static_cast<double>(aircraftTypes.size());
  state.counters["airlines"] = static_cast<double>(icaoAirlines.size());
}
BENCHMARK(BM_readDbase)->Unit(benchmark::kMillisecond);

void BM_readAirports(benchmark::State& state) {
  lf_programFolder();
  for (auto _ : state) {
    clearAirports();
    benchmark::DoNotOptimize(readAirports());
  }
  state.counters["airports"] = static_cast<double>(airports.size());
}
BENCHMARK(BM_readAirports)->Unit(benchmark::kMillisecond);

void BM_readDbaseAndAirports(benchmark::State& state) {
  lf_programFolder();
  for (auto _ : state) {
    clearAirports();
    benchmark::DoNotOptimize(readDbase());
    benchmark::DoNotOptimize(readAirports());
  }
}
BENCHMARK(BM_readDbaseAndAirports)->Unit(benchmark::kMillisecond);

// Arg 0: stored as written; 1: found in its XX-YYY form; 2: found in its X-YYYY form; 3: not found (three
// lookups).
void BM_lookupDbaseRecord(benchmark::State& state) {
  lf_programFolder();
  readDbase();
  static constexpr std::string_view regcodes[] = {"PH-HZO", "PHHZO", "DAIRN", "ZZ9999"};
  const std::string_view regcode = regcodes[state.range(0)];
  for (auto _ : state)
    benchmark::DoNotOptimize(lookupDbaseRecord(regcode));
}
BENCHMARK(BM_lookupDbaseRecord)->DenseRange(0, 3);

void BM_modelCategoryAndHalfWingspan(benchmark::State& state) {
  lf_programFolder();
  readDbase();
  for (auto _ : state) {
    benchmark::DoNotOptimize(modelCategory("C172"));
    benchmark::DoNotOptimize(halfWingspan("B38M"));
  }
}
BENCHMARK(BM_modelCategoryAndHalfWingspan);

// Arg 0: an airport early in the table; 1: one late in it; 2: an unknown code, the whole table walked.
void BM_findAirport(benchmark::State& state) {
  lf_programFolder();
  readAirports();
  static constexpr std::string_view codes[] = {"00AA", "EHAM", "XXXX"};
  const std::string_view code = codes[state.range(0)];
  for (auto _ : state)
    benchmark::DoNotOptimize(findAirport(code));
}
BENCHMARK(BM_findAirport)->DenseRange(0, 2)->Unit(benchmark::kMicrosecond);

void BM_findPublisher(benchmark::State& state) {
  lf_programFolder();
  readDbase();
  for (auto _ : state)
    benchmark::DoNotOptimize(findPublisher("thirdparty/SomeoneElse_EDDM_2024.xml"));
}
BENCHMARK(BM_findPublisher)->Unit(benchmark::kMicrosecond);

} // namespace
} // namespace ory

BENCHMARK_MAIN();
