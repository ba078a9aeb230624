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

bool isNullPosition(double latitude, double longitude) {
  return latitude >= 0 && latitude <= 0.0009 && longitude >= 0 && longitude <= 0.05;
}

} // namespace ory
