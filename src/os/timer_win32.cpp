#include "os/timer.h"

#include <windows.h>

#include <timeapi.h>

namespace ory {

void beginTimerPeriod() {
  timeBeginPeriod(1);
}
void endTimerPeriod() {
  timeEndPeriod(1);
}

} // namespace ory
