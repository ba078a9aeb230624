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
// "{} second{} since last run" or "{} minute{} and {} second{} since last run"; empty beyond 524,160 minutes.
std::string sinceLastRunText(std::int64_t SECONDS);

} // namespace ory
