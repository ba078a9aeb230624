#include "convert.h"

#include "capture.h"
#include "engine/geometry.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <deque>
#include <fstream>
#include <map>
#include <sstream>
#include <stdexcept>
#include <zlib.h>

namespace ory {

namespace {

using nlohmann::json;

struct AircraftFacts {
  std::string registration;
  std::string type;
};

struct Lookups {
  std::map<std::uint32_t, AircraftFacts> registry;
  std::map<std::string, std::string> categoryByType;
};

// gzread passes a plain file through unchanged.
std::string lf_readMaybeGzipped(const std::string& path) {
  gzFile file = gzopen(path.c_str(), "rb");
  if (!file) throw std::runtime_error("cannot read " + path);
  std::string text;
  char chunk[1 << 16];
  int got = 0;
  while ((got = gzread(file, chunk, sizeof(chunk))) > 0)
    text.append(chunk, static_cast<std::size_t>(got));
  const bool failed = got < 0;
  gzclose(file);
  if (failed) throw std::runtime_error("broken gzip data in " + path);
  return text;
}

std::uint32_t lf_hexid(std::string_view hex) {
  std::uint32_t value = 0;
  for (char c : hex) {
    const int digit = std::isdigit(static_cast<unsigned char>(c)) ? c - '0'
                      : std::isxdigit(static_cast<unsigned char>(c))
                          ? std::tolower(static_cast<unsigned char>(c)) - 'a' + 10
                          : -1;
    if (digit < 0) throw std::runtime_error(fmt::format("not an ICAO address: {}", hex));
    value = value * 16 + static_cast<std::uint32_t>(digit);
  }
  return value;
}

std::string lf_trim(std::string text) {
  while (!text.empty() && std::isspace(static_cast<unsigned char>(text.back())))
    text.pop_back();
  while (!text.empty() && std::isspace(static_cast<unsigned char>(text.front())))
    text.erase(text.begin());
  return text;
}

std::optional<double> lf_number(const json& value) {
  if (value.is_number()) return value.get<double>();
  return std::nullopt;
}

std::optional<double> lf_member(const json& object, const char* key) {
  const auto found = object.find(key);
  return found == object.end() ? std::nullopt : lf_number(*found);
}

std::string lf_text(const json& object, const char* key) {
  const auto found = object.find(key);
  return found != object.end() && found->is_string() ? lf_trim(found->get<std::string>()) : std::string();
}

std::vector<std::string> lf_csvRow(const std::string& line) {
  std::vector<std::string> cells;
  std::stringstream stream(line);
  std::string cell;
  while (std::getline(stream, cell, ','))
    cells.push_back(lf_trim(cell));
  if (!line.empty() && line.back() == ',') cells.emplace_back();
  return cells;
}

Lookups lf_lookups(const ConvertOptions& options) {
  Lookups lookups;
  if (!options.registry.empty()) {
    std::stringstream lines(lf_readMaybeGzipped(options.registry));
    std::string line;
    std::getline(lines, line); // header
    while (std::getline(lines, line)) {
      const auto cells = lf_csvRow(line);
      if (cells.size() >= 3) lookups.registry[lf_hexid(cells[0])] = {cells[1], cells[2]};
    }
  }
  if (!options.types.empty()) {
    // type -> [name, ICAO description such as L2J or H2T, wake turbulence category]
    const json types = json::parse(lf_readMaybeGzipped(options.types));
    for (const auto& [type, facts] : types.items()) {
      if (!facts.is_array() || facts.size() < 3 || !facts[1].is_string() || !facts[2].is_string()) continue;
      const std::string description = facts[1].get<std::string>();
      const std::string wake = facts[2].get<std::string>();
      // ADS-b emitter categories: A1 light, A3 large, A5 heavy, A7 rotorcraft.
      std::string category = description.starts_with("H") ? "A7"
                             : wake == "H" || wake == "J" ? "A5"
                             : wake == "M"                ? "A3"
                             : wake == "L"                ? "A1"
                                                          : "";
      lookups.categoryByType[type] = category;
    }
  }
  return lookups;
}

// readsb's trace_full: [seconds after timestamp, lat, lon, altitude or "ground", ground speed, track, flags,
// vertical rate, details, source, geometric altitude, geometric rate, IAS, roll] (readsb README-json).
std::vector<TrackPoint> lf_readsbTrace(const json& trace) {
  std::vector<TrackPoint> points;
  TrackPoint carried;
  carried.hexid = lf_hexid(lf_text(trace, "icao"));
  carried.registration = lf_text(trace, "r");
  carried.type = lf_text(trace, "t");
  const double base = trace.at("timestamp").get<double>();
  bool speedKnown = false;
  for (const json& row : trace.at("trace")) {
    if (!row.is_array() || row.size() < 10) continue;
    const json& details = row[8];
    if (details.is_object()) {
      if (const std::string flight = lf_text(details, "flight"); !flight.empty()) carried.callsign = flight;
      if (const std::string category = lf_text(details, "category"); !category.empty())
        carried.category = category;
    }
    const auto lat = lf_number(row[1]);
    const auto lon = lf_number(row[2]);
    if (!lat || !lon) continue;
    TrackPoint point = carried;
    point.time = base + row[0].get<double>();
    point.lat = *lat;
    point.lon = *lon;
    point.onGround = row[3].is_string() && row[3].get<std::string>() == "ground";
    if (const auto altitude = lf_number(row[3])) carried.altitude = *altitude;
    if (const auto speed = lf_number(row[4])) {
      carried.groundSpeed = *speed;
      speedKnown = true;
    }
    if (const auto rate = lf_number(row[7])) carried.verticalRate = *rate;
    if (!speedKnown) continue;
    point.altitude = carried.altitude;
    point.groundSpeed = carried.groundSpeed;
    point.verticalRate = carried.verticalRate;
    point.track = lf_number(row[5]);
    if (row[9].is_string()) point.kind = row[9].get<std::string>();
    if (row.size() > 10) point.geometricAltitude = lf_number(row[10]);
    if (row.size() > 12) point.ias = lf_number(row[12]);
    if (row.size() > 13) point.roll = lf_number(row[13]);
    if (details.is_object()) {
      point.tas = lf_member(details, "tas");
      point.trueHeading = lf_member(details, "true_heading");
    }
    points.push_back(std::move(point));
  }
  return points;
}

// RealTraffic's lines always carry speed and track; a report without them, on the ground or before any speed
// was known, gets both from the way made since the aircraft's oldest report of the last few seconds, which
// evens out positions reported late or twice.
constexpr double motionBaseSeconds = 5;

void lf_motionFromPositions(const TrackPoint& before, TrackPoint& point) {
  const double seconds = point.time - before.time;
  if (seconds <= 0) return;
  const double nm = distanceNm(before.lat, before.lon, point.lat, point.lon);
  point.groundSpeed = nm / seconds * 3600;
  if (!point.track && nm * metresPerNm >= 1)
    point.track = bearingTo(before.lat, before.lon, point.lat, point.lon) * radToDeg;
}

// OpenSky-style records: timestamp in ms, icao24 in hex, position, altitude, groundspeed, track,
// vertical_rate, callsign, and at times origin, destination and onground.
std::vector<TrackPoint> lf_openSkyRecords(const json& records) {
  std::vector<TrackPoint> points;
  std::map<std::uint32_t, TrackPoint> carried;
  std::map<std::uint32_t, bool> altitudeKnown;
  std::map<std::uint32_t, bool> speedKnown;
  std::map<std::uint32_t, std::deque<TrackPoint>> recentOf;
  for (const json& record : records) {
    const auto lat = lf_member(record, "latitude");
    const auto lon = lf_member(record, "longitude");
    const auto time = lf_member(record, "timestamp");
    const std::string icao = lf_text(record, "icao24");
    if (!lat || !lon || !time || icao.empty()) continue;
    const std::uint32_t hexid = lf_hexid(icao);
    TrackPoint& last = carried[hexid];
    last.hexid = hexid;
    last.milliseconds = *time > 1e11;
    last.time = last.milliseconds ? *time / 1000 : *time;
    last.lat = *lat;
    last.lon = *lon;
    if (const auto altitude = lf_member(record, "altitude")) {
      last.altitude = *altitude;
      altitudeKnown[hexid] = true;
    }
    if (const auto rate = lf_member(record, "vertical_rate")) last.verticalRate = *rate;
    last.track = lf_member(record, "track");
    const auto speed = lf_member(record, "groundspeed");
    if (speed) last.groundSpeed = *speed;
    if (const std::string callsign = lf_text(record, "callsign"); !callsign.empty()) last.callsign = callsign;
    last.origin = lf_text(record, "origin");
    last.destination = lf_text(record, "destination");
    const auto ground = record.find("onground");
    last.onGround = ground != record.end() && ground->is_boolean() && ground->get<bool>();
    std::deque<TrackPoint>& recent = recentOf[hexid];
    while (recent.size() > 1 && recent[1].time <= last.time - motionBaseSeconds)
      recent.pop_front();
    if (speed)
      speedKnown[hexid] = true;
    else if (!recent.empty() && (last.onGround || !speedKnown[hexid]))
      lf_motionFromPositions(recent.front(), last);
    recent.push_back(last);
    if (!altitudeKnown[hexid]) continue;
    points.push_back(last);
  }
  return points;
}

// pandas' "columns" form, {"column": {"row": value}}, back to records.
json lf_recordsOfColumns(const json& columns) {
  std::map<long, json> rows;
  for (const auto& [column, values] : columns.items())
    for (const auto& [row, value] : values.items())
      rows[std::stol(row)][column] = value;
  json records = json::array();
  for (auto& [index, record] : rows)
    records.push_back(std::move(record));
  return records;
}

// The flat trace CSV:
// hex,unix_time,lat,lon,alt_baro_ft,on_ground,gs_kt,track_deg,baro_rate_fpm,callsign,type,
// reg,category,true_heading,roll_deg,tas_kt,alt_geom_ft,squawk,source.
std::vector<TrackPoint> lf_flatCsv(const std::string& text, const std::string& path) {
  std::vector<TrackPoint> points;
  std::stringstream lines(text);
  std::string line;
  std::getline(lines, line);
  int lineNumber = 1;
  // The whole cell, or the file and line are named.
  const auto number = [&](const std::string& cell) -> std::optional<double> {
    if (cell.empty()) return std::nullopt;
    double value = 0;
    const auto [end, error] = std::from_chars(cell.data(), cell.data() + cell.size(), value);
    if (error != std::errc() || end != cell.data() + cell.size())
      throw std::runtime_error(fmt::format("{}:{}: not a number: {}", path, lineNumber, cell));
    return value;
  };
  while (std::getline(lines, line)) {
    ++lineNumber;
    const auto c = lf_csvRow(line);
    if (c.size() < 19 || c[1].empty() || c[2].empty() || c[3].empty() || c[6].empty()) continue;
    TrackPoint point;
    point.hexid = lf_hexid(c[0]);
    point.time = *number(c[1]);
    point.lat = *number(c[2]);
    point.lon = *number(c[3]);
    point.onGround = c[5] == "1";
    point.altitude = number(c[4]).value_or(0);
    point.groundSpeed = *number(c[6]);
    point.track = number(c[7]);
    point.verticalRate = number(c[8]).value_or(0);
    point.callsign = c[9];
    point.type = c[10];
    point.registration = c[11];
    point.category = c[12];
    point.trueHeading = number(c[13]);
    point.roll = number(c[14]);
    point.tas = number(c[15]);
    point.geometricAltitude = number(c[16]);
    if (!c[18].empty()) point.kind = c[18];
    points.push_back(std::move(point));
  }
  return points;
}

std::vector<TrackPoint> lf_readSource(const std::string& path) {
  const std::string text = lf_readMaybeGzipped(path);
  const std::size_t first = text.find_first_not_of(" \t\r\n");
  if (first == std::string::npos) throw std::runtime_error(path + " is empty");
  if (text[first] != '{' && text[first] != '[') return lf_flatCsv(text, path);
  const json source = json::parse(text);
  if (source.is_object() && source.contains("trace")) return lf_readsbTrace(source);
  if (source.is_object()) return lf_openSkyRecords(lf_recordsOfColumns(source));
  return lf_openSkyRecords(source);
}

// The QNH the crew set, as readsb reports it (nav_qnh), is the only weather these sources hold.
std::vector<CaptureEntry> lf_weatherOf(const std::string& path, double start) {
  std::vector<CaptureEntry> entries;
  const std::string text = lf_readMaybeGzipped(path);
  if (text.find("\"nav_qnh\"") == std::string::npos) return entries;
  const json source = json::parse(text);
  if (!source.is_object() || !source.contains("trace")) return entries;
  const double base = source.at("timestamp").get<double>();
  long last = 0;
  for (const json& row : source.at("trace")) {
    if (!row.is_array() || row.size() < 9 || !row[8].is_object()) continue;
    const auto qnh = lf_member(row[8], "nav_qnh");
    if (!qnh || std::lround(*qnh) == last) continue;
    last = std::lround(*qnh);
    CaptureEntry entry;
    entry.kind = CaptureKind::weather;
    entry.offset = std::max(0.0, base + row[0].get<double>() - start);
    entry.payload = json{{"ICAO", ""}, {"QNH", last}, {"source", "nav_qnh"}}.dump();
    entries.push_back(std::move(entry));
  }
  return entries;
}

} // namespace

std::size_t convertTracks(const ConvertOptions& options) {
  const Lookups lookups = lf_lookups(options);
  std::vector<CaptureEntry> entries;
  std::size_t traffic = 0;
  for (const std::string& input : options.inputs) {
    std::vector<TrackPoint> points = lf_readSource(input);
    if (points.empty()) continue;
    std::stable_sort(points.begin(), points.end(),
                     [](const auto& a, const auto& b) { return a.time < b.time; });
    // Each source starts at offset 0, so that several of them fly at the same time.
    const double start = points.front().time;
    for (TrackPoint& point : points) {
      if (const auto known = lookups.registry.find(point.hexid); known != lookups.registry.end()) {
        if (point.registration.empty()) point.registration = known->second.registration;
        if (point.type.empty()) point.type = known->second.type;
      }
      if (const auto category = lookups.categoryByType.find(point.type);
          point.category.empty() && category != lookups.categoryByType.end())
        point.category = category->second;
      entries.push_back({point.time - start, CaptureKind::traffic, trafficLine(point), 0});
      ++traffic;
    }
    for (CaptureEntry& weather : lf_weatherOf(input, start))
      entries.push_back(std::move(weather));
  }
  std::stable_sort(entries.begin(), entries.end(),
                   [](const auto& a, const auto& b) { return a.offset < b.offset; });
  std::ofstream out(options.output, std::ios::trunc);
  if (!out) throw std::runtime_error("cannot write " + options.output);
  out << "# feedplay capture: offset in seconds, T traffic line, W weather report, DROP seconds away\n";
  for (const CaptureEntry& entry : entries)
    out << captureText(entry) << '\n';
  if (!out.flush()) throw std::runtime_error("cannot write " + options.output);
  return traffic;
}

} // namespace ory
