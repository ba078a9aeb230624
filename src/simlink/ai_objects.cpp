#include "simlink/ai_objects.h"

#include "base/log.h"
#include "simlink/session.h"
#include "simlink/user_aircraft.h"

#include <fmt/format.h>

namespace ory {

void createObject(const CreateRequest& request) {
  const SIMCONNECT_DATA_INITPOSITION init{
      request.lat,  request.lon,     request.altitude,           request.pitch,
      request.bank, request.heading, request.onGround ? 1u : 0u, 0};
  if (SimConnect_AICreateNonATCAircraft(simHandle, request.liveryTitle, request.callsign, init,
                                        requestIdCreate) != simOk) {
    logLine(fmt::format("! Simcon call to create ac in sim failed, hexid:{}, liv: \"{}\", callsign: {}",
                        request.hexid, request.liveryTitle, request.callsign));
    reportRequestError();
    return;
  }
  std::uint32_t packetId = 0;
  if (SimConnect_GetLastSentPacketID(simHandle, &packetId) != simOk) logLine("GetLastSentPacketID");
  pendingCreates.push_back({packetId, request.hexid, request.callsign});
}

void removeObject(std::uint32_t objectId) {
  if (objectId <= userObjectId) {
    logLine(fmt::format("{}!Simconnect call to remove AI ac with objectId {}", timeOfDay(), objectId));
    return;
  }
  if (SimConnect_AIRemoveObject(simHandle, objectId, requestIdRemove) != simOk) {
    logLine(fmt::format("{}!Simconnect call to remove AI ac from sim failed, id {}?", timeOfDay(), objectId));
    reportRequestError();
  }
}

void freezeObject(std::uint32_t objectId) {
  std::lock_guard lock(batchLock);
  SimConnect_AIReleaseControl(simHandle, objectId, requestIdRelease);
  for (const std::uint32_t freeze : {eventIdFreezeLatLon, eventIdFreezeAltitude, eventIdFreezeAttitude})
    eventBatch.push_back({objectId, freeze, 1});
}

} // namespace ory
