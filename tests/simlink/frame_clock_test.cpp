// The frame clock against event arrivals of a steady 30 frames a second with the simulator thread held up,
// paused, or the frame rate falling.
#include "simlink/frame_clock.h"

#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

namespace ory {
namespace {

struct Arrivals {
  std::string what;
  std::vector<double> arrivals; // milliseconds
  std::vector<double> frames;   // the frame times wanted, milliseconds; NAN: not checked
  double tolerance = 0;         // milliseconds
};

std::vector<double> lf_grid(double from, double period, int count) {
  std::vector<double> times;
  for (int i = 0; i < count; ++i)
    times.push_back(from + i * period);
  return times;
}

TEST(FrameClockTest, FramesFallOnTheirGridWhateverTheArrivals) {
  const double period = 1000.0 / 30;
  std::vector<Arrivals> cases;
  cases.push_back({"on time", lf_grid(0, period, 40), lf_grid(0, period, 40), 0.01});
  Arrivals late{"one event 30 ms late", lf_grid(0, period, 40), lf_grid(0, period, 40), 10};
  late.arrivals[30] += 30;
  cases.push_back(late);
  Arrivals jitter{"events up to 20 ms late", lf_grid(0, period, 60), lf_grid(0, period, 60), 12};
  for (std::size_t i = 20; i < 55; ++i)
    jitter.arrivals[i] += (i * 7) % 21;
  for (std::size_t i = 0; i < 20; ++i)
    jitter.frames[i] = NAN;
  cases.push_back(jitter);
  Arrivals pause{"a two-second pause", lf_grid(0, period, 40), lf_grid(0, period, 40), 0.01};
  for (std::size_t i = 20; i < 40; ++i) {
    pause.arrivals[i] += 2000;
    pause.frames[i] += 2000;
  }
  cases.push_back(pause);
  Arrivals slower{"the frame rate halves", lf_grid(0, period, 30), lf_grid(0, period, 30), 3 * period};
  for (const double t : lf_grid(30 * period, 2 * period, 90)) {
    slower.arrivals.push_back(t);
    slower.frames.push_back(t);
  }
  cases.push_back(slower);

  for (const Arrivals& c : cases) {
    FrameClock clock;
    const auto start = SteadyTime{} + std::chrono::hours(1);
    double worst = 0;
    for (std::size_t i = 0; i < c.arrivals.size(); ++i) {
      const auto arrival = start + std::chrono::microseconds(std::llround(c.arrivals[i] * 1000));
      const double frame =
          std::chrono::duration<double, std::milli>(frameTime(clock, arrival) - start).count();
      EXPECT_LE(frame, c.arrivals[i] + 0.01) << c.what << ": a frame never after its event, event " << i;
      if (std::isnan(c.frames[i])) continue;
      EXPECT_NEAR(frame, c.frames[i], c.tolerance) << c.what << ", event " << i;
      if (i + 5 >= c.arrivals.size()) worst = std::max(worst, std::abs(frame - c.frames[i]));
    }
    EXPECT_LT(worst, 2) << c.what << ": on the grid again once the events are";
  }
}

} // namespace
} // namespace ory
