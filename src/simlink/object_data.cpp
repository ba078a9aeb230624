#include "base/log.h"
#include "simlink/batches.h"
#include "simlink/commands.h"
#include "simlink/session.h"

#include <array>
#include <mutex>

namespace ory {

void setSpoilersThrottleData(std::uint32_t objectId, double spoilersPercent, double throttlePercent) {
  const std::array<double, 3> data{spoilersPercent, throttlePercent, throttlePercent};
  std::lock_guard lock(batchLock);
  if (simHandle == nullptr) return;
  if (SimConnect_SetDataOnSimObject(simHandle, definitionIdSpoilersThrottle, objectId, 0, 0, sizeof data,
                                    data.data()) != simOk)
    logLine("SimConnect set spoilers and throttle fails");
}

} // namespace ory
