#pragma once
// Where the client finds the simulator: SimConnect.cfg, the first found in the public documents folder, the
// user's documents folder and the current directory; a section "[SimConnect]" for config index 0 and
// "[SimConnect.n]" for index n, with the keys Protocol, Address, Port, MaxReceiveSize and DisableNagle (as
// the SDK documents the file). Ports left open are read from the simulator's published values in the
// registry.

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace ory {

// The protocol of a section, numbered as the SDK's client numbers it internally (address families).
enum class SimProtocol : std::int32_t {
  autoOrPipe = 1, // "Auto" and "Pipe": the local pipe first, then the IP protocols
  ipv4 = 2,
  ipv6 = 23,
};

inline constexpr std::uint32_t defaultMaxReceiveSize = 41088; // bytes

struct SimConnectConfig {
  SimProtocol protocol = SimProtocol::autoOrPipe;
  std::string address;                                  // host name, or pipe server; empty: this machine
  std::string port;                                     // port number, or pipe name; empty: the published one
  std::uint32_t maxReceiveSize = defaultMaxReceiveSize; // bytes; only a larger configured value counts
  bool disableNagle = false;                            // TCP_NODELAY
  std::filesystem::path file;                           // the SimConnect.cfg read, empty when none was found
};

// One way to try: a pipe by its full name, or a host and port of one IP family.
struct SimEndpoint {
  SimProtocol protocol = SimProtocol::autoOrPipe; // autoOrPipe here means the pipe
  std::string address;                            // pipe name, or host
  std::uint16_t port = 0;                         // IP only
  std::string text() const;                       // for the log: the pipe's name or "host:port"
};

// The settings of section configIndex in the text of a SimConnect.cfg; defaults for what it lacks.
SimConnectConfig parseSimConnectConfig(std::string_view text, std::uint32_t configIndex);
// The candidate files in the order they are searched.
std::vector<std::filesystem::path> simConnectConfigCandidates();
// The settings of the first SimConnect.cfg found, or the defaults.
SimConnectConfig readSimConnectConfig(std::uint32_t configIndex);

// The simulator's published port of a protocol (registry of the current user), empty when missing.
std::string publishedPort(SimProtocol protocol);
// The endpoints to try, in order; published gives the published port of IPv4 or IPv6.
std::vector<SimEndpoint> connectionPlan(const SimConnectConfig& config,
                                        std::string (*published)(SimProtocol) = publishedPort);

} // namespace ory
