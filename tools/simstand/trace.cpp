#include "trace.h"

namespace ory {

bool openTrace(Trace& TRACE, const std::filesystem::path& FILE) {
  TRACE.out.open(FILE, std::ios::binary | std::ios::trunc);
  TRACE.start = std::chrono::steady_clock::now();
  return TRACE.out.good();
}

void traceLine(Trace& TRACE, nlohmann::json LINE) {
  const auto wall = std::chrono::steady_clock::now() - TRACE.start;
  LINE["wall"] = std::chrono::duration_cast<std::chrono::milliseconds>(wall).count();
  TRACE.out << LINE.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace) << '\n';
  TRACE.out.flush();
}

} // namespace ory
