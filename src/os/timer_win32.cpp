#include "os/timer.h"

#include <timeapi.h>
#include <windows.h>

namespace ory {

void beginTimerPeriod() {
  timeBeginPeriod(1);
}
void endTimerPeriod() {
  timeEndPeriod(1);
}

} // namespace ory
