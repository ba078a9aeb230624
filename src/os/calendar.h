#pragma once
// The thread-safe form of gmtime on both builds.

#include <ctime>

namespace ory {

std::tm utcCalendar(std::time_t time);

} // namespace ory
