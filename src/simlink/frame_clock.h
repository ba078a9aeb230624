#pragma once
// When the simulator showed a frame. Its "Frame" event reaches the simulator thread a moment after the frame,
// or late when the thread was held up. Positions are sent for the frame's own time: sent for the moment of a
// late send, an aircraft would leap at that frame and stand still at the next.

#include <chrono>

namespace ory {

using SteadyTime = std::chrono::steady_clock::time_point;

struct FrameClock {
  SteadyTime frame{};       // the last frame's time
  SteadyTime arrival{};     // when its event was read
  double periodSeconds = 0; // between frames, averaged; 0 before the second frame
  bool started = false;
};

// The time of the frame whose event is read at arrival. The event came after earliest, when the thread last
// found nothing to read: a thread that looks every millisecond takes the arrival, a thread held up takes the
// frame that was due within its gap.
SteadyTime frameTime(FrameClock& clock, SteadyTime earliest, SteadyTime arrival);

} // namespace ory
