#include "engine/flight_plans.h"

#include "base/log.h"
#include "base/paths.h"
#include "engine/tables.h"
#include "liveries/text_tokens.h"
#include "simlink/batches.h"
#include "simlink/session.h"

#include <fmt/format.h>

#include <algorithm>
#include <fstream>
#include <mutex>
#include <string>
#include <system_error>

namespace fs = std::filesystem;

namespace ory {

namespace {

fs::path lf_planPath(std::uint32_t objectId) {
  return flightPlanFolder() / fmt::format("{}.pln", objectId);
}

bool lf_instrumentFlight(std::uint32_t category) {
  return category >= 1 && category <= 3;
}

bool lf_heldByLive(const fs::path& file) {
  return std::any_of(liveAircraft.begin(), liveAircraft.end(), [&](const LiveAircraft& aircraft) {
    return aircraft.hasFlightPlan && lf_planPath(aircraft.objectId).filename() == file.filename();
  });
}

} // namespace

fs::path flightPlanFolder() {
  return appDataProgramFolder() / "orig_dest";
}

bool writeFlightPlan(const fs::path& path, const LiveAircraft& aircraft) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  if (!out) return false;
  out << "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
      << "<SimBase.Document Type=\"AceXML\" version=\"4,3\">\"\n"
      << "<FlightPlan.FlightPlan>\n"
      << "<FPType>" << (lf_instrumentFlight(aircraft.category) ? "IFR" : "VFR") << "</FPType>\n"
      << "<DepartureID>" << aircraft.origin << "</DepartureID>\n"
      << "<DestinationID>" << aircraft.destination << "</DestinationID>\n"
      << "</FlightPlan.FlightPlan>\n"
      << "</SimBase.Document>\n";
  out.close();
  return static_cast<bool>(out);
}

void planFor(LiveAircraft& aircraft) {
  aircraft.hasFlightPlan = false;
  if (aircraft.origin.empty() || aircraft.destination.empty()) return;
  if (linkFailed) return; // the restart that ends the link is under way
  const fs::path path = lf_planPath(aircraft.objectId);
  if (writeFlightPlan(path, aircraft)) {
    // SimConnect adds the extension itself.
    const std::string withoutExtension = pathText(fs::path(path).replace_extension());
    std::lock_guard lock(batchLock);
    aircraft.hasFlightPlan =
        SimConnect_AISetAircraftFlightPlan(simHandle, aircraft.objectId, withoutExtension,
                                           requestIdFlightPlan) == simOk;
  }
  if (!aircraft.hasFlightPlan) logLine(describe(aircraft) + " creating a flight plan failed !");
}

void deletePlan(LiveAircraft& aircraft) {
  if (!aircraft.hasFlightPlan) return;
  const fs::path path = lf_planPath(aircraft.objectId);
  if (fs::exists(path)) fs::remove(path);
  aircraft.hasFlightPlan = false;
}

void gf_removeFlightPlanFolder() {
  std::error_code error;
  fs::remove_all(flightPlanFolder(), error);
  if (error) logLine(fmt::format("gf_removeFlightPlanFolder: {}", error.message()));
}

void prepareFlightPlanFolder() {
  gf_removeFlightPlanFolder();
  std::error_code error;
  fs::create_directories(flightPlanFolder(), error);
  if (error) logLine(fmt::format("create_directory {}: {}", pathText(flightPlanFolder()), error.message()));
}

void flightPlanBookkeeping() {
  std::error_code error;
  for (const fs::directory_entry& entry : fs::directory_iterator(flightPlanFolder(), error)) {
    if (entry.path().extension() != ".pln" || lf_heldByLive(entry.path())) continue;
    std::error_code removeError;
    fs::remove(entry.path(), removeError);
    if (removeError) logLine(fmt::format("gf_removeFlightPlanFolder: {}", removeError.message()));
  }
}

} // namespace ory
