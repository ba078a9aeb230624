#include "feed/qnh_reader.h"

#include "base/display.h"
#include "base/log.h"
#include "feed/feed.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <cmath>
#include <optional>
#include <stdexcept>
#include <string>

namespace ory {

std::atomic<std::int32_t> qnhForEngine{standardQnh};

namespace {

constexpr std::int64_t lowestQnh = 930;
constexpr std::int64_t highestQnh = 1080; // above this a report counts hundredths of an inch of mercury
constexpr double hpaPerHundredthInch = 0.33865307;

// Integral values of a large float stay in range of the checks below.
std::int64_t lf_rounded(double value) {
  if (!(value > -1e9 && value < 1e9)) return value > 0 ? 1'000'000'000 : -1'000'000'000;
  return static_cast<std::int64_t>(std::llround(value));
}

// The report's value, or nothing when the datagram is finished here.
std::optional<std::int64_t> lf_qnhOf(const nlohmann::json& report, std::string_view line) {
  const auto found = report.is_object() ? report.find("QNH") : report.end();
  if (found == report.end() || found->is_null()) {
    logLine(fmt::format("no QNH {}", line));
    return std::nullopt;
  }
  if (found->is_number_unsigned()) {
    const auto value = found->get<std::uint64_t>();
    return value > 1'000'000'000u ? 1'000'000'000 : static_cast<std::int64_t>(value);
  }
  if (found->is_number_integer()) return lf_rounded(static_cast<double>(found->get<std::int64_t>()));
  if (found->is_number_float()) return lf_rounded(found->get<double>());
  if (found->is_string()) {
    const auto& text = found->get_ref<const std::string&>();
    try {
      return std::stol(text); // cuts at the first character that is not part of a whole number
    } catch (const std::invalid_argument&) {
      logLine(fmt::format("QNH string invalid arg: {}", text));
    } catch (const std::out_of_range&) {
      logLine(fmt::format("QNH string out of range: {}", text));
    } catch (const std::exception& e) {
      logLine(fmt::format("Exception {}, in {}", e.what(), text));
    }
    return std::nullopt;
  }
  logLine(fmt::format("no QNH {}", line));
  return standardQnh;
}

} // namespace

void QnhReader::processData() {
  nlohmann::json report;
  try {
    report = nlohmann::json::parse(line);
  } catch (const nlohmann::json::exception& e) {
    logLine(fmt::format("Exception {}, in {}", e.what(), line));
    return;
  }
  std::optional<std::int64_t> qnh = lf_qnhOf(report, line);
  if (!qnh) return;
  std::int64_t num = *qnh;
  if (num > highestQnh) num = lf_rounded(static_cast<double>(num) * hpaPerHundredthInch);
  if (num < lowestQnh || num > highestQnh) {
    logLine(fmt::format("? Strange QNH {} found in {}", num, line));
    return;
  }
  // 1013 is also what a missing value gives, so it always refreshes the window.
  if (num == lastQnh && num != standardQnh) return;
  const auto value = static_cast<std::int32_t>(num);
  lastQnh = value;
  trafficReader.qnhShadow = value;
  qnhForEngine = value;
  display.qnh = value;
  FeedMark stale = FeedMark::stale;
  display.weatherMark.compare_exchange_strong(stale, FeedMark::running);
  repaintWindow();
}

void QnhReader::onConnected() {
  display.weatherMark = FeedMark::running;
  repaintWindow();
}

void QnhReader::onStopped() {
  display.weatherMark = FeedMark::notConnected;
  logLine("QNH Reader has stopped");
}

} // namespace ory
