#include "os/timer.h"

namespace ory {

void beginTimerPeriod() {}
void endTimerPeriod() {}

} // namespace ory
