#include "base/log.h"

#include "base/exceptions.h"
#include "base/paths.h"
#include "base/version.h"
#include "os/calendar.h"

#include <fmt/format.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <mutex>

namespace ory {

namespace {

std::ofstream lf_stream;
std::atomic<bool> lf_open{false};
std::mutex lf_mutex;
char lf_buffer[1 << 16];

// "Log.txt" -> "Log0.txt": the text "0" goes before the last point.
std::filesystem::path lf_olderName(const std::filesystem::path& path) {
  const std::string name = path.filename().string();
  const auto dot = name.rfind('.');
  if (dot == std::string::npos) return {};
  return path.parent_path() / (name.substr(0, dot) + "0" + name.substr(dot));
}

void lf_rotate(const std::filesystem::path& log) {
  const auto older = lf_olderName(log);
  if (older.empty()) return;
  const auto oldest = lf_olderName(older);
  if (oldest.empty()) return;
  std::error_code ignored;
  if (std::filesystem::exists(older)) std::filesystem::rename(older, oldest, ignored);
  if (std::filesystem::exists(log)) std::filesystem::rename(log, older, ignored);
}

void lf_write(std::string_view text, bool flush) {
  if (!lf_open.load(std::memory_order_acquire)) return;
  std::lock_guard lock(lf_mutex);
  if (!lf_stream.is_open()) return;
  lf_stream << text << '\n';
  if (flush) lf_stream.flush();
}

} // namespace

void openLog() {
  const std::filesystem::path& path = logFile;
  std::lock_guard lock(lf_mutex);
  if (lf_stream.is_open()) lf_stream.close();
  lf_rotate(path);
  lf_stream.rdbuf()->pubsetbuf(lf_buffer, sizeof(lf_buffer));
  lf_stream.open(path, std::ios::out | std::ios::trunc);
  if (!lf_stream.is_open()) {
    lf_stream.clear();
    throw SysErrorException(40, fmt::format("Failed to write file {}", path.string()));
  }
  lf_stream << fmt::format("{} (utc) {} version {} for {}", utcText(std::time(nullptr)), programName,
                           programVersion, simulatorFamily)
            << '\n';
  lf_stream.flush();
  lf_open.store(true, std::memory_order_release);
}

void closeLog() {
  lf_open.store(false, std::memory_order_release);
  std::lock_guard lock(lf_mutex);
  if (lf_stream.is_open()) lf_stream.close();
}

bool logIsOpen() {
  return lf_open.load(std::memory_order_acquire);
}

void logLine(std::string_view text) {
  lf_write(text, false);
}
void logLineFlushed(std::string_view text) {
  lf_write(text, true);
}
void logWarning(std::string_view text) {
  lf_write(fmt::format("{}{}", warningPrefix, text), true);
}

void flushLog() {
  if (!lf_open.load(std::memory_order_acquire)) return;
  std::lock_guard lock(lf_mutex);
  if (lf_stream.is_open()) lf_stream.flush();
}

std::string utcText(std::time_t time) {
  const std::tm parts = utcCalendar(time);
  // asctime's fixed form, "Www Mmm dd hh:mm:ss yyyy", without its line end.
  static constexpr const char* days[] = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
  static constexpr const char* months[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                           "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
  return fmt::format("{} {} {:2} {:02}:{:02}:{:02} {}", days[parts.tm_wday], months[parts.tm_mon],
                     parts.tm_mday, parts.tm_hour, parts.tm_min, parts.tm_sec, parts.tm_year + 1900);
}

std::string timeOfDay() {
  const std::string text = utcText(std::time(nullptr));
  // The 8 characters that stand 13 from the end of asctime's text.
  return text.substr(text.size() - 13, 8);
}

} // namespace ory
