#pragma once
// The start-up sequence on its own thread: data tree, parameters, data checks, detection of the simulator,
// scans; then startRun, which waits for the simulator and RealTraffic and starts the run's threads.

#include <cstdint>
#include <string>
#include <string_view>

namespace ory {

void launchStartUp(); // starts lf_startUpTrovalyn on a detached thread
void startRun();

// The simulator's install path from the registry, when SIM_INSTALL_PATH is empty; throws 153 or 151.
void detectSimulator(bool V4_PRESENT, bool V5_PRESENT, bool V6_PRESENT);
// 5 or 6 from the install path text ("v5", "V5", "v6", "V6"), else P3D_VERSION; throws 77.
std::int32_t simulatorVersion(std::string_view INSTALL_PATH);
// True for a position that means none yet: latitude 0 to 0.0009 and longitude 0 to 0.05, bounds included.
bool isNullPosition(double LATITUDE, double LONGITUDE);
// "{} second{} since last run" or "{} minute{} and {} second{} since last run"; empty beyond 524,160 minutes.
std::string sinceLastRunText(std::int64_t SECONDS);

} // namespace ory
