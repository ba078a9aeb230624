#include "simlink/ai_objects.h"

#include "base/log.h"
#include "simlink/session.h"
#include "simlink/user_aircraft.h"

#include <fmt/format.h>

namespace ory {

void createObject(const CreateRequest& REQUEST) {
  const SIMCONNECT_DATA_INITPOSITION init{
      REQUEST.lat,  REQUEST.lon,     REQUEST.altitude,           REQUEST.pitch,
      REQUEST.bank, REQUEST.heading, REQUEST.onGround ? 1u : 0u, 0};
  if (SimConnect_AICreateNonATCAircraft(simHandle, REQUEST.liveryTitle, REQUEST.callsign, init,
                                        requestIdCreate) != simOk) {
    logLine(fmt::format("! Simcon call to create ac in sim failed, hexid:{}, liv: \"{}\", callsign: {}",
                        REQUEST.hexid, REQUEST.liveryTitle, REQUEST.callsign));
    reportRequestError();
    return;
  }
  std::uint32_t packetId = 0;
  if (SimConnect_GetLastSentPacketID(simHandle, &packetId) != simOk) logLine("GetLastSentPacketID");
  pendingCreates.push_back({packetId, REQUEST.hexid, REQUEST.callsign});
}

void removeObject(std::uint32_t OBJECT_ID) {
  if (OBJECT_ID <= userObjectId) {
    logLine(fmt::format("{}!Simconnect call to remove AI ac with objectId {}", timeOfDay(), OBJECT_ID));
    return;
  }
  if (SimConnect_AIRemoveObject(simHandle, OBJECT_ID, requestIdRemove) != simOk) {
    logLine(
        fmt::format("{}!Simconnect call to remove AI ac from sim failed, id {}?", timeOfDay(), OBJECT_ID));
    reportRequestError();
  }
}

void freezeObject(std::uint32_t OBJECT_ID) {
  std::lock_guard lock(batchLock);
  SimConnect_AIReleaseControl(simHandle, OBJECT_ID, requestIdRelease);
  for (const std::uint32_t freeze : {eventIdFreezeLatLon, eventIdFreezeAltitude, eventIdFreezeAttitude})
    eventBatch.push_back({OBJECT_ID, freeze, 1});
}

} // namespace ory
