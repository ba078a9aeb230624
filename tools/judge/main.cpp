// judge: what a pilot would see of the traffic in a simulator stand-in's trace, as a plain text report and a
// picture. See the usage text.
#include "drawing.h"
#include "inputs.h"
#include "judge.h"
#include "report.h"

#include <fmt/format.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <optional>
#include <stdexcept>

namespace ory {
namespace {

constexpr std::string_view usage =
    "usage: judge --trace FILE --scenario FILE [--capture FILE] [--airport FILE] [--park LAT,LON,FEET]\n"
    "             [--runway NAME:LAT1,LON1,LAT2,LON2[,WIDTH]]... [--report FILE] [--image FILE.png]\n"
    "             [--size WIDTHxHEIGHT] [--summary FILE.json]\n"
    "The trace and scenario are the simulator stand-in's; the capture is what feedplay played; the airport\n"
    "file gives the stands; the park airport's reference point and elevation leave out the ground reports\n"
    "that the program refuses away from it; a runway is its two thresholds in degrees and its width in\n"
    "metres (45); the summary holds every object's figures as JSON.\n";

struct Options {
  std::string trace, scenario, capture, airport, report, image, summary;
  std::vector<std::string> runways;
  std::optional<ParkAirport> park;
  int width = 1200, height = 1200; // pixels
};

Options lf_options(int argc, char** argv) {
  Options o;
  for (int i = 1; i < argc; ++i) {
    const std::string_view name = argv[i];
    if (i + 1 >= argc) throw std::runtime_error(fmt::format("{} needs a value", name));
    const std::string value = argv[++i];
    if (name == "--trace")
      o.trace = value;
    else if (name == "--scenario")
      o.scenario = value;
    else if (name == "--capture")
      o.capture = value;
    else if (name == "--airport")
      o.airport = value;
    else if (name == "--report")
      o.report = value;
    else if (name == "--image")
      o.image = value;
    else if (name == "--summary")
      o.summary = value;
    else if (name == "--runway")
      o.runways.push_back(value);
    else if (ParkAirport park; name == "--park" && std::sscanf(value.c_str(), "%lf,%lf,%lf", &park.lat,
                                                               &park.lon, &park.elevation) == 3)
      o.park = park;
    else if (name != "--size" || std::sscanf(value.c_str(), "%dx%d", &o.width, &o.height) != 2)
      throw std::runtime_error(fmt::format("unknown option or bad value: {} {}", name, value));
  }
  if (o.trace.empty() || o.scenario.empty()) throw std::runtime_error("--trace and --scenario are needed");
  if (o.width < 100 || o.height < 100 || o.width > 10000 || o.height > 10000)
    throw std::runtime_error("--size: 100 to 10000 pixels each way");
  return o;
}

int lf_run(const Options& o) {
  const Trace trace = readTrace(o.trace);
  for (const std::string& problem : trace.problems)
    std::fprintf(stderr, "judge: %s\n", problem.c_str());
  JudgeContext context;
  context.staticCg = readStaticCg(o.scenario);
  if (!o.capture.empty()) context.real = realAircraft(o.capture);
  if (o.park) dropGroundReportsAway(context.real, *o.park);
  if (!o.airport.empty()) context.stands = readStands(o.airport);
  for (const std::string& runway : o.runways)
    context.runways.push_back(parseRunway(runway));
  const std::vector<FlownObject> objects = flownObjects(trace.lines);

  std::string text =
      fmt::format("judge: {} objects in {}, {} real aircraft, {} stands, {} runways\n", objects.size(),
                  o.trace, context.real.size(), context.stands.size(), context.runways.size());
  std::vector<ObjectFigures> figures;
  for (const FlownObject& object : objects) {
    figures.push_back(judgeObject(object, context));
    text += objectText(figures.back());
  }
  text += overallText(figures);
  std::fputs(text.c_str(), stdout);
  if (!o.report.empty()) {
    std::ofstream out(o.report);
    out << text;
    if (!out) throw std::runtime_error(fmt::format("can't write {}", o.report));
  }
  if (!o.summary.empty()) {
    std::ofstream out(o.summary);
    out << figuresJson(figures).dump(1) << '\n';
    if (!out) throw std::runtime_error(fmt::format("can't write {}", o.summary));
  }
  if (!o.image.empty()) drawTraffic(objects, figures, context, o.image, o.width, o.height);
  return 0;
}

} // namespace
} // namespace ory

int main(int argc, char** argv) {
  ory::Options options;
  try {
    options = ory::lf_options(argc, argv);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "judge: %s\n%s", error.what(), ory::usage.data());
    return 2;
  }
  try {
    return ory::lf_run(options);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "judge: %s\n", error.what());
    return 1;
  }
}
