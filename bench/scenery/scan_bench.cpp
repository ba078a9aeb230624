// A scenery library of 2,100 BGL files, as a first scan meets it: 2,000 files without airports (terrain,
// objects, landclass) of 4 to 60 KB, and 100 airport files of 40 stands each. The scan is set against merely
// reading every byte of the same files. Each scan makes its 100 generated files anew, as a real one does.

#include "base/paths.h"
#include "base/run.h"
#include "bgl_builder.h"
#include "scenery/airport_record.h"
#include "scenery/bgl.h"
#include "scenery/scan_log.h"
#include "scenery/scenery_scan.h"
#include "support/scratch.h"

#include <benchmark/benchmark.h>
#include <fmt/format.h>

#include <fstream>
#include <iterator>
#include <thread>

namespace ory {
namespace {

namespace fs = std::filesystem;

struct Library {
  test::ScratchFolder scratch;
  fs::path root = scratch.path() / "Addons";
  std::size_t bytes = 0;
  std::size_t files = 0;

  Library() {
    for (int k = 0; k < 2000; ++k) {
      const std::string content = test::buildBglWithoutAirports(4096 + (k * 2897) % (56 * 1024));
      write(fmt::format("Area{:02}/scenery/object{:04}.bgl", k % 40, k), content);
    }
    for (int k = 0; k < 100; ++k) {
      test::AirportSpec airport;
      airport.code = fmt::format("Z{:03}", k);
      for (std::uint32_t stand = 1; stand <= 40; ++stand)
        airport.parkings.push_back({10, 8, stand, 20.0f, 90.0f, 10.0 + k + stand * 0.001, 20.0});
      write(fmt::format("Area{:02}/scenery/AF2_{}.bgl", k % 40, airport.code), test::buildBgl({airport}));
    }
  }
  void write(const std::string& relative, const std::string& content) {
    test::writeBytes(root / relative, content);
    bytes += content.size();
    ++files;
  }
};

Library& lf_library() {
  static Library library;
  return library;
}

void BM_scanFolder(benchmark::State& state) {
  Library& library = lf_library();
  scanWorkerLimit = static_cast<std::int32_t>(std::max(1u, std::thread::hardware_concurrency()));
  for (auto _ : state) {
    state.PauseTiming(); // as in a real scan, the generated files are made new
    std::error_code error;
    fs::remove_all(myThirdpartyFolder, error);
    clearScanLog();
    state.ResumeTiming();
    benchmark::DoNotOptimize(scanFolder(library.root));
  }
  state.counters["files"] = static_cast<double>(library.files);
  state.counters["MB"] = static_cast<double>(library.bytes) / 1e6;
}
BENCHMARK(BM_scanFolder)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_readEveryByte(benchmark::State& state) {
  Library& library = lf_library();
  for (auto _ : state) {
    std::size_t total = 0;
    for (const fs::directory_entry& entry : fs::recursive_directory_iterator(library.root)) {
      if (!entry.is_regular_file()) continue;
      // One read of the whole file, as the reader itself does it.
      std::ifstream in(entry.path(), std::ios::binary);
      std::string bytes(static_cast<std::size_t>(entry.file_size()), '\0');
      in.read(bytes.data(), static_cast<std::streamsize>(bytes.size()));
      total += static_cast<std::size_t>(in.gcount());
    }
    benchmark::DoNotOptimize(total);
  }
}
BENCHMARK(BM_readEveryByte)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_hasAirportSection(benchmark::State& state) {
  Library& library = lf_library();
  for (auto _ : state) {
    int airports = 0;
    for (const fs::directory_entry& entry : fs::recursive_directory_iterator(library.root))
      airports += entry.is_regular_file() && hasAirportSection(entry.path());
    benchmark::DoNotOptimize(airports);
  }
}
BENCHMARK(BM_hasAirportSection)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_decodeRealAirport(benchmark::State& state) {
  std::ifstream in(test::realData("bgl/LEAB_ADEP5_ARV187.bgl"), std::ios::binary);
  const std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  for (auto _ : state) {
    const BglWords bgl = bglFromBytes(bytes);
    std::string damage;
    for (const AirportRecordRef& airport : findAirportRecords(bgl, damage))
      benchmark::DoNotOptimize(decodeAirportRecord(bgl, airport, "LEAB.bgl"));
  }
}
BENCHMARK(BM_decodeRealAirport)->Unit(benchmark::kMicrosecond);

} // namespace
} // namespace ory

BENCHMARK_MAIN();
