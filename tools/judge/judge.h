#pragma once
// What a pilot would see of one aircraft, measured from the simulator stand-in's trace against the real track
// it was fed: how far the flown path lies from the real one, and steps between frames that no aircraft could
// fly.

#include <nlohmann/json.hpp>

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace ory {

// One frame of the object, from a "state" line.
struct FlownPoint {
  double wall = 0;     // seconds since the stand-in started
  double time = 0;     // scenario seconds: one frame period a frame
  double lat = 0;      // degrees
  double lon = 0;      // degrees
  double altitude = 0; // feet
  double tas = 0;      // knots, as the program set it
  bool frozen = false; // released and frozen in all three parts
};

// One report of the real aircraft.
struct RealPoint {
  double offset = 0;   // seconds into the capture
  double lat = 0;      // degrees
  double lon = 0;      // degrees
  double altitude = 0; // feet
};

struct TrackFigures {
  std::size_t frames = 0;    // frames after the object was released and frozen
  std::size_t onTrack = 0;   // of these, frames abreast of the real track, not beyond its end
  double medianMetres = 0;   // distance from the nearest point of the real track
  double p95Metres = 0;      //
  double maxMetres = 0;      //
  std::size_t jumps = 0;     // steps faster than twice the set speed plus 10 knots
  double worstStepRatio = 0; // the largest step against that bound
};

// The frames of the object whose tail number is atcId, from the trace's "state" lines, in order.
std::vector<FlownPoint> flownPath(const std::vector<nlohmann::json>& trace, std::string_view atcId);
// The reports of hexid in a feedplay capture file.
std::vector<RealPoint> realTrack(const std::string& capturePath, std::uint32_t hexid);
TrackFigures judgeTrack(const std::vector<FlownPoint>& flown, const std::vector<RealPoint>& real);
std::string figuresText(const TrackFigures& figures);

} // namespace ory
