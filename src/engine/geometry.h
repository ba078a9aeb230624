#pragma once
// Units and great-circle geometry on a sphere. Positions are degrees, distances nautical miles unless a name
// says otherwise, angles radians.

namespace ory {

inline constexpr double pi = 3.141592653589793;
inline constexpr double twoPi = 2 * pi;
inline constexpr double degToRad = pi / 180;
inline constexpr double radToDeg = 180 / pi;
inline constexpr double metresPerNm = 1852.0;
inline constexpr double nmPerMetre = 1 / metresPerNm;
inline constexpr double metresPerFoot = 0.3048;
inline constexpr double feetPerMetre = 1 / metresPerFoot;
// Twice the earth's radius in nautical miles (2 x 3437.746770784939): the haversine arc to a distance.
inline constexpr double nmPerHalfArc = 6875.493541569878;

double distanceNm(double lat1, double lon1, double lat2, double lon2);
// Latitude 0 to 0.0009 and longitude 0 to 0.05, bounds included: no position yet.
bool isNullPosition(double latitude, double longitude);

} // namespace ory
