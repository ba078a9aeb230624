#include "judge.h"

#include "capture.h"
#include "engine/geometry.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <cmath>

namespace ory {

namespace {

constexpr double knotsPerMetrePerSecond = 3600 / metresPerNm;

double lf_metres(double lat1, double lon1, double lat2, double lon2) {
  return distanceNm(lat1, lon1, lat2, lon2) * metresPerNm;
}

struct Nearest {
  double metres = 0;
  bool beyondEnd = false; // the nearest point is the end of the track, and p lies past it
};

// Distance from p to the segment a-b, in a flat frame around a: enough at the scale of seconds of flight.
Nearest lf_segmentMetres(const FlownPoint& p, const RealPoint& a, const RealPoint& b) {
  const double east = std::cos(a.lat * degToRad) * metresPerDegree;
  const double bx = (b.lon - a.lon) * east;
  const double by = (b.lat - a.lat) * metresPerDegree;
  const double px = (p.lon - a.lon) * east;
  const double py = (p.lat - a.lat) * metresPerDegree;
  const double length = bx * bx + by * by;
  const double along = length > 0 ? (px * bx + py * by) / length : 0.0;
  const double t = std::clamp(along, 0.0, 1.0);
  return {std::hypot(px - t * bx, py - t * by), along > 1};
}

Nearest lf_nearest(const FlownPoint& p, const std::vector<RealPoint>& real) {
  Nearest best{INFINITY, false};
  for (std::size_t i = 1; i < real.size(); ++i) {
    Nearest here = lf_segmentMetres(p, real[i - 1], real[i]);
    here.beyondEnd = here.beyondEnd && i + 1 == real.size();
    if (here.metres < best.metres) best = here;
  }
  return best;
}

double lf_quantile(std::vector<double> values, double q) {
  if (values.empty()) return 0;
  const auto at = static_cast<std::size_t>(std::round(q * static_cast<double>(values.size() - 1)));
  std::nth_element(values.begin(), values.begin() + static_cast<std::ptrdiff_t>(at), values.end());
  return values[at];
}

double lf_field(std::string_view line, int index) {
  for (int i = 0; i < index; ++i) {
    const std::size_t comma = line.find(',');
    if (comma == std::string_view::npos) return NAN;
    line.remove_prefix(comma + 1);
  }
  double value = NAN;
  std::from_chars(line.data(), line.data() + line.find(','), value);
  return value;
}

} // namespace

std::vector<FlownPoint> flownPath(const std::vector<nlohmann::json>& trace, std::string_view atcId) {
  std::vector<FlownPoint> path;
  for (const nlohmann::json& line : trace) {
    if (line.value("kind", "") != "state") continue;
    for (const nlohmann::json& o : line.at("objects")) {
      if (o.value("atcId", "") != atcId) continue;
      const nlohmann::json& frozen = o.at("frozen");
      const bool held = o.value("released", false) && frozen[0] && frozen[1] && frozen[2];
      path.push_back({line.value("wall", 0.0) / 1000, line.value("t", 0.0), o.value("lat", 0.0),
                      o.value("lon", 0.0), o.value("alt", 0.0), o.value("tas", 0.0), held});
    }
  }
  return path;
}

std::vector<RealPoint> realTrack(const std::string& capturePath, std::uint32_t hexid) {
  std::vector<RealPoint> track;
  for (const CaptureEntry& entry : readCapture(capturePath)) {
    if (entry.kind != CaptureKind::traffic || lf_field(entry.payload, 1) != hexid) continue;
    track.push_back(
        {entry.offset, lf_field(entry.payload, 2), lf_field(entry.payload, 3), lf_field(entry.payload, 4)});
  }
  return track;
}

TrackFigures judgeTrack(const std::vector<FlownPoint>& flown, const std::vector<RealPoint>& real) {
  TrackFigures figures;
  if (flown.empty() || real.size() < 2) return figures;
  std::vector<FlownPoint> held;
  std::vector<double> distances;
  for (const FlownPoint& p : flown) {
    if (!p.frozen) continue;
    held.push_back(p);
    const Nearest nearest = lf_nearest(p, real);
    if (!nearest.beyondEnd) distances.push_back(nearest.metres);
    if (held.size() < 2) continue;
    const FlownPoint& before = held[held.size() - 2];
    // A frame late on the wall clock is followed closely by the next; a step covers at least a frame period.
    const double seconds = std::max(p.wall - before.wall, p.time - before.time);
    if (seconds <= 0) continue;
    const double knots = lf_metres(before.lat, before.lon, p.lat, p.lon) / seconds * knotsPerMetrePerSecond;
    const double bound = 2 * std::max(std::abs(before.tas), std::abs(p.tas)) + 10;
    figures.worstStepRatio = std::max(figures.worstStepRatio, knots / bound);
    if (knots > bound) ++figures.jumps;
  }
  figures.frames = held.size();
  figures.onTrack = distances.size();
  if (distances.empty()) return figures;
  figures.medianMetres = lf_quantile(distances, 0.5);
  figures.p95Metres = lf_quantile(distances, 0.95);
  figures.maxMetres = *std::max_element(distances.begin(), distances.end());
  return figures;
}

std::string figuresText(const TrackFigures& f) {
  return fmt::format(
      "frames {}, {} abreast of the real track: from it median {:.0f} m, 95th percentile {:.0f} m, "
      "max {:.0f} m; jumps {} (worst step {:.2f} of the bound)",
      f.frames, f.onTrack, f.medianMetres, f.p95Metres, f.maxMetres, f.jumps, f.worstStepRatio);
}

} // namespace ory
