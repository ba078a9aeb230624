// libFuzzer entry for the aircraft.cfg reader: any bytes, as a file beside the folders its sections may name,
// give liveries or report lines, never more.

#include "liveries/aircraft_cfg.h"
#include "liveries/dbase.h"
#include "liveries/fixes.h"

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <string>

namespace {

namespace fs = std::filesystem;

fs::path lf_file;

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  const fs::path folder = fs::temp_directory_path() / "trovalyn-aircraft-cfg-fuzz";
  for (const char* made : {"model", "texture", "model.a", "texture.a"})
    fs::create_directories(folder / made);
  std::ofstream(folder / "aircraft.air") << "AIR";
  std::ofstream(folder / "a.air") << "AIR";
  lf_file = folder / "aircraft.cfg";
  ory::aircraftTypes = {"B738", "A320", "C172"};
  ory::icaoAirlines = {"KLM", "DAL"};
  ory::modelFixes = {{"B737-800", "B738"}};
  ory::pvtFixes = {"PRIV"};
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* DATA, std::size_t SIZE) {
  std::ofstream(lf_file, std::ios::binary | std::ios::trunc)
      .write(reinterpret_cast<const char*>(DATA), static_cast<std::streamsize>(SIZE));
  ory::prepareScan();
  ory::lf_searchLiveriesinFile(1, lf_file);
  ory::lf_searchIvaoLiveriesinFile(1, lf_file);
  return 0;
}
