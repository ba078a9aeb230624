#pragma once
// Timer resolution: millisecond sleeps for the 10-ms loop (timeBeginPeriod on Windows, nothing on POSIX).

namespace ory {

void beginTimerPeriod();
void endTimerPeriod();

// Millisecond sleeps for the life of the object.
class TimerPeriod {
public:
  TimerPeriod() { beginTimerPeriod(); }
  ~TimerPeriod() { endTimerPeriod(); }
  TimerPeriod(const TimerPeriod&) = delete;
  TimerPeriod& operator=(const TimerPeriod&) = delete;
};

} // namespace ory
