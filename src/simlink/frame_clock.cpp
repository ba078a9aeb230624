#include "simlink/frame_clock.h"

#include <algorithm>

namespace ory {

namespace {

constexpr double periodWeight = 0.05; // of each new interval in the average period
constexpr double spreadFactor = 3; // an interval counts at most this many times the period, at least its part
constexpr double shortestPeriod = 0.002; // seconds
constexpr double longestPeriod = 0.5;    // seconds

double lf_seconds(SteadyTime::duration d) {
  return std::chrono::duration<double>(d).count();
}

SteadyTime::duration lf_duration(double seconds) {
  return std::chrono::duration_cast<SteadyTime::duration>(std::chrono::duration<double>(seconds));
}

} // namespace

SteadyTime frameTime(FrameClock& clock, SteadyTime earliest, SteadyTime arrival) {
  if (!clock.started) {
    clock = {arrival, arrival, 0, true};
    return arrival;
  }
  const double interval = std::clamp(lf_seconds(arrival - clock.arrival), shortestPeriod, longestPeriod);
  const double period = clock.periodSeconds == 0 ? interval : clock.periodSeconds;
  clock.arrival = arrival;
  clock.frame = std::clamp(clock.frame + lf_duration(period), std::min(earliest, arrival), arrival);
  // A pause or two events read at once move the average a little, and it finds its way back.
  clock.periodSeconds =
      period + periodWeight * (std::clamp(interval, period / spreadFactor, period * spreadFactor) - period);
  return clock.frame;
}

} // namespace ory
