#pragma once
// The player: RealTraffic's side of the program's link and feed.

#include <cstdint>
#include <string>

namespace ory {

struct PlayOptions {
  std::string capture;
  double speed = 1;                 // 2 plays twice as fast
  std::string host = "127.0.0.1";   // the program's PC
  std::uint16_t port = 10747;       // the program's TCP port
  int level = 2;                    // the licence level in the version reply: 2 professional, 1 standard
  std::string version = "feedplay"; // the version text in the reply
  std::string record;               // file that receives every line the program sends
  bool link = true;                 // false: only the UDP feed, as for a RealTraffic on another PC
  bool startAtOnce = false;         // false: play from the first position the program sends
  double linger = -1; // seconds to stay linked after the capture; below 0 until the program ends
  std::uint16_t trafficPort = 49005;
  std::uint16_t weatherPort = 49004;
  std::string udpHost = "127.0.0.1";
};

// Returns the process exit code.
int playCapture(const PlayOptions& options);

} // namespace ory
