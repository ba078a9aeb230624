#pragma once
// The QNH reader: RealTraffic's weather report for the user's area, one JSON text per datagram on UDP 49004,
// of which only the key "QNH" is used.

#include "feed/udp_reader.h"

#include <atomic>
#include <cstdint>

namespace ory {

inline constexpr std::int32_t standardQnh = 1013; // hPa

extern std::atomic<std::int32_t> qnhForEngine; // hPa, corrects the feed's altitudes

class QnhReader : public UdpReader {
public:
  QnhReader() : UdpReader("QNH Reader", "WeatherReader") {}
  void processData() override; // parses line whole
  void onConnected() override;
  void onStopped() override;

  std::atomic<std::int32_t> lastQnh{standardQnh}; // hPa
};

} // namespace ory
