#include "simlink/user_aircraft.h"

#include "base/display.h"
#include "base/exceptions.h"
#include "base/log.h"
#include "base/parameters.h"
#include "base/run.h"
#include "engine/geometry.h"
#include "simlink/batches.h"
#include "simlink/session.h"
#include "simlink/simconnect/wire.h"

#include <fmt/format.h>

#include <cmath>
#include <mutex>
#include <vector>

namespace ory {

std::atomic<std::uint32_t> userObjectId{0};
std::atomic<bool> userOnGround{false};
std::atomic<bool> userOnGroundKnown{false};

namespace {

constexpr double teleportNm = 10;
constexpr std::size_t titleShown = 48; // characters of the title in the window

std::mutex lf_userLock; // guards the block and the texts; held for a copy
UserAircraft lf_user;
std::string lf_title;
std::string lf_model;
bool lf_lastKnown = false;
double lf_lastLat = 0;
double lf_lastLon = 0;
std::vector<void (*)()> lf_resets;

void lf_request(std::uint32_t request, std::uint32_t definition, SIMCONNECT_PERIOD period,
                std::string_view failure) {
  requestObjectData(request, definition, SIMCONNECT_OBJECT_ID_USER, period, failure);
}

ByteReader lf_block(const SIMCONNECT_RECV_SIMOBJECT_DATA* data) {
  return {simObjectData(data), simObjectDataSize(data)};
}

} // namespace

UserAircraft readUserAircraft() {
  std::lock_guard lock(lf_userLock);
  return lf_user;
}

void writeUserAircraft(const UserAircraft& user) {
  std::lock_guard lock(lf_userLock);
  lf_user = user;
}

std::string userTitle() {
  std::lock_guard lock(lf_userLock);
  return lf_title;
}

std::string userModel() {
  std::lock_guard lock(lf_userLock);
  return lf_model;
}

void requestUserOnGround() {
  lf_request(requestIdUserOnGround, definitionIdUserOnGround, SIMCONNECT_PERIOD_SECOND,
             "SimConnect request ac gnd/air fails");
}

void requestUserPosition() {
  lf_request(requestIdUserPosition, definitionIdUser, SIMCONNECT_PERIOD_ONCE,
             "SimConnect request user ac position fails");
}

void requestUserIdentity() {
  lf_request(requestIdUserTitle, definitionIdUserTitle, SIMCONNECT_PERIOD_ONCE,
             "SimConnect request user ac title fails");
  lf_request(requestIdUserModel, definitionIdUserModel, SIMCONNECT_PERIOD_ONCE,
             "SimConnect reques user ac model fails");
}

void requestRange(std::uint32_t radiusMetres) {
  SimResult result = simFail;
  {
    std::lock_guard lock(batchLock);
    result = SimConnect_RequestDataOnSimObjectType(simHandle, requestIdInRange, definitionIdInRange,
                                                   radiusMetres, SIMCONNECT_SIMOBJECT_TYPE_AIRCRAFT);
  }
  if (result == simOk) return;
  logLine("SimConnect request ac within range fails");
  reportRequestError();
}

void onUserTitle(const SIMCONNECT_RECV_SIMOBJECT_DATA* data) {
  const ByteReader block = lf_block(data);
  const std::string title = block.utf8Text(0, block.size);
  {
    std::lock_guard lock(lf_userLock);
    if (title == lf_title) return;
    lf_title = title;
  }
  if (title.empty()) {
    logLine("! title of your ac is empty?");
    return;
  }
  logLine(fmt::format("SimConnect: User aircraft title: {}", title));
  std::lock_guard lock(windowTextLock);
  display.simSubText = title.substr(0, titleShown);
}

void onUserModel(const SIMCONNECT_RECV_SIMOBJECT_DATA* data) {
  const ByteReader block = lf_block(data);
  if (block.size == 0)
    throw UserErrorException(73, "It looks like you have not selected an aircraft as user vehicle");
  const std::string model = block.utf8Text(0, 32);
  if (model.empty())
    throw UserErrorException(71, "atc_model= in [General] section of your aircraft.cfg is empty or missing");
  {
    std::lock_guard lock(lf_userLock);
    lf_model = model;
  }
  logLine(fmt::format("SimConnect: User aircraft model: {}", model));
}

void onUserOnGround(const SIMCONNECT_RECV_SIMOBJECT_DATA* data) {
  const ByteReader block = lf_block(data);
  const UserAircraft user = readUserAircraft();
  if (block.has(0, 8) && !isNullPosition(user.lat, user.lon)) {
    userOnGround = block.i64(0) != 0;
    userOnGroundKnown = true;
  }
  secondTick = true; // the user's data pace the slow beat of the main loop
}

void onUserPosition(const SIMCONNECT_RECV_SIMOBJECT_DATA* data) {
  const ByteReader block = lf_block(data);
  if (!block.has(0, 96)) {
    logLine(fmt::format("! SimConnect data of request {} has {} bytes, 96 expected", data->dwRequestID,
                        block.size));
    return;
  }
  UserAircraft user;
  double* doubles[] = {&user.lat,     &user.lon,      &user.pitch,       &user.bank,
                       &user.heading, &user.altitude, &user.aboveGround, &user.groundSpeed};
  for (std::size_t i = 0; i < 8; ++i)
    *doubles[i] = block.f64(8 * i);
  std::int64_t* integers[] = {&user.zuluTime, &user.zuluDayOfYear, &user.zuluYear, &user.lightStates};
  for (std::size_t i = 0; i < 4; ++i)
    *integers[i] = block.i64(64 + 8 * i);
  user.altitude = std::max(0.0, user.altitude);
  if (!isNullPosition(user.lat, user.lon)) {
    if (lf_lastKnown && distanceNm(lf_lastLat, lf_lastLon, user.lat, user.lon) > teleportNm) {
      logLine("Teleport");
      requestExit(ExitReason::restart, 30);
    }
    lf_lastKnown = true;
    lf_lastLat = user.lat;
    lf_lastLon = user.lon;
  }
  writeUserAircraft(user);
  userObjectId = data->dwObjectID;
}

void userStateReset() {
  {
    std::lock_guard lock(lf_userLock);
    lf_user = {};
    lf_lastKnown = false;
  }
  userOnGroundKnown = false;
  addedObjectIds.clear();
  pendingCreates.clear();
  LATERAL_RANGE.set(LATERAL_RANGE.value);
  setRange(LATERAL_RANGE.value);
  detectedSimVersion = simulatorVersion(SIM_INSTALL_PATH.value);
  for (void (*reset)() : lf_resets)
    reset();
}

void onUserStateReset(void (*reset)()) {
  lf_resets.push_back(reset);
}

} // namespace ory
