#include "report.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>

namespace ory {

namespace {

std::string_view lf_mark(bool ok) {
  return ok ? "ok" : "BEYOND";
}

std::string lf_spread(std::string_view what, const std::vector<double>& metres, double limit) {
  if (metres.empty()) return fmt::format("{}: no frames", what);
  const Spread s = spreadOf(metres);
  return fmt::format("{}: median {:.1f} m ({} within {:.0f} m), 95th percentile {:.1f} m, {} frames", what,
                     s.median, lf_mark(s.median <= limit), limit, s.p95, s.count);
}

std::string lf_turn(double rate, std::int32_t category, double limit) {
  if (category < 0) return fmt::format("largest ground turn {:.1f} deg/s (category unknown)", rate);
  return fmt::format("largest ground turn {:.1f} deg/s ({} within category {}'s {:.0f} deg/s)", rate,
                     lf_mark(rate <= limit), category, limit);
}

std::string lf_touchDown(const TouchDown& t) {
  const std::string place =
      t.runway.empty()
          ? std::string("no runway given")
          : fmt::format("runway {}: {:.0f} m past the threshold, {:.1f} m off the centre line ({})", t.runway,
                        t.alongMetres, t.acrossMetres, t.onRunway ? "ok, on it" : "BEYOND, off it");
  return fmt::format("  touch-down at {:.6f},{:.6f}, {}; then {:.0f} s on the ground, ending at {:.0f} kt\n",
                     t.lat, t.lon, place, t.rollOutSeconds, t.rollOutEndKnots);
}

bool lf_onStand(const ParkedSpell& p) {
  return !p.stand.empty() && p.metres <= standLimitMetres &&
         std::abs(p.headingErrorDegrees) <= standLimitDegrees;
}

std::string lf_parked(const ParkedSpell& p) {
  if (p.stand.empty())
    return fmt::format("  parked {:.0f} s at {:.6f},{:.6f}, no stands known\n", p.seconds, p.lat, p.lon);
  return fmt::format(
      "  parked {:.0f} s at {:.6f},{:.6f}: stand {} {:.1f} m away, heading off by {:.1f} deg ({})\n",
      p.seconds, p.lat, p.lon, p.stand, p.metres, p.headingErrorDegrees, lf_mark(lf_onStand(p)));
}

} // namespace

std::string objectText(const ObjectFigures& f) {
  std::string text = fmt::format("{}: {} frames released and frozen, {} of them on the ground\n", f.atcId,
                                 f.frames, f.groundFrames);
  text +=
      fmt::format("  fastest step {:.0f} kt where the engine set {:.0f} kt: {:.2f} of twice that plus 10 kt; "
                  "{} jumps ({})\n",
                  f.worstKnots, f.engineKnots, f.worstStepRatio, f.jumps, lf_mark(f.jumps == 0));
  text += fmt::format("  {}; height over the ground plus static CG on the ground: worst {:+.2f} ft ({})\n",
                      lf_turn(f.groundTurnRate, f.category, f.turnLimit), f.worstGroundHeightFeet,
                      f.staticCgKnown ? lf_mark(std::abs(f.worstGroundHeightFeet) <= groundHeightLimitFeet)
                                      : "the title is not in the scenario: its static CG taken as 0");
  text += fmt::format("  moved tail first on the ground {:.0f} m\n", f.backwardsMetres);
  text += "  from the real track, " + lf_spread("ground", f.groundMetres, groundMedianLimitMetres) + "\n";
  text += "  from the real track, " + lf_spread("air", f.airMetres, airMedianLimitMetres) + "\n";
  for (const TouchDown& t : f.touchDowns)
    text += lf_touchDown(t);
  for (const ParkedSpell& p : f.parked)
    text += lf_parked(p);
  for (const ParkedSpell& p : f.holds)
    text += fmt::format("  stood {:.0f} s at {:.6f},{:.6f}, off the stands: {:.1f} m from {}\n", p.seconds,
                        p.lat, p.lon, p.metres, p.stand);
  return text;
}

std::string overallText(const std::vector<ObjectFigures>& figures) {
  std::vector<double> ground, air;
  std::size_t jumps = 0, overTurning = 0, touchDowns = 0, offRunway = 0, parked = 0, offStand = 0;
  double worstRatio = 0, worstHeight = 0, worstTurn = 0;
  for (const ObjectFigures& f : figures) {
    ground.insert(ground.end(), f.groundMetres.begin(), f.groundMetres.end());
    air.insert(air.end(), f.airMetres.begin(), f.airMetres.end());
    jumps += f.jumps;
    worstRatio = std::max(worstRatio, f.worstStepRatio);
    worstTurn = std::max(worstTurn, f.groundTurnRate);
    if (f.category >= 0 && f.groundTurnRate > f.turnLimit) ++overTurning;
    if (std::abs(f.worstGroundHeightFeet) > std::abs(worstHeight)) worstHeight = f.worstGroundHeightFeet;
    touchDowns += f.touchDowns.size();
    offRunway += static_cast<std::size_t>(
        std::count_if(f.touchDowns.begin(), f.touchDowns.end(),
                      [](const TouchDown& t) { return !t.runway.empty() && !t.onRunway; }));
    parked += f.parked.size();
    offStand +=
        static_cast<std::size_t>(std::count_if(f.parked.begin(), f.parked.end(), [](const ParkedSpell& p) {
          return !p.stand.empty() && !lf_onStand(p);
        }));
  }
  std::string text = fmt::format("over all {} objects:\n", figures.size());
  text += fmt::format("  worst step {:.2f} of the bound, {} jumps ({})\n", worstRatio, jumps,
                      lf_mark(jumps == 0));
  text += fmt::format("  largest ground turn {:.1f} deg/s, {} objects beyond their category's rate ({})\n",
                      worstTurn, overTurning, lf_mark(overTurning == 0));
  text += fmt::format("  worst height on the ground {:+.2f} ft ({})\n", worstHeight,
                      lf_mark(std::abs(worstHeight) <= groundHeightLimitFeet));
  text += "  from the real track, " + lf_spread("ground", ground, groundMedianLimitMetres) + "\n";
  text += "  from the real track, " + lf_spread("air", air, airMedianLimitMetres) + "\n";
  text += fmt::format("  touch-downs {}, off the runway {} ({})\n", touchDowns, offRunway,
                      lf_mark(offRunway == 0));
  text += fmt::format("  parked spells {}, off their stand by more than {:.0f} m or {:.0f} deg {} ({})\n",
                      parked, standLimitMetres, standLimitDegrees, offStand, lf_mark(offStand == 0));
  return text;
}

nlohmann::json figuresJson(const std::vector<ObjectFigures>& figures) {
  nlohmann::json objects = nlohmann::json::array();
  for (const ObjectFigures& f : figures) {
    nlohmann::json touchDowns = nlohmann::json::array();
    for (const TouchDown& t : f.touchDowns)
      touchDowns.push_back(
          {{"runway", t.runway}, {"onRunway", t.onRunway}, {"rollOutSeconds", t.rollOutSeconds}});
    nlohmann::json parked = nlohmann::json::array();
    for (const ParkedSpell& p : f.parked)
      parked.push_back({{"stand", p.stand},
                        {"metres", p.metres},
                        {"headingErrorDegrees", p.headingErrorDegrees},
                        {"seconds", p.seconds},
                        {"onStand", lf_onStand(p)}});
    const Spread ground = spreadOf(f.groundMetres);
    const Spread air = spreadOf(f.airMetres);
    objects.push_back(
        {{"atcId", f.atcId},
         {"frames", f.frames},
         {"firstOnGround", f.firstOnGround},
         {"openingKnots", f.openingKnots},
         {"groundFrames", f.groundFrames},
         {"jumps", f.jumps},
         {"worstStepRatio", f.worstStepRatio},
         {"groundTurnRate", f.groundTurnRate},
         {"turnLimit", f.turnLimit},
         {"worstGroundHeightFeet", f.worstGroundHeightFeet},
         {"backwardsMetres", f.backwardsMetres},
         {"taxiMetres", f.taxiMetres},
         {"groundMedianMetres", ground.count ? nlohmann::json(ground.median) : nlohmann::json()},
         {"airMedianMetres", air.count ? nlohmann::json(air.median) : nlohmann::json()},
         {"touchDowns", touchDowns},
         {"parked", parked}});
  }
  return objects;
}

} // namespace ory
