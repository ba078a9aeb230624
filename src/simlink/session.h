#pragma once
// The SimConnect session on the simulator thread: it opens the connection, declares every client event, data
// definition and subscription once, then alternates between SimConnect_CallDispatch and a sleep of 1 ms. All
// writes to simulator objects leave here at "Frame" events, from the batches (batches.h); everything about
// aircraft that comes back goes to the engine as a SimCommand.

#include "simlink/frame_clock.h"
#include "simlink/simconnect/simconnect.h"

#include <atomic>
#include <cstdint>
#include <stop_token>
#include <string>
#include <string_view>
#include <vector>

namespace ory {

// Request ids.
inline constexpr std::uint32_t requestIdInRange = 101;    // by type: every aircraft within the range, def 404
inline constexpr std::uint32_t requestIdStaticData = 102; // def 405 of one object, once
inline constexpr std::uint32_t requestIdRelease = 103;    // AIReleaseControl
inline constexpr std::uint32_t requestIdCreate = 104;     // AICreateNonATCAircraft
inline constexpr std::uint32_t requestIdRemove = 105;     // AIRemoveObject
inline constexpr std::uint32_t requestIdUserTitle = 106;  // def 407
inline constexpr std::uint32_t requestIdUserModel = 107;  // def 408
inline constexpr std::uint32_t requestIdUserOnGround = 108; // def 409, every second
inline constexpr std::uint32_t requestIdUserPosition = 109; // def 403
inline constexpr std::uint32_t requestIdFlightPlan = 110;   // AISetAircraftFlightPlan

// System events.
inline constexpr std::uint32_t eventIdSim = 201;
inline constexpr std::uint32_t eventIdObjectAdded = 202;
inline constexpr std::uint32_t eventIdObjectRemoved = 203;
inline constexpr std::uint32_t eventIdFrame = 204;
inline constexpr std::uint32_t eventIdPositionChanged = 205;
inline constexpr std::uint32_t eventIdFlightLoaded = 206;

// Client events, mapped to the simulator's events of the same name.
inline constexpr std::uint32_t eventIdBeaconLights = 207;    // "BEACON_LIGHTS_SET"
inline constexpr std::uint32_t eventIdNavLights = 208;       // "NAV_LIGHTS_SET"
inline constexpr std::uint32_t eventIdTaxiLights = 209;      // "TAXI_LIGHTS_SET"
inline constexpr std::uint32_t eventIdStrobes = 210;         // "STROBES_SET"
inline constexpr std::uint32_t eventIdLandingLights = 211;   // "LANDING_LIGHTS_SET"
inline constexpr std::uint32_t eventIdCabinLights = 212;     // "CABIN_LIGHTS_SET"
inline constexpr std::uint32_t eventIdLogoLights = 213;      // "LOGO_LIGHTS_SET"
inline constexpr std::uint32_t eventIdAllLightsToggle = 214; // "ALL_LIGHTS_TOGGLE"
inline constexpr std::uint32_t eventIdFreezeLatLon = 215;    // "FREEZE_LATITUDE_LONGITUDE_SET"
inline constexpr std::uint32_t eventIdFreezeAltitude = 216;  // "FREEZE_ALTITUDE_SET"
inline constexpr std::uint32_t eventIdFreezeAttitude = 217;  // "FREEZE_ATTITUDE_SET"
inline constexpr std::uint32_t eventIdFlaps = 218;           // "FLAPS_SET"
inline constexpr std::uint32_t eventIdSpoilers = 219;        // "SPOILERS_SET"
inline constexpr std::uint32_t eventIdGear = 220;            // "GEAR_SET"
inline constexpr std::uint32_t eventIdEngineStart =
    221; // "ENGINE_AUTO_START", mapped but kept out of the group
inline constexpr std::uint32_t eventIdEngineStop = 222; // "ENGINE_AUTO_SHUTDOWN"
inline constexpr std::uint32_t eventIdThrottle = 223;   // "THROTTLE_SET"

inline constexpr std::uint32_t groupIdAi = 301; // notification group of the client events, priority 1

// Data definitions.
inline constexpr std::uint32_t definitionIdSpoilersThrottle = 401; // spoilers and both throttles, percent
inline constexpr std::uint32_t definitionIdPosition = 402;         // ObjectPosition's eight f64
inline constexpr std::uint32_t definitionIdUser = 403;             // UserAircraft
inline constexpr std::uint32_t definitionIdInRange =
    404;                                                 // above ground, ground altitude, on ground, "ATC ID"
inline constexpr std::uint32_t definitionIdStatic = 405; // static CG to ground (feet), static pitch (radians)
inline constexpr std::uint32_t definitionIdLights = 406; // "Light On States"
inline constexpr std::uint32_t definitionIdUserTitle = 407;    // "TITLE"
inline constexpr std::uint32_t definitionIdUserModel = 408;    // "ATC MODEL"
inline constexpr std::uint32_t definitionIdUserOnGround = 409; // "SIM ON GROUND"

// A create sent and not yet seen: the tail number comes back as "ATC ID" with the object's first in-range
// data.
struct PendingCreate {
  std::uint32_t packetId = 0; // the create's send id, named by an exception 22
  std::uint32_t hexid = 0;
  std::string callsign;
};

extern std::atomic<bool> linkFailed;                 // three failed requests: nothing is sent any more
extern std::atomic<float> frameRate;                 // frames per second, read every 30th frame; 0 at first
extern std::atomic<std::int32_t> requestErrors;      // failed SimConnect requests of this run
extern std::atomic<std::int32_t> detectedSimVersion; // 5 or 6, the Prepar3D the start-up found
extern std::vector<std::uint32_t>
    addedObjectIds; // "ObjectAdded" aircraft not yet identified (simulator thread)
extern std::vector<PendingCreate> pendingCreates; // simulator thread

// The open connection, or null. Set and cleared by the simulator thread under the batch lock; other threads
// use it only under the batch lock.
extern SimConnectHandle simHandle;

void simThread(std::stop_token stop);
void declareSimObjects();
// Ends the session on the simulator's side and, unless the program already stops, stops it.
void closeSession();
// Counts a failed request; the third ends the link and restarts the program after 10 seconds.
void reportRequestError();
// RequestDataOnSimObject under the batch lock; a failure logs failure and counts in reportRequestError.
void requestObjectData(std::uint32_t request, std::uint32_t definition, std::uint32_t objectId,
                       SIMCONNECT_PERIOD period, std::string_view failure);
// At each "Frame": positions, events, creates and removes, unless the batch lock is busy. The positions are
// moved along their last tick's motion to the frame's time, at most a tenth of a second.
void sendBatches(SteadyTime frame);
// The dispatch function given to SimConnect_CallDispatch.
void simDispatch(const SIMCONNECT_RECV* data, std::uint32_t size, void* context);
// The state of the link back to that of a fresh start.
void resetSimLink();

// 5 or 6 from the install path text ("v5", "V5", "v6", "V6"), else P3D_VERSION; throws 77.
std::int32_t simulatorVersion(std::string_view installPath);

} // namespace ory
