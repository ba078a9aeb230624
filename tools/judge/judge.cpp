#include "judge.h"

#include "capture.h"
#include "engine/aircraft.h"
#include "engine/categories.h"
#include "engine/geometry.h"
#include "feed/traffic_reader.h"

#include <fmt/format.h>

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cmath>
#include <optional>
#include <utility>

namespace ory {

namespace {

constexpr double knotsPerMetrePerSecond = 3600 / metresPerNm;
// Slower and lower than this an aircraft, not a helicopter, belongs on the ground: above it, it hovers.
constexpr double hoverKnots = 40;
constexpr double hoverFeet = 100;
constexpr double turnWindowSeconds = 1;
constexpr double airborneSecondsBeforeTouchDown = 1;
// Standing within this for this long is parking.
constexpr double stillMetres = 1;
constexpr double parkedSeconds = 20;
// How long after its release the speed an object starts with is taken.
constexpr double openingSeconds = 5;
// A ground run slower than this is a taxi, not a take-off or landing roll.
constexpr double taxiKnots = 35;
constexpr auto helicopter = static_cast<std::int32_t>(categoryHelicopter);
// A frame this near a report, or nearer than its step from the frame before, is at it.
constexpr double reachMetres = 2;
// The engine drops a report that follows the one it took this soon.
constexpr double tooSoonSeconds = 1;

double lf_metres(double lat1, double lon1, double lat2, double lon2) {
  return distanceNm(lat1, lon1, lat2, lon2) * metresPerNm;
}

struct Nearest {
  double metres = 0;
  bool beyondEnd = false; // the nearest point is the end of the track, and p lies past it
};

// Distance from p to the segment a-b, in a flat frame around a: enough at the scale of seconds of flight.
Nearest lf_segmentMetres(const FlownPoint& p, const RealPoint& a, const RealPoint& b) {
  const Flat to = flatFrom(a.lat, a.lon, b.lat, b.lon);
  const Flat at = flatFrom(a.lat, a.lon, p.lat, p.lon);
  const double length = to.x * to.x + to.y * to.y;
  const double along = length > 0 ? (at.x * to.x + at.y * to.y) / length : 0.0;
  const double t = std::clamp(along, 0.0, 1.0);
  return {std::hypot(at.x - t * to.x, at.y - t * to.y), along > 1};
}

// The last frame at the real track's last report, or at the one before when the engine dropped the last as
// too soon after it. After it the engine dead-reckons, also where that passes near the track's earlier
// parts; the frame count when the flown path never gets there.
std::size_t lf_endOfTrack(const std::vector<FlownPoint>& held, const std::vector<RealPoint>& real) {
  std::vector<const RealPoint*> ends{&real.back()};
  if (real.size() >= 2 && real.back().offset - real[real.size() - 2].offset <= tooSoonSeconds)
    ends.push_back(&real[real.size() - 2]);
  std::size_t last = held.size();
  for (std::size_t i = 0; i < held.size(); ++i) {
    const FlownPoint& p = held[i];
    const double step = i > 0 ? lf_metres(held[i - 1].lat, held[i - 1].lon, p.lat, p.lon) : 0.0;
    for (const RealPoint* end : ends)
      if (lf_metres(p.lat, p.lon, end->lat, end->lon) <= std::max(reachMetres, step)) last = i;
  }
  return last;
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

std::string_view lf_text(std::string_view line, int index) {
  for (int i = 0; i < index; ++i) {
    const std::size_t comma = line.find(',');
    if (comma == std::string_view::npos) return {};
    line.remove_prefix(comma + 1);
  }
  return line.substr(0, line.find(','));
}

double lf_field(std::string_view line, int index) {
  const std::string_view text = lf_text(line, index);
  double value = NAN;
  std::from_chars(text.data(), text.data() + text.size(), value);
  return value;
}

std::string lf_name(std::string_view line, int index) {
  const std::string_view text = lf_text(line, index);
  return text == "null" ? std::string() : std::string(text);
}

// The ADS-B emitter category to the engine's: A1 light, A2 to A5 transport by size, A6 high performance, A7
// rotorcraft.
std::int32_t lf_category(std::string_view emitter) {
  if (emitter.size() != 2 || emitter[0] != 'A') return -1;
  switch (emitter[1]) {
  case '1':
    return 0;
  case '2':
    return 1;
  case '3':
    return 2;
  case '4':
  case '5':
    return 3;
  case '6':
    return 4;
  case '7':
    return helicopter;
  default:
    return -1;
  }
}

FlownPoint lf_point(const nlohmann::json& line, const nlohmann::json& o) {
  const nlohmann::json& frozen = o.at("frozen");
  const bool held = o.value("released", false) && frozen[0] && frozen[1] && frozen[2];
  return {line.value("wall", 0.0) / 1000,
          line.value("t", 0.0),
          o.value("lat", 0.0),
          o.value("lon", 0.0),
          o.value("alt", 0.0),
          o.value("tas", 0.0),
          held,
          o.value("heading", 0.0),
          o.value("agl", 0.0),
          o.value("onGround", false)};
}

// A frame late on the wall clock is followed closely by the next; a step covers at least a frame period.
double lf_seconds(const FlownPoint& a, const FlownPoint& b) {
  return std::max(b.wall - a.wall, b.time - a.time);
}

double lf_stepKnots(const FlownPoint& a, const FlownPoint& b) {
  const double seconds = lf_seconds(a, b);
  return seconds > 0 ? lf_metres(a.lat, a.lon, b.lat, b.lon) / seconds * knotsPerMetrePerSecond : 0.0;
}

double lf_stepBound(const FlownPoint& a, const FlownPoint& b) {
  return 2 * std::max(std::abs(a.tas), std::abs(b.tas)) + 10;
}

std::vector<FlownPoint> lf_held(const std::vector<FlownPoint>& path) {
  std::vector<FlownPoint> held;
  std::copy_if(path.begin(), path.end(), std::back_inserter(held),
               [](const FlownPoint& p) { return p.frozen; });
  return held;
}

bool lf_onGround(const FlownPoint& p, double staticCg, std::int32_t category) {
  if (p.onGround) return true;
  return category != helicopter && std::abs(p.tas) < hoverKnots && p.agl - staticCg < hoverFeet;
}

// A frame that brought no new position is caught up by the next: the step is measured from the first frame
// that showed the position before. A program held up for a few frames by the machine shows one more step
// after the hold and the rest of the way it owes in the next: that next step is also measured over both, from
// where the hold began, and the slower of the two counts. A leap stays a leap over either span.
void lf_steps(const std::vector<FlownPoint>& held, ObjectFigures& f) {
  std::size_t from = 0;
  std::optional<std::size_t> holdStart; // the first frame of the hold that the step before ended
  for (std::size_t i = 1; i < held.size(); ++i) {
    if (held[i].lat == held[i - 1].lat && held[i].lon == held[i - 1].lon) continue;
    const std::size_t start = std::exchange(from, i);
    const FlownPoint& before = held[start];
    double knots = lf_stepKnots(before, held[i]);
    if (holdStart) {
      const FlownPoint& first = held[*holdStart];
      const double seconds = lf_seconds(first, held[i]);
      const double metres = lf_metres(first.lat, first.lon, before.lat, before.lon) +
                            lf_metres(before.lat, before.lon, held[i].lat, held[i].lon);
      if (seconds > 0) knots = std::min(knots, metres / seconds * knotsPerMetrePerSecond);
    }
    holdStart = i - start > 1 ? std::optional<std::size_t>(start) : std::nullopt;
    const double ratio = knots / lf_stepBound(before, held[i]);
    if (ratio > 1) ++f.jumps;
    if (ratio <= f.worstStepRatio) continue;
    f.worstStepRatio = ratio;
    f.worstKnots = knots;
    f.engineKnots = std::max(std::abs(before.tas), std::abs(held[i].tas));
  }
}

// Steps on the ground against the nose's heading: a push back rather than a turn on the spot.
void lf_backwards(const std::vector<FlownPoint>& held, const std::vector<bool>& ground, ObjectFigures& f) {
  for (std::size_t i = 1; i < held.size(); ++i) {
    const FlownPoint& a = held[i - 1];
    const FlownPoint& b = held[i];
    const double metres = lf_metres(a.lat, a.lon, b.lat, b.lon);
    if (!ground[i - 1] || !ground[i] || metres <= 0) continue;
    if (std::abs(headingDiff(bearingTo(a.lat, a.lon, b.lat, b.lon), b.heading)) > pi / 2)
      f.backwardsMetres += metres;
    else if (b.tas <= taxiKnots)
      f.taxiMetres += metres;
  }
}

// The turn over at least a second of each run of ground frames, so that the rate is not the noise of frame
// times.
void lf_groundTurns(const std::vector<FlownPoint>& held, const std::vector<bool>& ground, ObjectFigures& f) {
  std::size_t runStart = 0;
  std::vector<double> unwrapped(held.size(), 0.0);
  for (std::size_t j = 0; j < held.size(); ++j) {
    if (!ground[j]) {
      runStart = j + 1;
      continue;
    }
    unwrapped[j] = j == runStart ? held[j].heading
                                 : unwrapped[j - 1] + headingDiff(held[j].heading, held[j - 1].heading);
    std::size_t i = j;
    while (i > runStart && lf_seconds(held[i], held[j]) < turnWindowSeconds)
      --i;
    const double seconds = lf_seconds(held[i], held[j]);
    if (seconds < turnWindowSeconds) continue;
    f.groundTurnRate = std::max(f.groundTurnRate, std::abs(unwrapped[j] - unwrapped[i]) * radToDeg / seconds);
  }
}

struct OnRunway {
  const Runway* runway = nullptr;
  double along = 0;  // metres from the threshold landed over
  double across = 0; // metres from the centre line
  double length = 0; // metres
};

OnRunway lf_onRunway(const Runway& runway, const FlownPoint& p) {
  const Flat end = flatFrom(runway.lat1, runway.lon1, runway.lat2, runway.lon2);
  const Flat at = flatFrom(runway.lat1, runway.lon1, p.lat, p.lon);
  const double length = std::hypot(end.x, end.y);
  if (length <= 0) return {&runway, 0, std::hypot(at.x, at.y), 0};
  const double along = (at.x * end.x + at.y * end.y) / length;
  const double across = (at.x * end.y - at.y * end.x) / length;
  // Landed towards the second threshold, or the other way.
  const bool forwards = std::abs(headingDiff(p.heading, std::atan2(end.x, end.y))) < pi / 2;
  return forwards ? OnRunway{&runway, along, across, length}
                  : OnRunway{&runway, length - along, -across, length};
}

double lf_outside(const OnRunway& r) {
  const double beyond = std::max({0.0, -r.along, r.along - r.length});
  return std::hypot(beyond, std::max(0.0, std::abs(r.across) - r.runway->widthMetres / 2));
}

TouchDown lf_touchDown(const FlownPoint& p, const std::vector<Runway>& runways) {
  TouchDown t{p.lat, p.lon};
  OnRunway best;
  for (const Runway& runway : runways) {
    const OnRunway here = lf_onRunway(runway, p);
    if (!best.runway || lf_outside(here) < lf_outside(best)) best = here;
  }
  if (!best.runway) return t;
  t.runway = best.runway->name;
  t.alongMetres = best.along;
  t.acrossMetres = best.across;
  t.onRunway = lf_outside(best) == 0;
  return t;
}

// The first frame on the stand-in's ground after a second in the air, and how long it stays there.
void lf_touchDowns(const std::vector<FlownPoint>& held, const std::vector<Runway>& runways,
                   ObjectFigures& f) {
  double airborneSince = -1;
  for (std::size_t i = 0; i < held.size(); ++i) {
    if (!held[i].onGround) {
      if (airborneSince < 0) airborneSince = held[i].wall;
      continue;
    }
    const bool landed = airborneSince >= 0 && held[i].wall - airborneSince >= airborneSecondsBeforeTouchDown;
    airborneSince = -1;
    if (!landed) continue;
    TouchDown t = lf_touchDown(held[i], runways);
    std::size_t last = i;
    while (last + 1 < held.size() && held[last + 1].onGround)
      ++last;
    t.rollOutSeconds = held[last].wall - held[i].wall;
    t.rollOutEndKnots = held[last].tas;
    f.touchDowns.push_back(t);
  }
}

// Standing still at p: parked when within the nearest stand's circle, else a hold.
void lf_stoodStill(const FlownPoint& p, double seconds, const std::vector<Stand>& stands, ObjectFigures& f) {
  ParkedSpell spell{p.lat, p.lon, seconds};
  double best = INFINITY;
  double radiusMetres = INFINITY;
  for (const Stand& stand : stands) {
    const double metres = lf_metres(p.lat, p.lon, stand.lat, stand.lon);
    if (metres >= best) continue;
    best = metres;
    radiusMetres = stand.radius * metresPerNm;
    spell.stand = stand.id;
    spell.metres = metres;
    spell.headingErrorDegrees = headingDiff(p.heading, stand.heading) * radToDeg;
  }
  (spell.metres <= radiusMetres ? f.parked : f.holds).push_back(spell);
}

void lf_parkedSpells(const std::vector<FlownPoint>& held, const std::vector<bool>& ground,
                     const std::vector<Stand>& stands, ObjectFigures& f) {
  std::size_t i = 0;
  while (i < held.size()) {
    std::size_t j = i;
    while (j + 1 < held.size() && ground[j + 1] &&
           lf_metres(held[i].lat, held[i].lon, held[j + 1].lat, held[j + 1].lon) < stillMetres)
      ++j;
    const double seconds = held[j].wall - held[i].wall;
    if (ground[i] && seconds >= parkedSeconds) lf_stoodStill(held[j], seconds, stands, f);
    i = j + 1;
  }
}

} // namespace

std::vector<FlownPoint> flownPath(const std::vector<nlohmann::json>& trace, std::string_view atcId) {
  std::vector<FlownPoint> path;
  for (const nlohmann::json& line : trace) {
    if (line.value("kind", "") != "state") continue;
    for (const nlohmann::json& o : line.at("objects"))
      if (o.value("atcId", "") == atcId) path.push_back(lf_point(line, o));
  }
  return path;
}

std::vector<FlownObject> flownObjects(const std::vector<nlohmann::json>& trace) {
  std::map<std::string, std::string> titles; // by tail number, from the create calls
  std::map<std::int64_t, FlownObject> objects;
  for (const nlohmann::json& line : trace) {
    const std::string kind = line.value("kind", "");
    if (kind == "call" && line.value("call", "") == "SimConnect_AICreateNonATCAircraft")
      titles[line.value("tail", "")] = line.value("title", "");
    if (kind != "state") continue;
    for (const nlohmann::json& o : line.at("objects")) {
      if (o.value("user", false)) continue;
      FlownObject& object = objects[o.value("id", std::int64_t{0})];
      object.id = o.value("id", std::int64_t{0});
      object.atcId = o.value("atcId", "");
      object.path.push_back(lf_point(line, o));
    }
  }
  std::vector<FlownObject> list;
  for (auto& [id, object] : objects) {
    if (const auto title = titles.find(object.atcId); title != titles.end()) object.title = title->second;
    list.push_back(std::move(object));
  }
  return list;
}

std::vector<RealAircraft> realAircraft(const std::string& capturePath) {
  std::map<std::uint32_t, RealAircraft> byHexid;
  for (const CaptureEntry& entry : readCapture(capturePath)) {
    if (entry.kind != CaptureKind::traffic) continue;
    const double hexid = lf_field(entry.payload, 1);
    if (!std::isfinite(hexid)) continue;
    RealAircraft& aircraft = byHexid[static_cast<std::uint32_t>(hexid)];
    aircraft.hexid = static_cast<std::uint32_t>(hexid);
    if (const std::string callsign = lf_name(entry.payload, 9); !callsign.empty())
      aircraft.callsign = callsign;
    if (const std::string reg = lf_name(entry.payload, 11); !reg.empty()) aircraft.registration = reg;
    if (const std::int32_t category = lf_category(lf_text(entry.payload, 28)); category >= 0)
      aircraft.category = category;
    aircraft.track.push_back({entry.offset, lf_field(entry.payload, 2), lf_field(entry.payload, 3),
                              lf_field(entry.payload, 4), lf_field(entry.payload, 6) == 1,
                              lf_field(entry.payload, 8)});
  }
  std::vector<RealAircraft> list;
  for (auto& [hexid, aircraft] : byHexid)
    list.push_back(std::move(aircraft));
  return list;
}

void dropGroundReportsAway(std::vector<RealAircraft>& real, const ParkAirport& park) {
  for (RealAircraft& aircraft : real)
    std::erase_if(aircraft.track, [&park](const RealPoint& p) {
      return isOnGround(p.altitude, p.knots, park.elevation) &&
             distanceNm(park.lat, park.lon, p.lat, p.lon) > groundRadiusNm;
    });
}

std::vector<RealPoint> realTrack(const std::string& capturePath, std::uint32_t hexid) {
  for (RealAircraft& aircraft : realAircraft(capturePath))
    if (aircraft.hexid == hexid) return std::move(aircraft.track);
  return {};
}

const RealAircraft* realFor(const std::vector<RealAircraft>& real, std::string_view atcId) {
  for (const RealAircraft& aircraft : real)
    if (!atcId.empty() && (aircraft.callsign == atcId || aircraft.registration == atcId)) return &aircraft;
  return nullptr;
}

TrackFigures judgeTrack(const std::vector<FlownPoint>& flown, const std::vector<RealPoint>& real) {
  TrackFigures figures;
  if (flown.empty() || real.size() < 2) return figures;
  const std::vector<FlownPoint> held = lf_held(flown);
  std::vector<double> distances;
  const std::size_t end = lf_endOfTrack(held, real);
  for (std::size_t i = 0; i <= end && i < held.size(); ++i) {
    const Nearest nearest = lf_nearest(held[i], real);
    if (!nearest.beyondEnd) distances.push_back(nearest.metres);
  }
  ObjectFigures steps;
  lf_steps(held, steps);
  figures.jumps = steps.jumps;
  figures.worstStepRatio = steps.worstStepRatio;
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

ObjectFigures judgeObject(const FlownObject& object, const JudgeContext& context) {
  ObjectFigures f;
  f.atcId = object.atcId;
  const std::vector<FlownPoint> held = lf_held(object.path);
  f.frames = held.size();
  const RealAircraft* real = realFor(context.real, object.atcId);
  f.category = real ? real->category : -1;
  if (f.category >= 0) f.turnLimit = valuesOf(static_cast<std::uint32_t>(f.category)).groundTurnRate;
  const auto cg = context.staticCg.find(titleKey(object.title));
  f.staticCgKnown = cg != context.staticCg.end();
  const double staticCg = f.staticCgKnown ? cg->second : 0.0;

  std::vector<bool> ground(held.size());
  const bool tracked = real && real->track.size() >= 2;
  const std::size_t end = tracked ? lf_endOfTrack(held, real->track) : 0;
  for (std::size_t i = 0; i < held.size(); ++i) {
    const FlownPoint& p = held[i];
    ground[i] = lf_onGround(p, staticCg, f.category);
    if (ground[i]) {
      ++f.groundFrames;
      const double height = p.agl - staticCg;
      if (std::abs(height) > std::abs(f.worstGroundHeightFeet)) f.worstGroundHeightFeet = height;
    }
    if (!tracked || i > end) continue;
    const Nearest nearest = lf_nearest(p, real->track);
    if (!nearest.beyondEnd) (ground[i] ? f.groundMetres : f.airMetres).push_back(nearest.metres);
  }
  if (!held.empty()) f.firstOnGround = ground.front();
  for (std::size_t i = 0; i < held.size() && lf_seconds(held.front(), held[i]) < openingSeconds; ++i)
    f.openingKnots = std::max(f.openingKnots, held[i].tas);
  lf_steps(held, f);
  lf_groundTurns(held, ground, f);
  lf_backwards(held, ground, f);
  lf_touchDowns(held, context.runways, f);
  lf_parkedSpells(held, ground, context.stands, f);
  return f;
}

std::string titleKey(std::string_view title) {
  std::string key(title);
  std::transform(key.begin(), key.end(), key.begin(), [](unsigned char c) { return std::tolower(c); });
  return key;
}

Flat flatFrom(double originLat, double originLon, double lat, double lon) {
  return {(lon - originLon) * std::cos(originLat * degToRad) * metresPerDegree,
          (lat - originLat) * metresPerDegree};
}

Spread spreadOf(std::vector<double> metres) {
  return {metres.size(), lf_quantile(metres, 0.5), lf_quantile(metres, 0.95)};
}

} // namespace ory
