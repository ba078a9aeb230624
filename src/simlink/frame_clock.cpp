#include "simlink/frame_clock.h"

#include <algorithm>

namespace ory {

namespace {

constexpr double periodWeight = 0.05; // of each new interval in the average period
constexpr double followWeight = 0.25; // of an event's lateness taken into the clock
constexpr double gapPeriods = 3; // an event later than this: a pause or a slow frame, the clock starts anew
constexpr double shortestPeriod = 0.002; // seconds
constexpr double longestPeriod = 0.5;    // seconds

double lf_seconds(SteadyTime::duration d) {
  return std::chrono::duration<double>(d).count();
}

SteadyTime::duration lf_duration(double seconds) {
  return std::chrono::duration_cast<SteadyTime::duration>(std::chrono::duration<double>(seconds));
}

} // namespace

SteadyTime frameTime(FrameClock& clock, SteadyTime arrival) {
  if (!clock.started) {
    clock = {arrival, arrival, 0, true};
    return arrival;
  }
  const double interval = std::clamp(lf_seconds(arrival - clock.arrival), shortestPeriod, longestPeriod);
  clock.arrival = arrival;
  const double period = clock.periodSeconds;
  // A pause or two events read at once move the average a little, and it finds its way back.
  clock.periodSeconds =
      period == 0
          ? interval
          : period + periodWeight * (std::clamp(interval, period / gapPeriods, period * gapPeriods) - period);
  // An event never comes before its frame; the earliest events tell where the frames fall.
  const SteadyTime due = std::min(clock.frame + lf_duration(clock.periodSeconds), arrival);
  const double late = lf_seconds(arrival - due);
  clock.frame = late > gapPeriods * clock.periodSeconds ? arrival : due + lf_duration(late * followWeight);
  return clock.frame;
}

} // namespace ory
