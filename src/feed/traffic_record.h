#pragma once
// One aircraft report of the feed, as the traffic reader hands it to the engine.

#include <cstdint>
#include <string>

namespace ory {

// One position of a real aircraft.
struct PositionSlot {
  double lat = 0;              // degrees, north positive
  double lon = 0;              // degrees, east positive
  double roll = 0;             // radians, the feed's roll with its sign turned (the simulator's sign)
  bool hasRoll = false;        // roll came from the feed
  double trueHeading = 0;      // radians, above 0 up to 2 pi
  bool hasHeading = false;     // trueHeading is valid
  double altitude = 0;         // feet, barometric as the feed gives it; 0 on the ground
  double groundSpeed = 0;      // knots
  double track = 0;            // degrees true
  double verticalSpeed = 0;    // feet per minute
  double tas = 0;              // knots, true air speed
  std::int32_t time = 0;       // engine tick at which the aircraft is to be here
  bool airborne = false;       // in flight, not on the ground
  bool stopped = false;        // no movement from the slot before; always false from the feed
  bool hasTrueHeading = false; // the feed measured the true heading (ADS-B)
};

// All strings may be empty.
struct TrafficRecord {
  std::string airline;     // left empty by the reader
  std::string type;        // ICAO type designator
  std::string origin;      // airport code
  std::string destination; // airport code
  std::string callsign;
  std::string callsignIn;  // left empty by the reader
  std::string callsignOut; // left empty by the reader
  std::string regcode;     // registration
  PositionSlot slot;
  double timestamp = 0;       // seconds since 1970
  std::uint32_t hexid = 0;    // ICAO 24-bit address; up to 10,000 never comes from the feed
  std::uint32_t checksum = 0; // the line's last field
};

} // namespace ory
