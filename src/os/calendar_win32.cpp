#include "os/calendar.h"

namespace ory {

std::tm utcCalendar(std::time_t TIME) {
  std::tm parts{};
  gmtime_s(&parts, &TIME);
  return parts;
}

} // namespace ory
