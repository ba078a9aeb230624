#pragma once
// The traffic reader: one RealTraffic report per datagram on UDP 49005, turned into a TrafficRecord on
// trafficInbox when it is worth keeping. All the cheap refusing happens here, on the reader's own thread, on
// views into the receive buffer.

#include "feed/traffic_record.h"
#include "feed/udp_reader.h"

#include <atomic>
#include <cstdint>
#include <mutex>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace ory {

// What became of one line.
enum class LineOutcome {
  queued,  // pushed on trafficInbox
  dropped, // processed whole, but the queue was closed
  refused, // left quietly by a rule of the feed
  failed,  // a field could not be read; failure holds its number
};
struct LineResult {
  LineOutcome outcome = LineOutcome::refused;
  int failure = 0; // 640, 641, 648, 691, 741 to 750; 0 unless failed
};

class TrafficReader : public UdpReader {
public:
  TrafficReader() : UdpReader("Traffic Reader", "TrafficReader ") {}
  void processData() override; // ignores ground vehicles (" VEH"), splits, processLine
  void onConnected() override;
  void onStopped() override;
  LineResult processLine(); // fields set; the record goes to trafficInbox if it passes

  TrafficRecord record;                 // the record being built, reset at each line
  std::vector<std::string_view> fields; // the fields of the line; keeps its capacity
  std::atomic<double> userLat{0};       // degrees, copied from the user's state every 5 seconds
  std::atomic<double> userLon{0};       // degrees
  std::atomic<bool> hasParkAirport{false};
  std::atomic<double> parkLat{0};               // degrees, the current park airport
  std::atomic<double> parkLon{0};               // degrees
  std::atomic<double> parkElevation{0};         // feet
  std::atomic<bool> collectingCallsigns{false}; // feedCallsigns is being filled
  std::set<std::string> feedCallsigns;          // callsigns heard while collecting; under callsignLock
  std::mutex callsignLock;
  std::atomic<std::int32_t> qnhShadow{1013}; // last QNH, hPa
};

// Splits line at every comma, keeping empty fields; the rest after the last comma only when not empty.
void splitFields(std::string_view line, std::vector<std::string_view>& fields);
// Reports on the ground are taken only this near the park airport, nautical miles.
inline constexpr double groundRadiusNm = 5;
// On the ground by altitude, ground speed and the park airport's elevation (-1000 when there is none).
bool isOnGround(double altitudeFt, double groundSpeedKt, double elevationFt);
// True air speed when the feed has none, by altitude.
double tasFromAltitude(double altitudeFt);

} // namespace ory
