#pragma once
// The stand-in's trace: JSON Lines, one object per line, each written whole and flushed, so that the file is
// complete up to its last line whenever the stand-in stops.

#include <nlohmann/json.hpp>

#include <chrono>
#include <filesystem>
#include <fstream>

namespace ory {

struct Trace {
  std::ofstream out;
  std::chrono::steady_clock::time_point start = std::chrono::steady_clock::now();
};

bool openTrace(Trace& trace, const std::filesystem::path& file);
// Writes line with "wall", the milliseconds since the trace began, added.
void traceLine(Trace& trace, nlohmann::json line);

} // namespace ory
