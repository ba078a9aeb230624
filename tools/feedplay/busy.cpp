#include "busy.h"

#include "capture.h"
#include "engine/geometry.h"
#include "feed/traffic_line.h"
#include "feed/traffic_reader.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <fstream>
#include <map>
#include <random>
#include <stdexcept>

namespace ory {

namespace {

// Far above any real address of the sources, so a copy never takes a real aircraft's identity.
constexpr std::uint32_t firstCopyHexid = 0xE00000;

struct Report {
  double offset = 0; // seconds into the source capture
  std::string line;  // the traffic line
  double lat = 0;    // degrees
  double lon = 0;    // degrees
};

double lf_number(std::string_view text) {
  double value = 0;
  std::from_chars(text.data(), text.data() + text.size(), value);
  return value;
}

// Every aircraft of the capture with two reports or more, in the order of their first report.
std::vector<std::vector<Report>> lf_aircraft(const std::vector<CaptureEntry>& entries) {
  std::map<std::string, std::size_t> indexByHexid;
  std::vector<std::vector<Report>> aircraft;
  std::vector<std::string_view> fields;
  for (const CaptureEntry& entry : entries) {
    if (entry.kind != CaptureKind::traffic) continue;
    splitFields(entry.payload, fields);
    if (fields.size() < fieldsWithChecksum) continue;
    const auto [slot, added] = indexByHexid.emplace(std::string(fields[hexidField]), aircraft.size());
    if (added) aircraft.emplace_back();
    aircraft[slot->second].push_back(
        {entry.offset, entry.payload, lf_number(fields[latField]), lf_number(fields[lonField])});
  }
  std::erase_if(aircraft, [](const std::vector<Report>& reports) { return reports.size() < 2; });
  return aircraft;
}

// The airline's three letters of a callsign, or the whole of a callsign without them.
std::string lf_callsignOf(std::string_view callsign, std::size_t copy) {
  if (callsign == "null" || callsign.empty()) return "null";
  const bool airline = callsign.size() > 3 && std::all_of(callsign.begin(), callsign.begin() + 3,
                                                          [](char c) { return c >= 'A' && c <= 'Z'; });
  return fmt::format("{}{}", airline ? callsign.substr(0, 3) : std::string_view("N"), 100 + copy);
}

std::string lf_copiedLine(const Report& report, const Report& first, const LatLon& start, std::size_t copy) {
  std::vector<std::string_view> fields;
  splitFields(report.line, fields);
  const double bearing = bearingTo(first.lat, first.lon, report.lat, report.lon);
  const double feet = distanceNm(first.lat, first.lon, report.lat, report.lon) * feetPerNm;
  const LatLon moved = destination(start.lat, start.lon, bearing, feet);
  std::string line;
  for (std::size_t i = 0; i < fields.size(); ++i) {
    if (i > 0) line += ',';
    if (i == hexidField)
      line += std::to_string(firstCopyHexid + copy);
    else if (i == latField)
      line += fmt::format("{:.6f}", moved.lat);
    else if (i == lonField)
      line += fmt::format("{:.6f}", moved.lon);
    else if (i == callsignField)
      line += lf_callsignOf(fields[i], copy);
    else if (i == registrationField)
      line += fmt::format("N{}CP", 100 + copy);
    else
      line += fields[i];
  }
  return line;
}

} // namespace

std::size_t makeBusyCapture(const BusyOptions& options) {
  const std::vector<CaptureEntry> entries = readCapture(options.input);
  const std::vector<std::vector<Report>> aircraft = lf_aircraft(entries);
  if (aircraft.empty())
    throw std::runtime_error(options.input + " holds no aircraft with two reports or more");
  std::mt19937 random(options.seed);
  std::uniform_real_distribution<double> unit(0, 1);
  std::vector<CaptureEntry> busy;
  const auto weather = std::find_if(entries.begin(), entries.end(),
                                    [](const CaptureEntry& e) { return e.kind == CaptureKind::weather; });
  if (weather != entries.end()) busy.push_back({0, CaptureKind::weather, weather->payload});
  for (std::size_t copy = 0; copy < options.copies; ++copy) {
    const std::vector<Report>& reports = aircraft[copy % aircraft.size()];
    // A window starts at a report, so that a track's gaps never leave a copy without one.
    const double latest = std::max(reports.front().offset, reports.back().offset - options.lifeSeconds);
    const auto starts = static_cast<std::size_t>(
        std::upper_bound(reports.begin(), reports.end(), latest,
                         [](double offset, const Report& r) { return offset < r.offset; }) -
        reports.begin());
    const auto first =
        reports.begin() +
        static_cast<std::ptrdiff_t>(std::min(starts - 1, static_cast<std::size_t>(unit(random) * starts)));
    // Evenly over the disc: the square root of a uniform share of the radius.
    const double feet = std::sqrt(unit(random)) * options.radiusNm * feetPerNm;
    const LatLon start = destination(options.centreLat, options.centreLon, unit(random) * twoPi, feet);
    for (auto report = first; report != reports.end() && report->offset < first->offset + options.lifeSeconds;
         ++report)
      busy.push_back({static_cast<double>(copy) * options.everySeconds + report->offset - first->offset,
                      CaptureKind::traffic, lf_copiedLine(*report, *first, start, options.firstCopy + copy)});
  }
  std::stable_sort(busy.begin(), busy.end(),
                   [](const CaptureEntry& a, const CaptureEntry& b) { return a.offset < b.offset; });
  std::ofstream out(options.output);
  out << fmt::format("# feedplay busy: {} copies of {} aircraft of {}, one every {} s, {} s each\n",
                     options.copies, aircraft.size(), options.input, options.everySeconds,
                     options.lifeSeconds);
  for (const CaptureEntry& entry : busy)
    out << captureText(entry) << '\n';
  if (!out) throw std::runtime_error("cannot write " + options.output);
  return static_cast<std::size_t>(std::count_if(
      busy.begin(), busy.end(), [](const CaptureEntry& e) { return e.kind == CaptureKind::traffic; }));
}

} // namespace ory
