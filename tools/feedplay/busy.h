#pragma once
// A busy sky made of real tracks: copies of the aircraft of a capture, each a window of its real reports,
// started one after another and moved to a random place around a centre, under identities of their own.

#include <cstddef>
#include <cstdint>
#include <string>

namespace ory {

struct BusyOptions {
  std::string input;         // a capture file
  std::string output;        // the busy capture file
  double centreLat = 0;      // degrees
  double centreLon = 0;      // degrees
  double radiusNm = 15;      // copies start within this of the centre
  std::size_t copies = 200;  //
  double everySeconds = 1;   // between the starts of two copies
  double lifeSeconds = 180;  // of real reports each copy plays
  std::uint32_t seed = 1;    // the same seed makes the same capture
  std::size_t firstCopy = 0; // the number of the first copy, which its identity is made of
};

// Returns the number of traffic lines written; throws std::runtime_error on an unreadable capture or one
// without an aircraft of two reports or more.
std::size_t makeBusyCapture(const BusyOptions& options);

} // namespace ory
