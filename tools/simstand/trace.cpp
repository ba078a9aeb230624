#include "trace.h"

namespace ory {

bool openTrace(Trace& trace, const std::filesystem::path& file) {
  trace.out.open(file, std::ios::binary | std::ios::trunc);
  trace.start = std::chrono::steady_clock::now();
  return trace.out.good();
}

void traceLine(Trace& trace, nlohmann::json line) {
  const auto wall = std::chrono::steady_clock::now() - trace.start;
  line["wall"] = std::chrono::duration_cast<std::chrono::milliseconds>(wall).count();
  trace.out << line.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace) << '\n';
  trace.out.flush();
}

} // namespace ory
