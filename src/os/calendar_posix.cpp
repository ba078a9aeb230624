#include "os/calendar.h"

namespace ory {

std::tm utcCalendar(std::time_t time) {
  std::tm parts{};
  gmtime_r(&time, &parts);
  return parts;
}

} // namespace ory
