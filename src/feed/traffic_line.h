#pragma once
// The fields of RealTraffic's traffic line (RTTFC), counted from 0 as splitFields (traffic_reader.h) gives
// them.

#include <cstddef>

namespace ory {

enum TrafficField : std::size_t {
  hexidField = 1,
  latField = 2,
  lonField = 3,
  altitudeField = 4,
  verticalSpeedField = 5,
  onGroundField = 6,
  trackField = 7,
  groundSpeedField = 8,
  callsignField = 9,
  typeField = 10,
  registrationField = 11,
  originField = 12,
  destinationField = 13,
  timestampField = 14,
  sourceField = 15,
  messageKindField = 17,
  tasField = 20,
  rollField = 23,
  trueHeadingField = 25,
  categoryField = 28,
  checksumField = 29,
};

inline constexpr std::size_t fieldsOfALine = 29;            // all that the reader needs
inline constexpr std::size_t fieldsWithChecksum = 30;       // a whole line as RealTraffic sends it
inline constexpr double millisecondsFrom = 171644617100.79; // a timestamp above this counts milliseconds

} // namespace ory
