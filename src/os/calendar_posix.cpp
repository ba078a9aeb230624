#include "os/calendar.h"

namespace ory {

std::tm utcCalendar(std::time_t TIME) {
  std::tm parts{};
  gmtime_r(&TIME, &parts);
  return parts;
}

} // namespace ory
