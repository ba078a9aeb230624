#include "capture.h"

#include "feed/traffic_line.h"
#include "feed/traffic_reader.h"

#include <fmt/format.h>

#include <charconv>
#include <fstream>
#include <stdexcept>
#include <zlib.h>

namespace ory {

namespace {

std::string lf_optional(const std::optional<double>& value, std::string_view none, int decimals) {
  return value ? fmt::format("{:.{}f}", *value, decimals) : std::string(none);
}

std::string lf_orNull(const std::string& text) {
  return text.empty() ? "null" : text;
}

std::string lf_timestampText(double seconds, bool milliseconds) {
  return milliseconds ? fmt::format("{}", static_cast<std::int64_t>(seconds * 1000 + 0.5))
                      : fmt::format("{:.2f}", seconds);
}

std::string lf_withChecksum(std::string line) {
  const std::uint32_t checksum = lineChecksum(line);
  return line + fmt::format(",{}", checksum);
}

} // namespace

std::vector<CaptureEntry> readCapture(const std::string& path) {
  std::ifstream file(path);
  if (!file) throw std::runtime_error("cannot read the capture " + path);
  std::vector<CaptureEntry> entries;
  std::string text;
  for (int number = 1; std::getline(file, text); ++number) {
    if (!text.empty() && text.back() == '\r') text.pop_back();
    if (text.empty() || text.front() == '#') continue;
    const auto bad = [&] {
      return std::runtime_error(fmt::format("{}:{}: not a capture entry", path, number));
    };
    const std::size_t first = text.find(' ');
    const std::size_t second = first == std::string::npos ? first : text.find(' ', first + 1);
    if (second == std::string::npos) throw bad();
    CaptureEntry entry;
    const char* begin = text.data();
    if (std::from_chars(begin, begin + first, entry.offset).ec != std::errc() || entry.offset < 0)
      throw bad();
    const std::string_view kind(begin + first + 1, second - first - 1);
    entry.payload = text.substr(second + 1);
    if (kind == "T") {
      entry.kind = CaptureKind::traffic;
    } else if (kind == "W") {
      entry.kind = CaptureKind::weather;
    } else if (kind == "DROP") {
      entry.kind = CaptureKind::drop;
      const std::string& away = entry.payload;
      if (std::from_chars(away.data(), away.data() + away.size(), entry.awaySeconds).ec != std::errc())
        throw bad();
    } else {
      throw bad();
    }
    entries.push_back(std::move(entry));
  }
  return entries;
}

std::string captureText(const CaptureEntry& entry) {
  static constexpr const char* kinds[] = {"T", "W", "DROP"};
  return fmt::format("{:.3f} {} {}", entry.offset, kinds[static_cast<int>(entry.kind)], entry.payload);
}

std::uint32_t lineChecksum(std::string_view lineWithoutChecksum) {
  const auto* bytes = reinterpret_cast<const Bytef*>(lineWithoutChecksum.data());
  return static_cast<std::uint32_t>(crc32(0, bytes, static_cast<uInt>(lineWithoutChecksum.size())));
}

std::string trafficLine(const TrackPoint& point) {
  // RTTFC fields 0 to 28: kind, hexid, lat, lon, baro_alt, baro_rate, gnd, track, gsp, cs_icao, ac_type,
  // ac_tailno, from_iata, to_iata, timestamp, source, cs_iata, msg_type, alt_geom, IAS, TAS, Mach,
  // track_rate, roll, mag_heading, true_heading, geom_rate, emergency, category.
  const std::string line = fmt::format(
      "RTTFC,{},{:.6f},{:.6f},{:.0f},{:.0f},{},{},{:.1f},{},{},{},{},{},{},X,,{},{},{},{},,,{},,{},,,{}",
      point.hexid, point.lat, point.lon, point.onGround ? 0.0 : point.altitude, point.verticalRate,
      point.onGround ? 1 : 0, lf_optional(point.track, "", 1), point.groundSpeed, lf_orNull(point.callsign),
      lf_orNull(point.type), lf_orNull(point.registration), lf_orNull(point.origin),
      lf_orNull(point.destination), lf_timestampText(point.time, point.milliseconds), point.kind,
      lf_optional(point.geometricAltitude, "", 0), lf_optional(point.ias, "", 0),
      lf_optional(point.tas, "-1", 0), lf_optional(point.roll, "-1", 1),
      lf_optional(point.trueHeading, "-1", 2), point.category);
  return lf_withChecksum(line);
}

std::string retimedLine(std::string_view rawLine, double nowSeconds) {
  std::vector<std::string_view> fields;
  splitFields(rawLine, fields);
  if (fields.size() < fieldsWithChecksum) return std::string(rawLine);
  double old = 0;
  const std::string_view stamp = fields[timestampField];
  std::from_chars(stamp.data(), stamp.data() + stamp.size(), old);
  std::string line;
  for (std::size_t i = 0; i + 1 < fields.size(); ++i) {
    if (i > 0) line += ',';
    line +=
        i == timestampField ? lf_timestampText(nowSeconds, old > millisecondsFrom) : std::string(fields[i]);
  }
  return lf_withChecksum(line);
}

} // namespace ory
