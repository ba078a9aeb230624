#include "simlink/user_aircraft.h"

#include "base/display.h"
#include "base/exceptions.h"
#include "base/log.h"
#include "base/parameters.h"
#include "base/run.h"
#include "engine/geometry.h"
#include "feed/qnh_reader.h"
#include "feed/traffic_link.h"
#include "liveries/dbase.h"
#include "os/utf.h"
#include "simlink/batches.h"
#include "simlink/session.h"
#include "simlink/simconnect/wire.h"

#include <fmt/format.h>

#include <array>
#include <cmath>
#include <mutex>
#include <stdexcept>
#include <utility>
#include <vector>

namespace ory {

std::atomic<std::uint32_t> userObjectId{0};
std::atomic<bool> userOnGround{false};
std::atomic<bool> userOnGroundKnown{false};

namespace {

constexpr double teleportNm = 10;
constexpr std::size_t titleShown = 48; // characters of the title in the window
// An add-on's "ATC MODEL" that names its texture: the type stands before the mark.
constexpr std::string_view textureMark = ".0.text";
// Titles that tell the type of an add-on whose "ATC MODEL" doesn't.
constexpr std::array<std::pair<std::string_view, std::string_view>, 3> titleModels = {{
    {"Aerosoft A319", "A319"},
    {"Aerosoft A320", "A320"},
    {"Aerosoft A321", "A321"},
}};

std::mutex lf_userLock; // guards the block, the texts and the span; held for a copy
UserAircraft lf_user;
std::string lf_title;
std::string lf_model;
std::optional<double> lf_halfWingSpan; // nautical miles
std::uint32_t lf_category = 0;
UserAircraft lf_engineUser; // the main loop's thread alone
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

// The half span the type table gives a type; 0 counts as unknown.
std::optional<double> lf_tableHalfSpan(std::string_view model) {
  const auto it = wingspanTable.find(model);
  if (it == wingspanTable.end() || it->second == 0) return std::nullopt;
  return it->second;
}

// "xB738.0.text": of the characters before the mark, the last 4 when the table knows that type, else the
// last 3, else the last 2. Fewer than 4 before the mark is out of range.
std::string lf_modelBeforeMark(const std::string& text) {
  const std::size_t mark = text.find(textureMark);
  if (mark == std::string::npos) return text;
  if (mark < 4)
    throw std::out_of_range(
        fmt::format("ATC MODEL \"{}\": fewer than 4 characters before \"{}\"", text, textureMark));
  for (const std::size_t length : {4, 3}) {
    std::string model = text.substr(mark - length, length);
    if (lf_tableHalfSpan(model)) return model;
  }
  return text.substr(mark - 2, 2);
}

std::string_view lf_modelOfTitle(std::string_view title) {
  for (const auto& [text, model] : titleModels)
    if (title.find(text) != std::string_view::npos) return model;
  return {};
}

struct UserShape {
  std::string model;
  double halfWingSpan = 0; // nautical miles
};

// The half span of a type, else of the type its title tells, else the largest of the table.
UserShape lf_userShape(std::string model, std::string_view title) {
  // A user without a real aircraft.
  if (model == "camerapod" || model == "Crew Vessel") return {std::move(model), 0};
  std::optional<double> half = lf_tableHalfSpan(model);
  if (const std::string_view fromTitle = lf_modelOfTitle(title); !half && !fromTitle.empty()) {
    model = fromTitle;
    logLine(fmt::format("SimConnect: User aircraft model deduced from title: {}", model));
    half = lf_tableHalfSpan(model);
  }
  if (!half) {
    logLine("User aircraft wing span unknown, max is taken instead, please report in my Forum!");
    half = maxHalfWingspan;
  }
  return {std::move(model), *half};
}

// The simulator's UTC time for RealTraffic, from a known date.
void lf_takeSimTime(const UserAircraft& user) {
  if (!rtProfessional || user.zuluYear < 1970 || user.zuluDayOfYear < 1 || user.zuluDayOfYear > 366) return;
  simEpochSeconds = simEpochSecondsOf(static_cast<std::int32_t>(user.zuluYear),
                                      static_cast<std::int32_t>(user.zuluDayOfYear), user.zuluTime);
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

std::optional<double> userHalfWingSpan() {
  std::lock_guard lock(lf_userLock);
  return lf_halfWingSpan;
}

std::uint32_t userCategory() {
  std::lock_guard lock(lf_userLock);
  return lf_category;
}

const UserAircraft& engineUser() {
  return lf_engineUser;
}

void userSecondWork() {
  requestUserPosition();
  sendUserPosition(userPosition());
  lf_engineUser = readUserAircraft();
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
  if (linkFailed) return; // the restart that ends the link is under way
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
  display.simSubText = utf8Prefix(title, titleShown);
}

void onUserModel(const SIMCONNECT_RECV_SIMOBJECT_DATA* data) {
  const ByteReader block = lf_block(data);
  if (block.size == 0)
    throw UserErrorException(73, "It looks like you have not selected an aircraft as user vehicle");
  const std::string text = block.utf8Text(0, 32);
  if (text.empty())
    throw UserErrorException(71, "atc_model= in [General] section of your aircraft.cfg is empty or missing");
  const std::string model = lf_modelBeforeMark(text);
  UserShape shape = lf_userShape(model, userTitle());
  const auto category = static_cast<std::uint32_t>(modelCategory(shape.model));
  logLine(fmt::format("SimConnect: User aircraft model: {}, half wing span: {:.1F} meter, category: {}",
                      model, shape.halfWingSpan * metresPerNm, category));
  std::lock_guard lock(lf_userLock);
  lf_model = std::move(shape.model);
  lf_halfWingSpan = shape.halfWingSpan;
  lf_category = category;
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
  lf_takeSimTime(user);
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
  dropSimulatorBatches();
  qnhForEngine = standardQnh;
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
