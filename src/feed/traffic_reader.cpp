#include "feed/traffic_reader.h"

#include "base/display.h"
#include "base/exceptions.h"
#include "base/log.h"
#include "base/parameters.h"
#include "base/run.h"
#include "engine/geometry.h"
#include "feed/inbox.h"
#include "feed/traffic_line.h"

#include <fmt/format.h>

#include <charconv>
#include <cmath>

namespace ory {

namespace {

constexpr std::uint32_t highestStaticHexid = 10000; // made-up ids of the static parked aircraft
constexpr std::int32_t feedLagTicks = 3000;         // live aircraft play 30 seconds behind the feed

bool lf_isNull(std::string_view text) {
  return text == "null";
}

// A feed's "no value" form to empty.
std::string_view lf_orEmpty(std::string_view text) {
  return lf_isNull(text) ? std::string_view() : text;
}

// Locale-free; a leading minus, "inf" and "nan" are numbers, an empty field is not.
double lf_number(std::string_view field, int failure, std::string_view text) {
  double value = 0;
  const auto [end, error] = std::from_chars(field.data(), field.data() + field.size(), value);
  if (error != std::errc()) throw SysErrorException(failure, fmt::format(fmt::runtime(text), field));
  return value;
}

// For the values that reach the engine's geometry, where an infinity or a nan would spread.
double lf_finiteNumber(std::string_view field, int failure, std::string_view text) {
  const double value = lf_number(field, failure, text);
  if (!std::isfinite(value)) throw SysErrorException(failure, fmt::format(fmt::runtime(text), field));
  return value;
}

// Digits up to the first non-digit; none at the start, or above 4,294,967,295, is a failure.
std::uint32_t lf_wholeNumber(std::string_view field, int failure, std::string_view text) {
  std::uint32_t value = 0;
  const auto [end, error] = std::from_chars(field.data(), field.data() + field.size(), value);
  if (error != std::errc()) throw SysErrorException(failure, fmt::format(fmt::runtime(text), field));
  return value;
}

bool lf_nullPosition(double lat, double lon) {
  return lat >= 0 && lat <= 0.0009 && lon >= 0 && lon <= 0.05;
}

// ADS-B emitter categories B1 glider, B2 lighter than air, B4 ultralight, C1 emergency and C2 service
// vehicle.
bool lf_refusedCategory(std::string_view category) {
  return category == "B1" || category == "B2" || category == "B4" || category == "C1" || category == "C2";
}

bool lf_refusedType(std::string_view type) {
  if (type.size() > 4) return true;
  for (std::string_view refused : {"GRND", "GLID", "SERV", "BALL", "PARA", "SHIP"})
    if (type == refused) return true;
  return false;
}

LineResult lf_refused() {
  return {LineOutcome::refused, 0};
}

} // namespace

void splitFields(std::string_view line, std::vector<std::string_view>& fields) {
  fields.clear();
  std::size_t start = 0;
  for (std::size_t comma = line.find(','); comma != std::string_view::npos; comma = line.find(',', start)) {
    fields.push_back(line.substr(start, comma - start));
    start = comma + 1;
  }
  if (start < line.size()) fields.push_back(line.substr(start));
}

bool isOnGround(double altitudeFt, double groundSpeedKt, double elevationFt) {
  if (altitudeFt <= 0) return true;
  if (altitudeFt < 14000) {
    const double above = altitudeFt - elevationFt;
    const double height = std::abs(above);
    if (above <= 0) return true;
    if (height <= 45 && groundSpeedKt <= 120) return true;
    if (height <= 90 && groundSpeedKt <= 80) return true;
    if (height <= 120 && groundSpeedKt <= 43) return true;
  }
  return groundSpeedKt <= 35;
}

double tasFromAltitude(double altitudeFt) {
  if (altitudeFt <= 2000) return 180;
  if (altitudeFt <= 5000) return 220;
  if (altitudeFt <= 10000) return 250;
  if (altitudeFt <= 20000) return 350;
  return 430;
}

void TrafficReader::processData() {
  if (line.find(" VEH") != std::string_view::npos) return;
  splitFields(line, fields);
  processLine();
}

void TrafficReader::onConnected() {
  display.trafficMark = FeedMark::running;
  display.weatherMark = FeedMark::running;
  repaintWindow();
}

void TrafficReader::onStopped() {
  display.trafficMark = FeedMark::notConnected;
  logLine("Traffic Reader has stopped");
}

LineResult TrafficReader::processLine() {
  try {
    record = TrafficRecord();
    lastFeedTime.store(0, std::memory_order_relaxed);
    if (fields.size() < fieldsOfALine) return lf_refused();
    PositionSlot& slot = record.slot;

    record.timestamp = lf_finiteNumber(fields[timestampField], 741, "timestamp:{}");
    if (record.timestamp > millisecondsFrom) record.timestamp /= 1000;
    lastFeedTime.store(record.timestamp, std::memory_order_relaxed);

    const std::string_view registration = fields[registrationField];
    if (registration.size() < 13 && !lf_isNull(registration)) record.regcode = registration;
    if (record.regcode.empty() && fields[sourceField] == "F") return lf_refused();

    slot.lat = lf_number(fields[latField], 742, "lat:{}");
    slot.lon = lf_number(fields[lonField], 743, "lon:{}");
    // Written so that nan fails too.
    if (!(slot.lat >= -90 && slot.lat <= 90 && slot.lon >= -180 && slot.lon <= 180) ||
        lf_nullPosition(slot.lat, slot.lon))
      throw SysErrorException(744, fmt::format("lalo:{},{}", fields[latField], fields[lonField]));

    const double range = rangeNm.load(std::memory_order_relaxed);
    if (distanceNm(userLat.load(std::memory_order_relaxed), userLon.load(std::memory_order_relaxed), slot.lat,
                   slot.lon) > range)
      return lf_refused();

    if (collectingCallsigns.load(std::memory_order_relaxed)) {
      const std::string_view heard = fields[callsignField];
      if (!heard.empty() && !lf_isNull(heard) && heard.find('@') == std::string_view::npos) {
        std::lock_guard lock(callsignLock);
        feedCallsigns.emplace(heard);
      }
    }

    const std::string_view type = fields[typeField];
    if (type != "null" && type != "0" && type != "ZZZZ") record.type = type;

    const std::string_view category = fields[categoryField];
    if (!category.empty() && (lf_refusedCategory(category) || lf_refusedType(record.type)))
      return lf_refused();

    if (fields[messageKindField] == "adsb_icao") {
      const double heading = lf_number(fields[trueHeadingField], 745, "true heading:{}");
      if (heading > 360) throw SysErrorException(746, fmt::format("true heading:{:.2F}", heading));
      if (heading >= 0) {
        slot.trueHeading = heading == 0 ? twoPi : heading * degToRad;
        slot.hasHeading = true;
        slot.hasTrueHeading = true;
      }
    }

    record.hexid = lf_wholeNumber(fields[hexidField], 640, "hexid incorrect {}");
    if (record.hexid <= highestStaticHexid) return lf_refused();

    slot.groundSpeed = lf_finiteNumber(fields[groundSpeedField], 747, "gs:{}");
    // The callsign is read only below, so this refuses every line without a registration.
    if (record.regcode.empty() && record.callsign.empty()) return lf_refused();

    const std::string_view altitude = fields[altitudeField];
    if (std::from_chars(altitude.data(), altitude.data() + altitude.size(), slot.altitude).ec !=
            std::errc() ||
        !std::isfinite(slot.altitude))
      throw SysErrorException(641, fmt::format("altitude {} incorrect, from: {}", altitude, line));
    const bool parked = hasParkAirport.load(std::memory_order_relaxed);
    const double elevation = parked ? parkElevation.load(std::memory_order_relaxed) : -1000;
    if (isOnGround(slot.altitude, slot.groundSpeed, elevation)) slot.altitude = 0;
    slot.airborne = slot.altitude != 0;

    record.callsign = lf_orEmpty(fields[callsignField]);
    if (record.callsign.starts_with("TOW ")) return lf_refused();
    if (record.callsign.find('@') != std::string::npos) record.callsign.clear();
    if (record.callsign == "ERARMTR0") return lf_refused();

    if (!slot.airborne &&
        (!parked || distanceNm(parkLat.load(std::memory_order_relaxed),
                               parkLon.load(std::memory_order_relaxed), slot.lat, slot.lon) > groundRadiusNm))
      return lf_refused();

    const std::string_view track = fields[trackField];
    slot.track = track.empty() ? 0 : lf_finiteNumber(track, 648, "track incorrect {}");
    if (slot.track == 0 && slot.hasHeading) slot.track = slot.trueHeading * radToDeg;

    slot.verticalSpeed = lf_finiteNumber(fields[verticalSpeedField], 748, "vs:{}");
    record.origin = lf_orEmpty(fields[originField]);
    record.destination = lf_orEmpty(fields[destinationField]);
    record.checksum = lf_wholeNumber(fields.back(), 749, "checksum:{}");

    if (slot.airborne) {
      const double roll = lf_finiteNumber(fields[rollField], 750, "roll:{}");
      if (roll != -1 && roll != 0) {
        slot.roll = -roll * degToRad; // the simulator banks the other way round
        slot.hasRoll = true;
      }
      slot.tas = lf_finiteNumber(fields[tasField], 691, "TAS incorrect {}");
      if (slot.tas == -1) slot.tas = tasFromAltitude(slot.altitude);
    }
    slot.stopped = false;

    std::lock_guard lock(feedLock);
    if (!queueOpen) return {LineOutcome::dropped, 0};
    slot.time = simTick.load(std::memory_order_relaxed) + feedLagTicks;
    trafficInbox.push_back(record);
    return {LineOutcome::queued, 0};
  } catch (const SysErrorException& e) {
    return {LineOutcome::failed, e.number};
  } catch (const std::exception& e) {
    logLine(fmt::format("exception in processLine: {}", e.what()));
    return {LineOutcome::failed, 0};
  }
}

} // namespace ory
