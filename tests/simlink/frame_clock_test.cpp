// The frame clock against the arrivals of "Frame" events: frames on a grid or as irregular as a simulator's,
// the simulator thread on time or held up, the simulator late with a burst of frames, a pause.
#include "simlink/frame_clock.h"

#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

namespace ory {
namespace {

constexpr double lookMs = 1; // the thread looks for events every millisecond

struct Event {
  double arrival = 0;  // milliseconds
  double earliest = 0; // the thread's last look that found nothing
  double frame = 0;    // the frame time wanted
};

struct Case {
  std::string what;
  std::vector<Event> events;
};

// Frames at the given times, each read on time.
std::vector<Event> lf_onTime(const std::vector<double>& frames) {
  std::vector<Event> events;
  for (const double t : frames)
    events.push_back({t + 0.3, t + 0.3 - lookMs, t});
  return events;
}

std::vector<double> lf_grid(double period, int count) {
  std::vector<double> times;
  for (int i = 0; i < count; ++i)
    times.push_back(i * period);
  return times;
}

TEST(FrameClockTest, eachFrameGetsItsOwnTimeWhoeverWasLate) {
  const double period = 1000.0 / 30;
  std::vector<Case> cases;
  cases.push_back({"on time, on a grid", lf_onTime(lf_grid(period, 40))});

  std::vector<double> irregular;
  for (int i = 0; i < 40; ++i)
    irregular.push_back(i * 32.0 + (i % 3 == 0 ? 17 : 0));
  cases.push_back({"on time, frames as irregular as a simulator's", lf_onTime(irregular)});

  Case heldUp{"the thread held up 30 ms once", lf_onTime(lf_grid(period, 40))};
  heldUp.events[30].arrival += 30;
  heldUp.events[30].earliest = heldUp.events[29].arrival + lookMs;
  cases.push_back(heldUp);

  // The simulator itself was 70 ms late and catches up: three frames come at once, and are late indeed.
  Case burst{"a burst of late frames", lf_onTime(lf_grid(period, 40))};
  for (std::size_t i = 30; i < 33; ++i) {
    const double at = 30 * period + 70 + 0.1 * static_cast<double>(i - 30);
    burst.events[i] = {at, 30 * period + 70 - lookMs, at};
  }
  cases.push_back(burst);

  Case pause{"a two-second pause", lf_onTime(lf_grid(period, 40))};
  for (std::size_t i = 20; i < 40; ++i)
    pause.events[i] = {pause.events[i].arrival + 2000, pause.events[i].earliest + 2000,
                       pause.events[i].frame + 2000};
  cases.push_back(pause);

  for (const Case& c : cases) {
    FrameClock clock;
    const auto start = SteadyTime{} + std::chrono::hours(1);
    const auto at = [&](double ms) { return start + std::chrono::microseconds(std::llround(ms * 1000)); };
    for (std::size_t i = 0; i < c.events.size(); ++i) {
      const Event& e = c.events[i];
      const double frame =
          std::chrono::duration<double, std::milli>(frameTime(clock, at(e.earliest), at(e.arrival)) - start)
              .count();
      EXPECT_NEAR(frame, e.frame, 1.5) << c.what << ", event " << i;
    }
  }
}

} // namespace
} // namespace ory
