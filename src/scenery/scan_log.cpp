#include "scenery/scan_log.h"

#include <fstream>
#include <mutex>

namespace ory {

namespace {
std::mutex lf_lock;
std::vector<std::string> lf_lines;
} // namespace

void scanLog(std::string text) {
  const std::lock_guard hold(lf_lock);
  lf_lines.push_back(std::move(text));
}

std::vector<std::string> scanLogLines() {
  const std::lock_guard hold(lf_lock);
  return lf_lines;
}

void clearScanLog() {
  const std::lock_guard hold(lf_lock);
  lf_lines.clear();
  lf_lines.reserve(2048);
}

bool writeScanLog(const std::filesystem::path& path) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  const std::lock_guard hold(lf_lock);
  for (const std::string& line : lf_lines)
    out << line << '\n';
  return static_cast<bool>(out.flush());
}

} // namespace ory
