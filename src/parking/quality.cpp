#include "parking/airport_file.h"

#include <fmt/format.h>

#include <algorithm>
#include <bitset>
#include <cmath>

namespace ory {

namespace {

// The weights count radius in nautical miles against limits meant for metres, so in practice every stand
// weighs 0.3; the archive's factors were made this way and stay comparable only if it stays.
double lf_weight(double radius) {
  if (radius <= 7.0) return 0.30000001192092896;
  if (radius <= 10.0) return 1.5;
  return 1.0;
}

double lf_score(const Stand& stand, bool soft) {
  std::int32_t count = 0;
  std::int32_t bits = 0;
  std::bitset<8> days;
  for (const StandOption& option : stand.options) {
    if (option.optionId == 0 || option.soft != soft) continue;
    ++count;
    bits += static_cast<std::int32_t>(option.halfHours.count());
    if (option.day >= 1 && option.day <= 7) days.set(static_cast<std::size_t>(option.day));
  }
  if (count == 0) return 0.0;
  return 10000.0 + std::min(20 * count, 4000) + 100.0 * static_cast<double>(days.count()) +
         2 * std::min(bits, 600);
}

std::int32_t lf_factor(double sum, double weights) {
  return std::clamp(static_cast<std::int32_t>(std::lround(sum / weights * 0.00625)), 0, 100);
}

} // namespace

QualityFactors computeQualityFactors(const std::vector<Stand>& stands) {
  if (std::all_of(stands.begin(), stands.end(), [](const Stand& s) { return s.options.empty(); })) return {};
  double weights = 0.0;
  double real = 0.0;
  double soft = 0.0;
  for (const Stand& stand : stands) {
    const double weight = lf_weight(stand.radius);
    weights += weight;
    real += weight * lf_score(stand, false);
    soft += weight * lf_score(stand, true);
  }
  return {lf_factor(real, weights), lf_factor(soft, weights)};
}

std::string formatQualityFactors(const QualityFactors& quality) {
  if (quality.real < 0 && quality.soft < 0) return "  ";
  if (quality.soft >= 0) return fmt::format("{:2}/{:2}", quality.real, quality.soft);
  return fmt::format("{:2}", quality.real);
}

} // namespace ory
