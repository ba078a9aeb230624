#include "simlink/session.h"

#include "base/display.h"
#include "base/exceptions.h"
#include "base/log.h"
#include "base/parameters.h"
#include "base/run.h"
#include "base/version.h"
#include "engine/geometry.h"
#include "os/timer.h"
#include "simlink/ai_objects.h"
#include "simlink/batches.h"
#include "simlink/simconnect/wire.h"
#include "simlink/user_aircraft.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <span>
#include <string_view>
#include <thread>
#include <utility>

namespace ory {

std::atomic<bool> linkFailed{false};
std::atomic<float> frameRate{0.0f};
std::atomic<std::int32_t> requestErrors{0};
std::atomic<std::int32_t> detectedSimVersion{5};
std::vector<std::uint32_t> addedObjectIds;
std::vector<PendingCreate> pendingCreates;
SimConnectHandle simHandle = nullptr;

namespace {

using namespace std::chrono_literals;

struct Datum {
  std::string_view name;
  std::string_view unit;
  SIMCONNECT_DATATYPE type;
};

struct Definition {
  std::uint32_t id;
  std::span<const Datum> datums;
};

constexpr auto f64 = SIMCONNECT_DATATYPE_FLOAT64;
constexpr auto i64 = SIMCONNECT_DATATYPE_INT64;

constexpr std::array<Datum, 3> spoilersThrottleDatums = {{
    {"SPOILERS HANDLE POSITION", "percent", f64},
    {"GENERAL ENG THROTTLE LEVER POSITION:1", "percent", f64},
    {"GENERAL ENG THROTTLE LEVER POSITION:2", "percent", f64},
}};
constexpr std::array<Datum, 8> positionDatums = {{
    {"Plane Latitude", "degree", f64},
    {"Plane Longitude", "degree", f64},
    {"Plane Pitch degrees", "radians", f64},
    {"Plane Bank degrees", "radians", f64},
    {"Plane Heading degrees true", "radians", f64},
    {"Plane Altitude", "feet", f64},
    {"Vertical Speed", "feet per second", f64},
    {"Airspeed True", "knots", f64},
}};
constexpr std::array<Datum, 12> userDatums = {{
    {"Plane Latitude", "degree", f64},
    {"Plane Longitude", "degree", f64},
    {"Plane Pitch degrees", "radians", f64},
    {"Plane Bank degrees", "radians", f64},
    {"Plane Heading degrees true", "radians", f64},
    {"Plane Altitude", "feet", f64},
    {"Plane Alt Above Ground", "feet", f64},
    {"Ground Velocity", "knots", f64},
    {"ZULU TIME", "Seconds", i64},
    {"ZULU DAY OF YEAR", "Number", i64},
    {"ZULU YEAR", "Number", i64},
    {"LIGHT STATES", "Mask", i64},
}};
constexpr std::array<Datum, 4> inRangeDatums = {{
    {"Plane Alt Above Ground", "feet", f64},
    {"Ground Altitude", "feet", f64},
    {"SIM ON GROUND", "Bool", i64},
    {"ATC ID", "", SIMCONNECT_DATATYPE_STRING32},
}};
constexpr std::array<Datum, 2> staticDatums = {{
    {"Static CG to Ground", "feet", f64},
    {"Static Pitch", "radians", f64},
}};
constexpr std::array<Datum, 1> lightsDatums = {{{"Light On States", "Mask", i64}}};
constexpr std::array<Datum, 1> userTitleDatums = {{{"TITLE", "", SIMCONNECT_DATATYPE_STRINGV}}};
constexpr std::array<Datum, 1> userModelDatums = {{{"ATC MODEL", "", SIMCONNECT_DATATYPE_STRING32}}};
constexpr std::array<Datum, 1> userOnGroundDatums = {{{"SIM ON GROUND", "Bool", i64}}};

constexpr std::array<Definition, 9> definitions = {{
    {definitionIdSpoilersThrottle, spoilersThrottleDatums},
    {definitionIdPosition, positionDatums},
    {definitionIdUser, userDatums},
    {definitionIdInRange, inRangeDatums},
    {definitionIdStatic, staticDatums},
    {definitionIdLights, lightsDatums},
    {definitionIdUserTitle, userTitleDatums},
    {definitionIdUserModel, userModelDatums},
    {definitionIdUserOnGround, userOnGroundDatums},
}};

struct SystemEvent {
  std::uint32_t id;
  std::string_view name;
};
constexpr std::array<SystemEvent, 6> systemEvents = {{
    {eventIdSim, "Sim"},
    {eventIdObjectAdded, "ObjectAdded"},
    {eventIdObjectRemoved, "ObjectRemoved"},
    {eventIdPositionChanged, "PositionChanged"},
    {eventIdFlightLoaded, "FlightLoaded"},
    {eventIdFrame, "Frame"},
}};

constexpr std::array<SystemEvent, 17> clientEvents = {{
    {eventIdBeaconLights, "BEACON_LIGHTS_SET"},
    {eventIdNavLights, "NAV_LIGHTS_SET"},
    {eventIdTaxiLights, "TAXI_LIGHTS_SET"},
    {eventIdStrobes, "STROBES_SET"},
    {eventIdLandingLights, "LANDING_LIGHTS_SET"},
    {eventIdCabinLights, "CABIN_LIGHTS_SET"},
    {eventIdLogoLights, "LOGO_LIGHTS_SET"},
    {eventIdAllLightsToggle, "ALL_LIGHTS_TOGGLE"},
    {eventIdFreezeLatLon, "FREEZE_LATITUDE_LONGITUDE_SET"},
    {eventIdFreezeAltitude, "FREEZE_ALTITUDE_SET"},
    {eventIdFreezeAttitude, "FREEZE_ATTITUDE_SET"},
    {eventIdFlaps, "FLAPS_SET"},
    {eventIdSpoilers, "SPOILERS_SET"},
    {eventIdGear, "GEAR_SET"},
    {eventIdEngineStart, "ENGINE_AUTO_START"},
    {eventIdEngineStop, "ENGINE_AUTO_SHUTDOWN"},
    {eventIdThrottle, "THROTTLE_SET"},
}};

// The group's members in the order they are added; the engine start stays outside.
constexpr std::array<std::uint32_t, 16> groupMembers = {
    eventIdNavLights, eventIdBeaconLights, eventIdLandingLights,  eventIdTaxiLights,
    eventIdStrobes,   eventIdLogoLights,   eventIdCabinLights,    eventIdAllLightsToggle,
    eventIdFlaps,     eventIdSpoilers,     eventIdGear,           eventIdEngineStop,
    eventIdThrottle,  eventIdFreezeLatLon, eventIdFreezeAltitude, eventIdFreezeAttitude};

constexpr std::array<std::uint32_t, 9> clearOrder = {
    definitionIdUserTitle, definitionIdUserModel, definitionIdUserOnGround,
    definitionIdPosition,  definitionIdUser,      definitionIdSpoilersThrottle,
    definitionIdInRange,   definitionIdStatic,    definitionIdLights};

constexpr double maxAboveGroundInRange = 2500; // feet; higher aircraft need no touch-down or altitude fix

std::uint32_t lf_frameCount = 0;
FrameClock lf_frameClock;
SteadyTime lf_lastLook{}; // when the dispatch before this one began to read
SteadyTime lf_thisLook{};
// Farther than this from the frame's time, a tick's motion is no guide.
constexpr double maxShiftSeconds = 0.1;
bool lf_quitReceived = false;

bool lf_stopWanted(const std::stop_token& stop) {
  return stop.stop_requested() || exiting || userClosed;
}

void lf_sleepUnlessStopped(const std::stop_token& stop, std::chrono::milliseconds time) {
  for (auto left = time; left.count() > 0 && !lf_stopWanted(stop); left -= 100ms)
    std::this_thread::sleep_for(std::min<std::chrono::milliseconds>(left, 100ms));
}

void lf_setHandle(SimConnectHandle handle) {
  std::lock_guard lock(batchLock);
  simHandle = handle;
}

// ------------------------------------------------------------------------------------------------------------
// The open record

// Letters, digits and blanks of the application name: "Lockheed Martin® Prepar3D® v5" gives
// "Lockheed Martin Prepar3D v5".
std::string lf_simulatorName(const SIMCONNECT_RECV_OPEN& open) {
  std::string name;
  for (std::size_t i = 0; i < sizeof(open.szApplicationName) && open.szApplicationName[i] != '\0'; ++i) {
    const char c = open.szApplicationName[i];
    if ((c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == ' ') name += c;
  }
  return name;
}

void lf_checkVersion(const SIMCONNECT_RECV_OPEN& open) {
  const std::string name = lf_simulatorName(open);
  if (name.empty()) logLine("! Simulator name empty?");
  if (name == "KittyHawk")
    throw UserErrorException(78, fmt::format("{}, (MSFS 2020?) not being P3D connects ... ?", name));
  const std::string text =
      fmt::format("{} ({}.{}.{}.{})", name, open.dwApplicationVersionMajor, open.dwApplicationVersionMinor,
                  open.dwApplicationBuildMajor, open.dwApplicationBuildMinor);
  logLine(fmt::format("{} connected ", text));
  {
    std::lock_guard lock(windowTextLock);
    display.simText = text;
  }
  display.simConnected = true;
  repaintWindow();
  const std::int32_t detected = detectedSimVersion;
  const bool v5 = name.find("v5") != std::string::npos && detected == 5;
  const bool v6 = name.find("v6") != std::string::npos && detected == 6;
  if (v5 || v6) return;
  enableControl(P3D_VERSION, true);
  throw UserErrorException(78, fmt::format("wrong P3D version \"{}\" connects ... ?", name));
}

// ------------------------------------------------------------------------------------------------------------
// Exceptions

void lf_onCreateFailed(std::uint32_t sendId) {
  for (auto it = pendingCreates.begin(); it != pendingCreates.end(); ++it) {
    if (it->packetId != sendId) continue;
    const std::uint32_t hexid = it->hexid;
    pendingCreates.erase(it);
    pushSimCommand({0, hexid, 0, commandNotCreated, 0, 0});
    return;
  }
}

void lf_onException(const SIMCONNECT_RECV_EXCEPTION& exception) {
  switch (exception.dwException) {
  case SIMCONNECT_EXCEPTION_UNRECOGNIZED_ID: {
    const UserAircraft user = readUserAircraft();
    if (!isNullPosition(user.lat, user.lon)) logLine("SIMCONNECT_EXCEPTION_UNRECOGNIZED_ID");
    return;
  }
  case SIMCONNECT_EXCEPTION_VERSION_MISMATCH:
    throw UserErrorException(95, fmt::format("Simconnect Version Mismatch, dwindex: {} ", exception.dwIndex));
  case SIMCONNECT_EXCEPTION_TOO_MANY_OBJECTS:
    logLine("SimConnect: too many objects (max 1000)");
    return;
  case SIMCONNECT_EXCEPTION_INVALID_DATA_SIZE:
    logLine("SIMCON EXCEP 19");
    return;
  case SIMCONNECT_EXCEPTION_CREATE_OBJECT_FAILED:
    lf_onCreateFailed(exception.dwSendID);
    return;
  case SIMCONNECT_EXCEPTION_LOAD_FLIGHTPLAN_FAILED:
    logLine("Simconnect Exception: load flight plan failed");
    return;
  case SIMCONNECT_EXCEPTION_OPERATION_INVALID_FOR_OBJECT_TYPE:
    logLine("SIMCON EXCEP 24");
    return;
  default:
    logLine(fmt::format("SIMCON EXCEP {}", exception.dwException));
    return;
  }
}

// ------------------------------------------------------------------------------------------------------------
// Events

void lf_scheduleRestart(std::string_view text) {
  logLine(text);
  requestExit(ExitReason::restart, 30);
}

void lf_onEvent(const SIMCONNECT_RECV_EVENT& event) {
  switch (event.uEventID) {
  case eventIdSim:
    simRunning = event.dwData == 1;
    repaintWindow();
    return;
  case eventIdPositionChanged:
    lf_scheduleRestart("User ac position changed");
    return;
  case eventIdFlightLoaded:
    logLine("Flight loaded");
    userStateReset();
    requestExit(ExitReason::restart, 30);
    return;
  default:
    return;
  }
}

void lf_onAddRemove(const SIMCONNECT_RECV_EVENT_OBJECT_ADDREMOVE& event) {
  if (event.eObjType != SIMCONNECT_SIMOBJECT_TYPE_AIRCRAFT) return;
  if (event.uEventID == eventIdObjectAdded && event.dwData > userObjectId) {
    addedObjectIds.push_back(event.dwData);
    // Until it is known and frozen, the simulator's own AI moves the new object: its "ATC ID" is asked for
    // now rather than at the next round of the range.
    requestObjectData(requestIdInRange, definitionIdInRange, event.dwData, SIMCONNECT_PERIOD_ONCE,
                      "SimConnect request of a new object's data fails");
  } else if (event.uEventID == eventIdObjectRemoved)
    pushSimCommand({event.dwData, 0, 0, commandRemoved, 0, 0});
}

void lf_onFileName() {
  logLine("New file loaded");
  userStateReset();
  requestExit(ExitReason::restart, 30);
}

void lf_onFrame(const SIMCONNECT_RECV_EVENT_FRAME& frame) {
  sendBatches(frameTime(lf_frameClock, lf_lastLook, std::chrono::steady_clock::now()));
  if (++lf_frameCount % 30 == 0) frameRate = frame.fFrameRate;
}

// ------------------------------------------------------------------------------------------------------------
// Object data

bool lf_dataLongEnough(const SIMCONNECT_RECV_SIMOBJECT_DATA& data, std::uint32_t bytes) {
  if (simObjectDataSize(&data) >= bytes) return true;
  logLine(fmt::format("! SimConnect data of request {} has {} bytes, {} expected", data.dwRequestID,
                      simObjectDataSize(&data), bytes));
  return false;
}

void lf_onStaticData(const SIMCONNECT_RECV_SIMOBJECT_DATA& data) {
  if (!lf_dataLongEnough(data, 16)) return;
  const ByteReader block{simObjectData(&data), simObjectDataSize(&data)};
  pushSimCommand({data.dwObjectID, 0, 0, commandGeometry, block.f64(0), block.f64(8)});
}

// A new object is ours when its "ATC ID" is the tail number of a create we sent; the first match counts.
void lf_identifyNewObject(std::uint32_t objectId, const std::string& atcId, double aboveGround) {
  for (auto it = pendingCreates.begin(); it != pendingCreates.end(); ++it) {
    if (it->callsign != atcId) continue;
    const std::uint32_t hexid = it->hexid;
    pendingCreates.erase(it);
    freezeObject(objectId);
    if (hexid <= 10000)
      pushSimCommand({objectId, hexid, 0, commandParkedAdded, 0, 0});
    else
      pushSimCommand({objectId, hexid, 0, commandLiveAdded, 0, aboveGround});
    return;
  }
  logLine(fmt::format("just created, but not by {}, oid: {}, callsign \"{}\" unknown", "Trovalyn", objectId,
                      atcId));
}

void lf_onInRange(const SIMCONNECT_RECV_SIMOBJECT_DATA& data) {
  if (data.dwRequestID != requestIdInRange || data.dwObjectID <= userObjectId) return;
  if (!lf_dataLongEnough(data, 56)) return;
  const ByteReader block{simObjectData(&data), simObjectDataSize(&data)};
  const double aboveGround = block.f64(0);
  const double groundAltitude = block.f64(8);
  const auto onGround = static_cast<std::uint32_t>(block.i64(16) != 0);
  const std::string atcId = block.utf8Text(24, 32);
  const auto added = std::find(addedObjectIds.begin(), addedObjectIds.end(), data.dwObjectID);
  if (added != addedObjectIds.end()) {
    addedObjectIds.erase(added);
    lf_identifyNewObject(data.dwObjectID, atcId, aboveGround);
    return;
  }
  if (aboveGround > maxAboveGroundInRange || (!atcId.empty() && atcId.back() == '*')) return;
  pushSimCommand({data.dwObjectID, onGround, 0, commandInRange, groundAltitude, aboveGround});
}

void lf_onObjectData(const SIMCONNECT_RECV_SIMOBJECT_DATA& data) {
  switch (data.dwRequestID) {
  case requestIdInRange: // a new object, asked for alone
    lf_onInRange(data);
    return;
  case requestIdStaticData:
    lf_onStaticData(data);
    return;
  case requestIdUserTitle:
    onUserTitle(&data);
    return;
  case requestIdUserModel:
    onUserModel(&data);
    return;
  case requestIdUserOnGround:
    onUserOnGround(&data);
    return;
  case requestIdUserPosition:
    onUserPosition(&data);
    return;
  default:
    return;
  }
}

// ------------------------------------------------------------------------------------------------------------
// The session

void lf_endSession() {
  SimConnectHandle handle = simHandle;
  lf_setHandle(nullptr);
  display.simConnected = false;
  repaintWindow();
  for (const std::uint32_t definition : clearOrder)
    SimConnect_ClearDataDefinition(handle, definition);
  for (std::uint32_t event = eventIdSim; event <= eventIdFlightLoaded; ++event)
    SimConnect_UnsubscribeFromSystemEvent(handle, event);
  if (SimConnect_Close(handle) != simOk) logLine("SimConnect close failed!");
}

void lf_announceWaiting() {
  showMessage(fmt::format("Waiting for Prepar3Dv{} ...", detectedSimVersion.load()), true);
  repaintWindow();
}

void lf_dispatchLoop(const std::stop_token& stop) {
  const TimerPeriod millisecondSleeps;
  while (!stop.stop_requested()) {
    lf_lastLook = std::exchange(lf_thisLook, std::chrono::steady_clock::now());
    SimConnect_CallDispatch(simHandle, simDispatch, nullptr);
    if (lf_quitReceived) return;
    std::this_thread::sleep_for(1ms);
  }
}

// One connected session: false when it ended by the simulator or an error, and the program stops.
bool lf_runSession(const std::stop_token& stop) {
  lf_quitReceived = false;
  lf_frameCount = 0;
  lf_frameClock = {};
  declareSimObjects();
  try {
    lf_dispatchLoop(stop);
    if (!lf_quitReceived) return true;
  } catch (const UserErrorException& e) {
    showError(e.what());
    if (std::string_view(e.what()).starts_with("791")) std::this_thread::sleep_for(1s);
  } catch (const std::exception& e) {
    showError(fmt::format("Exception in {}", e.what()));
  }
  simRunning = false;
  closeSession();
  return false;
}

} // namespace

void declareSimObjects() {
  for (const SystemEvent& event : systemEvents)
    SimConnect_SubscribeToSystemEvent(simHandle, event.id, event.name);
  for (const Definition& definition : definitions)
    for (const Datum& datum : definition.datums)
      SimConnect_AddToDataDefinition(simHandle, definition.id, datum.name, datum.unit, datum.type);
  for (const SystemEvent& event : clientEvents)
    SimConnect_MapClientEventToSimEvent(simHandle, event.id, event.name);
  for (const std::uint32_t member : groupMembers)
    SimConnect_AddClientEventToNotificationGroup(simHandle, groupIdAi, member, true);
  SimConnect_SetNotificationGroupPriority(simHandle, groupIdAi, SIMCONNECT_GROUP_PRIORITY_HIGHEST);
}

void closeSession() {
  lf_endSession();
  if (exiting) return;
  logLine(fmt::format("{} Flight Simulator no longer connected, {} will stop ...", timeOfDay(), programName));
  requestExit(ExitReason::simWasClosed, 0);
}

void reportRequestError() {
  const std::int32_t count = ++requestErrors;
  if (count < 3) return;
  showMessage(fmt::format("SimConnect request error {}, see Log.txt", count), true);
  linkFailed = true;
  requestExit(ExitReason::restart, 10);
}

void requestObjectData(std::uint32_t request, std::uint32_t definition, std::uint32_t objectId,
                       SIMCONNECT_PERIOD period, std::string_view failure) {
  if (linkFailed) return; // the restart that ends the link is under way
  SimResult result = simFail;
  {
    std::lock_guard lock(batchLock);
    result = SimConnect_RequestDataOnSimObject(simHandle, request, definition, objectId, period);
  }
  if (result == simOk) return;
  logLine(failure);
  reportRequestError();
}

void sendBatches(SteadyTime frame) {
  std::unique_lock lock(batchLock, std::try_to_lock);
  if (!lock.owns_lock()) return;
  if (linkFailed) {
    positionBatch.simulatorHalf.clear();
    eventBatch.clear();
    createBatch.clear();
    removeBatch.clear();
    controlsBatch.clear();
    return;
  }
  const std::uint32_t user = userObjectId;
  const double seconds =
      std::clamp(std::chrono::duration<double>(frame - positionBatch.simulatorTime).count(), -maxShiftSeconds,
                 maxShiftSeconds);
  for (ObjectPosition& position : positionBatch.simulatorHalf) {
    if (position.objectId <= user) continue;
    position.lat += position.latRate * seconds;
    position.lon += position.lonRate * seconds;
    SimConnect_SetDataOnSimObject(simHandle, definitionIdPosition, position.objectId, 0, 0, 64, &position);
  }
  positionBatch.simulatorHalf.clear();
  for (const ObjectEvent& event : eventBatch) {
    // The simulator hands an object back to its AI on a flaps event; it is released around it.
    const bool flaps = event.eventId == eventIdFlaps;
    if (flaps) SimConnect_AIReleaseControl(simHandle, event.objectId, requestIdRelease);
    if (SimConnect_TransmitClientEvent(simHandle, event.objectId, event.eventId, event.data, groupIdAi, 0) !=
        simOk)
      logLine(fmt::format("SimConnect TransmitClientEvent: {} fails", event.eventId));
    else if (flaps)
      SimConnect_AIReleaseControl(simHandle, event.objectId, requestIdRelease);
  }
  eventBatch.clear();
  for (const ModelControls& controls : controlsBatch) {
    const std::array<double, 3> data{controls.spoilers, controls.throttle, controls.throttle};
    if (SimConnect_SetDataOnSimObject(simHandle, definitionIdSpoilersThrottle, controls.objectId, 0, 0,
                                      sizeof data, data.data()) != simOk)
      logLine("SimConnect set spoilers and throttle fails");
  }
  controlsBatch.clear();
  for (const CreateRequest& request : createBatch)
    createObject(request);
  createBatch.clear();
  for (const std::uint32_t objectId : removeBatch)
    removeObject(objectId);
  removeBatch.clear();
}

void simDispatch(const SIMCONNECT_RECV* data, std::uint32_t, void*) {
  if (!data) return;
  switch (data->dwID) {
  case SIMCONNECT_RECV_ID_NULL:
    return;
  case SIMCONNECT_RECV_ID_EXCEPTION:
    lf_onException(*static_cast<const SIMCONNECT_RECV_EXCEPTION*>(data));
    return;
  case SIMCONNECT_RECV_ID_OPEN:
    lf_checkVersion(*static_cast<const SIMCONNECT_RECV_OPEN*>(data));
    return;
  case SIMCONNECT_RECV_ID_QUIT:
    simRunning = false;
    lf_quitReceived = true;
    return;
  case SIMCONNECT_RECV_ID_EVENT:
    lf_onEvent(*static_cast<const SIMCONNECT_RECV_EVENT*>(data));
    return;
  case SIMCONNECT_RECV_ID_EVENT_OBJECT_ADDREMOVE:
    lf_onAddRemove(*static_cast<const SIMCONNECT_RECV_EVENT_OBJECT_ADDREMOVE*>(data));
    return;
  case SIMCONNECT_RECV_ID_EVENT_FILENAME:
    lf_onFileName();
    return;
  case SIMCONNECT_RECV_ID_EVENT_FRAME:
    lf_onFrame(*static_cast<const SIMCONNECT_RECV_EVENT_FRAME*>(data));
    return;
  case SIMCONNECT_RECV_ID_SIMOBJECT_DATA:
    lf_onObjectData(*static_cast<const SIMCONNECT_RECV_SIMOBJECT_DATA*>(data));
    return;
  case SIMCONNECT_RECV_ID_SIMOBJECT_DATA_BYTYPE:
    lf_onInRange(*static_cast<const SIMCONNECT_RECV_SIMOBJECT_DATA*>(data));
    return;
  case SIMCONNECT_RECV_ID_ASSIGNED_OBJECT_ID:
  case SIMCONNECT_RECV_ID_CLIENT_DATA:
    return;
  default:
    logLine(fmt::format("! Unknown Dispatch dwID {}", data->dwID));
    return;
  }
}

void simThread(std::stop_token stop) {
  try {
    lf_announceWaiting();
    while (!lf_stopWanted(stop)) {
      SimConnectHandle handle = nullptr;
      if (SimConnect_Open(&handle, programName, nullptr, 0, nullptr, 0) != simOk) {
        lf_sleepUnlessStopped(stop, 1000ms);
        continue;
      }
      lf_setHandle(handle);
      if (lf_runSession(stop)) {
        lf_endSession();
        continue;
      }
      // Closed: the program stops, and this thread waits for its stop.
      while (!lf_stopWanted(stop))
        std::this_thread::sleep_for(100ms);
    }
    userStateReset();
  } catch (...) {
    reportException("simThread");
  }
}

void resetSimLink() {
  linkFailed = false;
  requestErrors = 0;
  addedObjectIds.clear();
  pendingCreates.clear();
  lf_frameCount = 0;
  resetBatches();
}

std::int32_t simulatorVersion(std::string_view installPath) {
  if (installPath.find("v5") != std::string_view::npos || installPath.find("V5") != std::string_view::npos)
    return 5;
  if (installPath.find("v6") != std::string_view::npos || installPath.find("V6") != std::string_view::npos)
    return 6;
  if (P3D_VERSION.value >= 5) return P3D_VERSION.value;
  throw UserErrorException(
      77, fmt::format("P3D install path does not contain v5 or v6? Use hidden parameter {}, set it at 5 or 6",
                      P3D_VERSION.name));
}

} // namespace ory
