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
void detectSimulator(bool v4Present, bool v5Present, bool v6Present);
// "{} second{} since last run" or "{} minute{} and {} second{} since last run"; empty beyond 524,160 minutes.
std::string sinceLastRunText(std::int64_t seconds);

} // namespace ory
