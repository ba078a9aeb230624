#include "parking/park_airports.h"

#include "base/display.h"
#include "base/exceptions.h"
#include "base/log.h"
#include "base/parameters.h"
#include "base/paths.h"
#include "base/run.h"
#include "base/text_files.h"
#include "engine/engine.h"
#include "engine/geometry.h"
#include "engine/tables.h"
#include "feed/feed.h"
#include "liveries/text_tokens.h"
#include "os/durable_file.h"
#include "parking/airport_database.h"
#include "parking/airport_file.h"
#include "parking/stands.h"
#include "parking/static_parking.h"
#include "simlink/user_aircraft.h"

#include <fmt/format.h>

#include <algorithm>
#include <filesystem>
#include <initializer_list>
#include <optional>
#include <vector>

namespace ory {

std::list<ParkAirportEntry> parkAirports;
std::string reservedStand;
std::atomic<bool> calculating{false};
bool openPending = false;
bool softLearningAllowed = false;

namespace {

namespace fs = std::filesystem;

constexpr double standBelowNm = 0.029697624190064796; // 55 metres
constexpr double groundChoiceNm = 5.0;                // the airport under a user on the ground
constexpr double noParkAirportNm = 10000;
constexpr std::size_t manyParkAirports = 3000;
constexpr int wrongSyntaxError = 561;
constexpr int doubleAirportError = 562;

// The answer of standBelowPoint for the last point asked.
struct StandBelow {
  bool known = false;
  double lat = 0; // degrees
  double lon = 0; // degrees
  std::string id;
};
StandBelow lf_below;

// Where the user was when the list was last sorted.
double lf_sortLat = 0; // degrees
double lf_sortLon = 0; // degrees

std::string lf_parkAirportText;               // "EHAM(AMS)", for the log
std::optional<std::int32_t> lf_maxLiveBefore; // MAX_LIVE before a learned file set its own

const char* lf_plural(std::size_t count) {
  return count == 1 ? "" : "s";
}

bool lf_userOnGround() {
  return userOnGroundKnown && userOnGround;
}

bool lf_listed(std::string_view code) {
  return std::any_of(parkAirports.begin(), parkAirports.end(),
                     [&](const ParkAirportEntry& entry) { return entry.code == code; });
}

Stand* lf_findStand(std::string_view id) {
  if (id.empty()) return nullptr;
  const auto found = std::find_if(stands.begin(), stands.end(), [&](const Stand& s) { return s.id == id; });
  return found == stands.end() ? nullptr : &*found;
}

void lf_sortFrom(double lat, double lon) {
  lf_sortLat = lat;
  lf_sortLon = lon;
  for (ParkAirportEntry& entry : parkAirports)
    entry.distance = distanceNm(lat, lon, entry.lat, entry.lon);
  // A stable merge sort: equally far airports keep the order of the file.
  parkAirports.sort(
      [](const ParkAirportEntry& a, const ParkAirportEntry& b) { return a.distance < b.distance; });
}

void lf_sortIfMoved(const UserAircraft& user, bool force) {
  if (force || user.lat != lf_sortLat || user.lon != lf_sortLon) lf_sortFrom(user.lat, user.lon);
}

// One line of the file. False for a line to mend; a wrong syntax or a doubled airport throws.
bool lf_readEntry(const std::string& line, std::string_view file) {
  if (trimBlanks(line).empty()) return true;
  const std::vector<std::string_view> fields = splitFields(line, ',');
  if (fields.size() >= 3)
    throw SysErrorException(wrongSyntaxError, fmt::format("{}:{} wrong syntax, skipped", file, line));
  const std::string code(trimBlanks(fields[0]));
  const AirportRecord* airport = findAirport(code);
  if (airport == nullptr) {
    logLine(fmt::format("airport {} is unknown", code));
    return false;
  }
  if (lf_listed(code))
    throw SysErrorException(doubleAirportError, fmt::format("{}:{} double, skipped", file, line));
  const std::string stand(fields.size() == 2 ? trimBlanks(fields[1]) : std::string_view());
  bool okay = true;
  if (!stand.empty() && !gf_readApfForGateCheck(code, stand)) {
    logLine(fmt::format("{} stand {} is unknown", code, stand));
    okay = false;
  }
  parkAirports.push_back({code, stand, airport->lat, airport->lon, 0});
  return okay;
}

bool lf_readFile() {
  const std::string file = pathText(myParkAirportsFile);
  std::error_code error;
  if (!fs::exists(myParkAirportsFile, error)) {
    logLine(file + " not found");
    return true;
  }
  std::vector<std::string> lines;
  if (!gf_readExtTextFileToStringVector(myParkAirportsFile, lines)) return false;
  bool okay = true;
  try {
    for (const std::string& line : lines)
      okay = lf_readEntry(line, file) && okay;
  } catch (const SysErrorException& e) {
    // The lines before stand; the user mends the file and presses "Re-read".
    showMessage(e.what(), true);
    okay = false;
  }
  if (parkAirports.empty()) return okay;
  logLine(fmt::format("{} park airport{} read from \"{}\"", parkAirports.size(),
                      lf_plural(parkAirports.size()), file));
  if (parkAirports.size() > manyParkAirports)
    logLine(
        fmt::format("Warning: There are a lot of airports ({}) in {}, that will cost Trovalyn much cpu time, "
                    "and may give stutters",
                    parkAirports.size(), file));
  return okay;
}

void lf_addAddonAirports() {
  std::size_t added = 0;
  std::error_code error;
  for (fs::directory_iterator it(myThirdpartyFolder, error), end; !error && it != end; it.increment(error)) {
    std::error_code kind;
    if (!it->is_regular_file(kind)) continue;
    const std::string code = it->path().stem().string();
    if (lf_listed(code)) continue;
    const AirportRecord* airport = findAirport(code);
    if (airport == nullptr) continue;
    parkAirports.push_back({code, {}, airport->lat, airport->lon, 0});
    ++added;
  }
  if (added > 0)
    logLine(fmt::format("{} park airport{} added from \"{}\"", added, lf_plural(added),
                        pathText(myThirdpartyFolder)));
}

// The controls that must not change while static parked aircraft are chosen and created.
void lf_enableParkingControls(bool enable) {
  for (const Control* control : std::initializer_list<const Control*>{
           &INITIAL_LOAD_ONLY, &PARK_FAKE, &PARK_SOFT, &CUSTOM_PARKING_PERCENTAGE, &WEEK, &reReadButton})
    enableControl(*control, enable);
  enableControl(flushStaticButton, enable && parkingSessionOpen);
  std::error_code error;
  // Without a learned file the percentage is fixed at 30.
  enableControl(parking_percentage, enable && !learnedFilePath.empty() && fs::exists(learnedFilePath, error));
}

// The feed tells which callsigns are in the air until the calculation takes them over.
void lf_openCollectingWindow() {
  beginCalculating();
  {
    std::lock_guard lock(trafficReader.callsignLock);
    trafficReader.feedCallsigns.clear();
  }
  trafficReader.collectingCallsigns = true;
}

void lf_showParking() {
  {
    std::lock_guard lock(windowTextLock);
    display.standText =
        parkAirportCode.empty()
            ? std::string()
            : fmt::format("{} {}{}", lf_parkAirportText, parkAirportName,
                          reservedStand.empty() ? "" : fmt::format("   reserved stand: {}", reservedStand));
    display.qualityText = parkAirportCode.empty() ? std::string() : formatQualityFactors(qualityFactors);
  }
  display.standCount = static_cast<std::int32_t>(stands.size());
  display.updateCount = updateCount;
  repaintWindow();
}

void lf_setParkAirport(const AirportRecord& airport) {
  parkAirportCode = airport.code;
  parkAirportLat = airport.lat;
  parkAirportLon = airport.lon;
  parkAltitude = airport.altitude;
  lf_parkAirportText = airportText(airport);
  logLine(fmt::format("The park airport is {}", lf_parkAirportText));
  setReaderParkAirport(airport.lat, airport.lon, airport.altitude);
  lf_showParking();
}

void lf_chooseFromTheAir(const UserAircraft& user) {
  if (parkAirports.empty()) return;
  const ParkAirportEntry& first = parkAirports.front();
  if (first.distance > AIRPORT_RANGE.value || user.aboveGround > AIRPORT_HEIGHT.value) return;
  const AirportRecord* airport = findAirport(first.code);
  if (airport == nullptr) return;
  lf_setParkAirport(*airport);
  logLine(fmt::format("{} in sight at {:.1F} nm", lf_parkAirportText, first.distance));
  openPending = true;
  lf_openCollectingWindow();
}

void lf_chooseOnTheGround(const UserAircraft& user) {
  const AirportRecord* nearest = nullptr;
  double nearestNm = 100;
  for (const AirportRecord& airport : airports) {
    const double distance = distanceNm(user.lat, user.lon, airport.lat, airport.lon);
    if (distance < nearestNm) {
      nearestNm = distance;
      nearest = &airport;
    }
  }
  if (nearest == nullptr || nearestNm > groundChoiceNm) {
    logLine("User aircraft on the ground, no airport in sight");
    return;
  }
  if (!airportHasFile(nearest->code)) {
    logLine(fmt::format("User aircraft on the ground at {}, no airport file found", airportText(*nearest)));
    return;
  }
  logLine(fmt::format("User aircraft on the ground at {}", airportText(*nearest)));
  lf_setParkAirport(*nearest);
  openPending = true;
  lf_openCollectingWindow();
  showMessage("Calculating static parked aircraft ...", false);
}

// From the air only: on the ground the user keeps the park airport, however far he taxies.
void lf_checkInSight(const UserAircraft& user) {
  const double distance = distanceNm(user.lat, user.lon, parkAirportLat, parkAirportLon);
  if (distance > AIRPORT_RANGE.value || user.aboveGround > AIRPORT_HEIGHT.value) {
    logLine(fmt::format("\n{} {} is out of sight ({:.1F} nm), parked aircraft will be removed", timeOfDay(),
                        lf_parkAirportText, distance));
    flushStatics();
    return;
  }
  if (parkAirports.empty()) return;
  const ParkAirportEntry& first = parkAirports.front();
  if (first.code == parkAirportCode || first.distance > AIRPORT_RANGE.value || first.distance > distance)
    return;
  logLine(fmt::format("\n{} {} is in sight ({:.1F} nm), parked aircraft at {} will be removed first",
                      timeOfDay(), first.code, first.distance, parkAirportCode));
  flushStatics();
}

void lf_openChosen() {
  flushLog();
  openPending = false;
  std::string failure;
  try {
    failure = openParkAirport();
  } catch (const UserErrorException& e) {
    // A doubled stand id or a missing altitude: the user mends the file.
    showError(e.what());
    failure = e.what();
  }
  if (failure.empty()) {
    startStaticParking();
    return;
  }
  logLine(failure);
  resetParkAirport();
}

void lf_allowSoftLearning() {
  if (qualityFactors.real < 45 || stands.size() < 20) {
    softLearningAllowed = true;
    enableControl(LEARN_SOFT, true);
    return;
  }
  softLearningAllowed = false;
  if (LEARN_SOFT.value) {
    LEARN_SOFT.value = false;
    showBool(LEARN_SOFT);
    parameterChanged = true;
  }
  enableControl(LEARN_SOFT, false);
}

// A user on the ground at the park airport has it first in his list, with the stand he sits on.
void lf_noteUserStand() {
  if (!lf_userOnGround()) return;
  const UserAircraft user = readUserAircraft();
  const std::string below = standBelowPoint(user.lat, user.lon);
  if (parkAirports.empty() || parkAirports.front().code != parkAirportCode) {
    std::erase_if(parkAirports, [](const ParkAirportEntry& entry) { return entry.code == parkAirportCode; });
    parkAirports.push_front({parkAirportCode, below, parkAirportLat, parkAirportLon, 0});
    updateParkAirports();
    return;
  }
  if (below.empty() || below == parkAirports.front().stand) return;
  parkAirports.front().stand = below;
  updateParkAirports();
}

std::string lf_firstField(std::string_view line) {
  return std::string(trimBlanks(line.substr(0, line.find(','))));
}

std::string lf_entryLine(const ParkAirportEntry& entry) {
  return fmt::format("{},{}", entry.code, entry.stand);
}

// Beside the file first, so that a failure never leaves half a list.
bool lf_writeLines(const std::vector<std::string>& lines) {
  std::string text;
  for (const std::string& line : lines)
    text += text.empty() ? line : "\n" + line;
  fs::path beside = myParkAirportsFile;
  beside += ".saving";
  if (writeText(text, beside) && replaceFileDurably(beside, myParkAirportsFile)) return true;
  logLine(fmt::format("{} could not be written", pathText(myParkAirportsFile)));
  return false;
}

bool lf_standsOn(const ParkedAircraft& aircraft, std::uint32_t standId) {
  return aircraft.state == Alive && aircraft.standId == standId;
}

void lf_removeStaticOn(std::uint32_t standId) {
  const auto parked = std::find_if(parkedAircraft.begin(), parkedAircraft.end(),
                                   [&](const ParkedAircraft& a) { return lf_standsOn(a, standId); });
  if (parked != parkedAircraft.end()) requestRemove(*parked);
}

void lf_removeLiveOn(std::uint32_t standId) {
  const auto live = std::find_if(liveAircraft.begin(), liveAircraft.end(), [&](const LiveAircraft& a) {
    return a.phase == Parked && lf_standsOn(a, standId);
  });
  if (live != liveAircraft.end()) requestRemove(*live);
}

// Gone from the simulator at once if it exists, else as soon as it does.
void lf_removeParked(ParkedAircraft& aircraft) {
  if (aircraft.state == Alive)
    requestRemove(aircraft);
  else if (aircraft.state == Creating)
    aircraft.removeOnCreated = true;
}

void lf_restoreMaxLive() {
  if (!lf_maxLiveBefore) return;
  MAX_LIVE.value = *lf_maxLiveBefore;
  lf_maxLiveBefore.reset();
  if (MAX_LIVE.value == MAX_LIVE.defaultValue)
    clearEdit(MAX_LIVE);
  else
    showInt(MAX_LIVE);
  enforceMaxLive();
}

} // namespace

bool readParkAirports() {
  parkAirports.clear();
  const bool okay = lf_readFile();
  lf_addAddonAirports();
  // Always sorted: a list read anew has no distances yet.
  const UserAircraft user = readUserAircraft();
  lf_sortFrom(user.lat, user.lon);
  return okay;
}

void updateParkAirports() {
  if (parkAirports.empty()) return;
  const ParkAirportEntry& first = parkAirports.front();
  const std::string file = pathText(myParkAirportsFile);
  std::error_code error;
  if (!fs::exists(myParkAirportsFile, error)) {
    const std::string line = first.stand.empty() ? first.code : lf_entryLine(first);
    if (lf_writeLines({line})) logLine(fmt::format("{} created with {}", file, line));
    return;
  }
  std::vector<std::string> lines;
  if (!gf_readExtTextFileToStringVector(myParkAirportsFile, lines)) return;
  const std::string line = lf_entryLine(first);
  const auto same = std::find_if(lines.begin(), lines.end(),
                                 [&](const std::string& l) { return lf_firstField(l) == first.code; });
  if (same != lines.end()) {
    *same = line;
    logLine(fmt::format("{}:{},{} updated stand", file, first.code, first.stand));
  } else {
    lines.insert(lines.begin(), line);
    logLine(fmt::format("{}:{} new entry", file, line));
  }
  std::stable_sort(lines.begin(), lines.end());
  lf_writeLines(lines);
}

void checkParkAirport(bool first) {
  if (calculating && creationQueue.empty() && !staticParkingRunning()) {
    endCalculating();
    flushLog();
    refreshFitAverages();
  }
  if (openPending) {
    lf_openChosen();
    return;
  }
  const UserAircraft user = readUserAircraft();
  if (isNullPosition(user.lat, user.lon)) return;
  lf_sortIfMoved(user, first);
  if (!parkAirportCode.empty()) {
    if (!lf_userOnGround()) lf_checkInSight(user);
    return;
  }
  if (lf_userOnGround())
    lf_chooseOnTheGround(user);
  else
    lf_chooseFromTheAir(user);
}

std::string openParkAirport() {
  stands.clear();
  lf_below = {};
  const fs::path path = findAirportFile(parkAirportCode);
  if (path.empty()) return fmt::format("{} not found", parkAirportCode);
  if (!lf_maxLiveBefore) lf_maxLiveBefore = MAX_LIVE.value.load();
  const std::string failure = gf_readApf(path, parkAirportName, stands, qualityFactors);
  if (!failure.empty()) return failure;
  lf_allowSoftLearning();
  lf_noteUserStand();
  stands.shrink_to_fit();
  reservedStand.clear();
  if (!parkAirports.empty() && parkAirports.front().code == parkAirportCode &&
      lf_findStand(parkAirports.front().stand) != nullptr)
    reservedStand = parkAirports.front().stand;
  updateCount = 0;
  lf_showParking();
  return {};
}

std::string standBelowPoint(double lat, double lon) {
  if (stands.empty() || !lf_userOnGround()) return {};
  if (lf_below.known && lf_below.lat == lat && lf_below.lon == lon) return lf_below.id;
  const Stand* nearest = nullptr;
  double nearestNm = standBelowNm;
  for (const Stand& stand : stands) {
    const double distance = distanceNm(lat, lon, stand.lat, stand.lon);
    if (distance < nearestNm) {
      nearestNm = distance;
      nearest = &stand;
    }
  }
  lf_below = {true, lat, lon, nearest == nullptr ? std::string() : nearest->id};
  return lf_below.id;
}

void markReserved() {
  if (Stand* stand = lf_findStand(reservedStand)) stand->reserved = true;
  const UserAircraft user = readUserAircraft();
  if (Stand* below = lf_findStand(standBelowPoint(user.lat, user.lon))) below->reserved = true;
}

std::string checkReservedStand(bool report) {
  const bool okay = readParkAirports();
  std::string text;
  const UserAircraft user = readUserAircraft();
  if (report && !calculating && !parkAirports.empty() && parkAirports.front().code == parkAirportCode &&
      !standBelowPoint(user.lat, user.lon).empty()) {
    const std::string& wanted = parkAirports.front().stand;
    Stand* next = lf_findStand(wanted);
    if (next != nullptr && wanted != reservedStand) {
      text = fmt::format("reserved stand changed from \"{}\" to \"{}\"", reservedStand, wanted);
      if (Stand* old = lf_findStand(reservedStand)) old->reserved = false;
      reservedStand = wanted;
      lf_removeStaticOn(next->standId);
      next->reserved = true;
      lf_showParking();
    }
  }
  if (!text.empty()) return text;
  if (!okay) return fmt::format("{} has errors, see Log.txt", pathText(myParkAirportsFile));
  return "park airports and stands are okay";
}

void flushStatics() {
  resetStaticParking();
  for (ParkedAircraft& aircraft : parkedAircraft)
    lf_removeParked(aircraft);
  for (LiveAircraft& aircraft : liveAircraft) {
    if (aircraft.phase == Parked) lf_removeParked(aircraft);
    // The stands are about to go: an id would point into the next airport's.
    aircraft.standId = 0;
    aircraft.standLat = 0;
    aircraft.standLon = 0;
    aircraft.standHeading = 0;
    aircraft.onCargoStand = false;
  }
  resetParkAirport();
  lf_restoreMaxLive();
}

void resetParkAirport() {
  closeParkAirport();
  resetStaticParking();
  resetStands();
  parkAirportCode.clear();
  parkAirportLat = 0;
  parkAirportLon = 0;
  lf_parkAirportText.clear();
  reservedStand.clear();
  openPending = false;
  lf_below = {};
  clearReaderParkAirport();
  lf_showParking();
}

void beginCalculating() {
  calculating = true;
  lf_enableParkingControls(false);
}

void endCalculating() {
  calculating = false;
  lf_enableParkingControls(true);
}

void clearReservedStand() {
  const Stand* stand = lf_findStand(reservedStand);
  if (stand == nullptr) return;
  lf_removeStaticOn(stand->standId);
  lf_removeLiveOn(stand->standId);
}

void serveReRead() {
  if (!reReadPending || calculating) return;
  showMessage(checkReservedStand(true), true);
  enableControl(reReadButton, true);
  reReadPending = false;
}

double firstParkAirportDistance(double lat, double lon) {
  if (parkAirports.empty()) return noParkAirportNm;
  const ParkAirportEntry& first = parkAirports.front();
  return distanceNm(lat, lon, first.lat, first.lon);
}

void forgetParkAirports() {
  parkAirports.clear();
  parkAirportCode.clear();
  parkAirportLat = 0;
  parkAirportLon = 0;
  lf_parkAirportText.clear();
  reservedStand.clear();
  calculating = false;
  openPending = false;
  softLearningAllowed = false;
  lf_below = {};
  lf_sortLat = 0;
  lf_sortLon = 0;
  lf_maxLiveBefore.reset();
  clearReaderParkAirport();
  resetStaticParking();
}

} // namespace ory
