#pragma once
// Capture files of feedplay: traffic lines and weather reports with their offsets in seconds, and cues for
// the link. See README.md for the format.

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace ory {

enum class CaptureKind { traffic, weather, drop };

struct CaptureEntry {
  double offset = 0; // seconds after the start of the capture
  CaptureKind kind = CaptureKind::traffic;
  std::string payload;    // the traffic line or the weather JSON
  double awaySeconds = 0; // drop: how long the link stays away
};

// Throws std::runtime_error naming the file and line of a malformed entry.
std::vector<CaptureEntry> readCapture(const std::string& path);
std::string captureText(const CaptureEntry& entry); // one line of a capture file, without the line end

// One report of an aircraft, as the converter gathers it from a source.
struct TrackPoint {
  double time = 0;           // seconds since 1970
  bool milliseconds = false; // the source counts milliseconds: the line keeps that form
  std::uint32_t hexid = 0;   // ICAO 24-bit address
  double lat = 0;            // degrees
  double lon = 0;            // degrees
  double altitude = 0;       // feet, barometric
  bool onGround = false;
  double groundSpeed = 0;                  // knots
  std::optional<double> track;             // degrees true
  double verticalRate = 0;                 // feet per minute
  std::optional<double> tas;               // knots
  std::optional<double> roll;              // degrees, right wing down positive
  std::optional<double> trueHeading;       // degrees
  std::optional<double> geometricAltitude; // feet
  std::optional<double> ias;               // knots
  std::string callsign, type, registration, origin, destination, category;
  std::string kind = "adsb_icao"; // the feed's message kind
};

// The point as RealTraffic's traffic line (RTTFC), with its checksum.
std::string trafficLine(const TrackPoint& point);
// The checksum of a line: CRC-32 of every byte before its last comma.
std::uint32_t lineChecksum(std::string_view lineWithoutChecksum);
// line with its timestamp (field 14) set to nowSeconds, in the unit the line used, and its checksum renewed.
// A line of fewer than 30 fields goes out as it is.
std::string retimedLine(std::string_view line, double nowSeconds);

} // namespace ory
