#include "engine/geometry.h"

#include <algorithm>
#include <cmath>

namespace ory {

double distanceNm(double lat1, double lon1, double lat2, double lon2) {
  const double sinLat = std::sin((lat2 - lat1) * degToRad * 0.5);
  const double sinLon = std::sin((lon2 - lon1) * degToRad * 0.5);
  const double haversine =
      sinLat * sinLat + std::cos(lat1 * degToRad) * std::cos(lat2 * degToRad) * sinLon * sinLon;
  return nmPerHalfArc * std::asin(std::sqrt(std::min(1.0, haversine)));
}

double bearingTo(double lat1, double lon1, double lat2, double lon2) {
  const double phi1 = lat1 * degToRad;
  const double phi2 = lat2 * degToRad;
  const double deltaLon = (lon2 - lon1) * degToRad;
  const double y = std::sin(deltaLon) * std::cos(phi2);
  const double x = std::cos(phi1) * std::sin(phi2) - std::sin(phi1) * std::cos(phi2) * std::cos(deltaLon);
  return wrapHeading(std::atan2(y, x));
}

LatLon destination(double lat, double lon, double bearing, double feet) {
  const double arc = feet * radiansPerFoot;
  const double phi1 = lat * degToRad;
  const double phi2 =
      std::asin(std::sin(phi1) * std::cos(arc) + std::cos(phi1) * std::sin(arc) * std::cos(bearing));
  const double lambda = lon * degToRad + std::atan2(std::sin(bearing) * std::sin(arc) * std::cos(phi1),
                                                    std::cos(arc) - std::sin(phi1) * std::sin(phi2));
  double lonOut = lambda * radToDeg;
  if (lonOut > 180) lonOut -= 360;
  if (lonOut < -180) lonOut += 360;
  return {phi2 * radToDeg, lonOut};
}

double headingDiff(double a, double b) {
  double d = std::fmod(a - b, twoPi);
  if (d > pi) d -= twoPi;
  if (d < -pi) d += twoPi;
  return d;
}

double wrapHeading(double heading) {
  double h = std::fmod(heading, twoPi);
  if (h < 0) h += twoPi;
  return h;
}

double lonDelta(double from, double to) {
  double d = to - from;
  if (d > 180) d -= 360;
  if (d < -180) d += 360;
  return d;
}

std::int32_t ticksFor(double nm, double knots) {
  return static_cast<std::int32_t>(std::lround(nm * ticksPerHour / knots));
}

bool isNullPosition(double latitude, double longitude) {
  return latitude >= 0 && latitude <= 0.0009 && longitude >= 0 && longitude <= 0.05;
}

} // namespace ory
