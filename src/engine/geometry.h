#pragma once
// Units and great-circle geometry on a sphere. Positions are degrees, distances nautical miles unless a name
// says otherwise, angles radians.

#include <cstdint>

namespace ory {

inline constexpr double pi = 3.141592653589793;
inline constexpr double twoPi = 2 * pi;
inline constexpr double degToRad = pi / 180;
inline constexpr double radToDeg = 180 / pi;
inline constexpr double metresPerNm = 1852.0;
inline constexpr double nmPerMetre = 1 / metresPerNm;
inline constexpr double metresPerFoot = 0.3048;
inline constexpr double feetPerMetre = 1 / metresPerFoot;
inline constexpr double feetPerNm = metresPerNm * feetPerMetre;
// Twice the earth's radius in nautical miles (2 x 3437.746770784939): the haversine arc to a distance.
inline constexpr double nmPerHalfArc = 6875.493541569878;
// The angular distance of one foot on the sphere.
inline constexpr double radiansPerFoot = 4.787404208238998e-8;
// Metres of one degree of latitude, for the flat frame of a ground curve.
inline constexpr double metresPerDegree = 111132.95;
inline constexpr std::int32_t ticksPerHour = 360000; // engine ticks of 10 ms
inline constexpr std::int32_t ticksPerSecond = 100;

double distanceNm(double lat1, double lon1, double lat2, double lon2);
// Initial great-circle bearing from the first point to the second, 0 to 2 pi.
double bearingTo(double lat1, double lon1, double lat2, double lon2);
struct LatLon {
  double lat = 0; // degrees
  double lon = 0; // degrees
};
// The point at feet along bearing (radians) from lat, lon.
LatLon destination(double lat, double lon, double bearing, double feet);
// The signed smallest angle from b to a, -pi to pi.
double headingDiff(double a, double b);
// Into 0 to 2 pi.
double wrapHeading(double heading);
// Degrees of longitude from one to the other the short way round.
double lonDelta(double from, double to);
// Ticks to cover nm at knots, rounded.
std::int32_t ticksFor(double nm, double knots);

// Latitude 0 to 0.0009 and longitude 0 to 0.05, bounds included: no position yet.
bool isNullPosition(double latitude, double longitude);

} // namespace ory
