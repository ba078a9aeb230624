#include "scenery/airport_record.h"

#include "base/log.h"
#include "base/text_hash.h"
#include "engine/geometry.h"
#include "liveries/text_tokens.h"
#include "os/utf.h"
#include "scenery/scan_log.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <string_view>
#include <utility>

namespace ory {

namespace {

// Sub-record ids inside an airport record; see README.md.
constexpr std::uint16_t nameRecord = 0x19;
constexpr std::uint16_t helipadRecord = 0x26;
constexpr std::uint16_t parkingRecord = 0x3D;
constexpr std::uint16_t parkingRecordV5 = 0xAD;
constexpr std::size_t altitudeWord = 5;
constexpr std::size_t maxNameLength = 45;
constexpr std::string_view suffixes = "abcdef";

struct AirportDecoder {
  const BglWords& bgl;
  std::string pathText;
  ScanResult& result;
  TextSet ids;
  std::vector<std::pair<std::uint32_t, std::uint32_t>> helipadPositions; // raw longitude, latitude
  std::int32_t heliNumber = 1;
  bool nameSeen = false;
};

bool lf_positionUsable(double lat, double lon) {
  return lat >= -90.0 && lat <= 90.0 && lon >= -180.0 && lon <= 180.0 && !isNullPosition(lat, lon);
}

// Degrees to radians; a heading of 0 is stored as 2 pi so that no stand ever has heading 0.
double lf_headingRadians(float degrees) {
  return degrees == 0.0f ? twoPi : degrees * degToRad;
}

std::string lf_positionText(double lat, double lon) {
  return fmt::format("{:.6f}, {:.6f}", lat, lon);
}

// lf_decodeAirportNAME: the characters follow the 6-byte head, padded with zeros to a whole word.
std::string lf_decodeAirportName(const BglWords& bgl, std::size_t sub) {
  const int length = std::min<int>(bglHalf(bgl, sub * 4 + 2) - 6, maxNameLength);
  std::string bytes;
  for (int k = 0; k < length; ++k) {
    const std::size_t offset = sub * 4 + 6 + static_cast<std::size_t>(k);
    if (offset / 4 >= bgl.words.size()) {
      scanLog(fmt::format("! o3: {} of d out of range nrDWORDS: {}", offset / 4, bgl.words.size()));
      break;
    }
    const char c = static_cast<char>(bglByte(bgl, offset));
    if (c == '\0') break;
    bytes += c;
  }
  return utf8OrAnsi(bytes);
}

void lf_takeName(AirportDecoder& decoder, std::size_t sub) {
  std::string name = lf_decodeAirportName(decoder.bgl, sub);
  if (!decoder.nameSeen) {
    decoder.result.airportName = std::move(name);
    decoder.nameSeen = true;
  } else if (name != decoder.result.airportName) {
    decoder.result.airportName.clear(); // two different names: neither can be trusted
  }
}

// Helipad: word 3 longitude, word 4 latitude, word 7 width in metres, word 8 heading in degrees.
void lf_takeHelipad(AirportDecoder& decoder, std::size_t sub) {
  const std::uint32_t rawLon = bglWord(decoder.bgl, sub + 3);
  const std::uint32_t rawLat = bglWord(decoder.bgl, sub + 4);
  const double lat = decodeLatitude(rawLat);
  const double lon = decodeLongitude(rawLon);
  if (!lf_positionUsable(lat, lon)) {
    scanLog("lat/lon helipad incorrect (skipped): " + lf_positionText(lat, lon));
    return;
  }
  const auto position = std::make_pair(rawLon, rawLat);
  if (std::find(decoder.helipadPositions.begin(), decoder.helipadPositions.end(), position) !=
      decoder.helipadPositions.end()) {
    scanLog("double helipad " + lf_positionText(lat, lon) + " (skipped) ");
    return;
  }
  const float width = bglFloat(decoder.bgl, sub + 7);
  const float heading = bglFloat(decoder.bgl, sub + 8);
  if (!(width > 0.0f && width < 1000.0f) || !std::isfinite(heading)) {
    scanLog(fmt::format("helipad {} with width {} and heading {} incorrect (skipped), in {}",
                        lf_positionText(lat, lon), width, heading, decoder.pathText));
    return;
  }
  decoder.helipadPositions.push_back(position);
  Stand stand;
  stand.id = fmt::format("helipad{}", decoder.heliNumber++);
  stand.lat = lat;
  stand.lon = lon;
  stand.radius = width * 0.5 * nmPerMetre;
  stand.heading = lf_headingRadians(heading);
  stand.heli = true;
  decoder.result.stands.push_back(std::move(stand));
}

// a name already taken gets the first free suffix of a to f; empty when all are taken.
std::string lf_uniqueId(AirportDecoder& decoder, const std::string& id, bool& doubled) {
  doubled = false;
  if (decoder.ids.insert(id).second) return id;
  for (char suffix : suffixes) {
    std::string candidate = id + suffix;
    if (decoder.ids.insert(candidate).second) {
      doubled = true;
      return candidate;
    }
  }
  scanLog(fmt::format("{}{}Warning more then 6 the same ids {}, in {}", warningPrefix,
                      decoder.result.code + " ", id, decoder.pathText));
  return {};
}

// Taxi parking entry: word 0 packs name code (bits 0-5), type (8-11), number (12-23) and the count of airline
// codes (24-31); word 1 radius in metres, word 2 heading in degrees, words 7 and 8 longitude and latitude.
// Returns true when the entry's name had to be made unique.
bool lf_takeParking(AirportDecoder& decoder, std::size_t entry) {
  const std::uint32_t head = bglWord(decoder.bgl, entry);
  const float radius = bglFloat(decoder.bgl, entry + 1);
  if (!(radius > 1.0f && radius < 200.0f)) {
    scanLog(fmt::format("skipped position with radius {:.1F} meters, in {}", radius, decoder.pathText));
    return false;
  }
  const std::uint32_t type = (head >> 8) & 0xF;
  if (type < 1 || type > 11) return false; // fuel and vehicle positions are no stands
  const std::uint32_t number = (head >> 12) & 0xFFF;
  const double lat = decodeLatitude(bglWord(decoder.bgl, entry + 8));
  const double lon = decodeLongitude(bglWord(decoder.bgl, entry + 7));
  if (!lf_positionUsable(lat, lon)) {
    scanLog(fmt::format("lat/lon: {}, incorrect (skipped) ", lf_positionText(lat, lon)));
    return false;
  }
  const float heading = bglFloat(decoder.bgl, entry + 2);
  if (!std::isfinite(heading)) {
    scanLog(fmt::format("heading {} incorrect (skipped), in {}", heading, decoder.pathText));
    return false;
  }
  bool doubled = false;
  std::string id = lf_uniqueId(decoder, parkingNameText(head & 0x3F) + std::to_string(number), doubled);
  if (id.empty()) return false;
  Stand stand;
  stand.id = std::move(id);
  stand.lat = lat;
  stand.lon = lon;
  stand.radius = radius * nmPerMetre;
  stand.heading = lf_headingRadians(heading);
  stand.cargo = type == 5;
  stand.ramp = type < 8;
  stand.idDoubled = doubled;
  decoder.result.stands.push_back(std::move(stand));
  return doubled;
}

// The entries follow a count in the high half of word 1; each is 9 words and one per airline code, and one
// more in the Prepar3D v5 form.
void lf_takeParkingList(AirportDecoder& decoder, std::size_t sub, std::size_t subEnd, bool newForm) {
  const std::uint32_t count = bglWord(decoder.bgl, sub + 1) >> 16;
  std::size_t entry = sub + 2;
  bool doubled = false;
  for (std::uint32_t k = 0; k < count; ++k) {
    const std::size_t extra = newForm ? 1 : 0;
    const std::size_t words = 9 + extra + (entry < subEnd ? bglWord(decoder.bgl, entry) >> 24 : 0);
    if (entry + words > subEnd) {
      scanLog(fmt::format("parking list of {} runs past its record after {} of {} entries, in {}",
                          decoder.result.code, k, count, decoder.pathText));
      break;
    }
    doubled = lf_takeParking(decoder, entry) || doubled;
    entry += words;
  }
  if (doubled) renumberDoubledIds(decoder.result.stands);
}

} // namespace

std::int32_t airportAltitudeFeet(std::int32_t millimetres) {
  const auto feet = static_cast<std::int32_t>(std::lround(millimetres * feetPerMetre / 1000.0));
  return feet < -20 || feet > 10000 ? 0 : feet;
}

ScanResult decodeAirportRecord(const BglWords& bgl, const AirportRecordRef& airport,
                               const std::filesystem::path& path) {
  ScanResult result;
  result.code = airport.code;
  result.bglPath = pathText(path);
  AirportDecoder decoder{bgl, result.bglPath, result};
  result.altitude =
      airportAltitudeFeet(static_cast<std::int32_t>(bglWord(bgl, airport.start + altitudeWord)));
  const std::size_t end = std::min(airport.start + airport.sizeInWords, bgl.words.size());
  const std::uint16_t parkingId = airport.newForm ? parkingRecordV5 : parkingRecord;
  std::size_t sub = airport.start + (airport.newForm ? 0x3C : 0x38) / 4;
  while (sub < end) {
    const BglRecordHead head = bglRecordHead(bgl, sub);
    const std::size_t subEnd = std::min(end, sub + head.size / 4);
    if (head.id == nameRecord)
      lf_takeName(decoder, sub);
    else if (head.id == helipadRecord)
      lf_takeHelipad(decoder, sub);
    else if (head.id == parkingId)
      lf_takeParkingList(decoder, sub, subEnd, airport.newForm);
    if (head.size < 4) break;
    sub += head.size / 4;
  }
  return result;
}

void renumberDoubledIds(std::vector<Stand>& stands) {
  for (;;) {
    const auto first = std::find_if(stands.begin(), stands.end(), [](const Stand& s) { return s.idDoubled; });
    if (first == stands.end()) return;
    first->idDoubled = false;
    const std::string base = first->id.substr(0, first->id.size() - 1);
    std::vector<Stand*> sharing;
    for (Stand& stand : stands) {
      const bool suffixed = stand.id.size() == base.size() + 1 && stand.id.starts_with(base) &&
                            suffixes.find(stand.id.back()) != std::string_view::npos;
      if (stand.id != base && !suffixed) continue;
      stand.idDoubled = false;
      sharing.push_back(&stand);
    }
    std::stable_sort(sharing.begin(), sharing.end(),
                     [](const Stand* a, const Stand* b) { return a->radius > b->radius; });
    for (std::size_t k = 0; k < sharing.size(); ++k)
      sharing[k]->id = k == 0 ? base : base + suffixes[k - 1];
  }
}

} // namespace ory
